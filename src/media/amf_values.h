// AMF0 values: the encoding of an FLV file's metadata and of RTMP messages (Action Message Format, AMF 0).
//
// One class a kind of value. Numbers are big-endian on the wire, text is UTF-8 there and UTF-16 in memory.
// Values belong to one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/mem_file.h"

namespace vantlow {

/// The first byte of an encoded value.
namespace amf {
inline constexpr std::uint8_t number = 0x00;
inline constexpr std::uint8_t boolean = 0x01;
inline constexpr std::uint8_t string = 0x02;
inline constexpr std::uint8_t object = 0x03;
inline constexpr std::uint8_t movie_clip = 0x04;
inline constexpr std::uint8_t null = 0x05;
inline constexpr std::uint8_t undefined = 0x06;
inline constexpr std::uint8_t reference = 0x07;
inline constexpr std::uint8_t mixed_array = 0x08;
inline constexpr std::uint8_t object_end = 0x09;
inline constexpr std::uint8_t strict_array = 0x0A;
inline constexpr std::uint8_t date = 0x0B;
inline constexpr std::uint8_t long_string = 0x0C;
inline constexpr std::uint8_t xml = 0x0F;
inline constexpr std::uint8_t typed_object = 0x10;
inline constexpr std::uint8_t unread = 0xFF;
/// Values in one another that are read; deeper ones are refused.
inline constexpr int most_levels = 256;
}  // namespace amf

/// The bytes that a value is read from.
struct AmfInput {
    const std::byte* cursor = nullptr;
    const std::byte* end = nullptr;
    int level = 0;  ///< containers around the value
    [[nodiscard]] std::size_t left() const noexcept {
        return cursor < end ? static_cast<std::size_t>(end - cursor) : 0;
    }
};

/// The root of the values; by itself null and undefined.
class CAMFBase {
  public:
    CAMFBase() = default;
    explicit CAMFBase(std::uint8_t marker) : type(marker) {}
    CAMFBase(const CAMFBase&) = delete;
    CAMFBase& operator=(const CAMFBase&) = delete;
    virtual ~CAMFBase() = default;

    /// The value at the cursor, which is moved behind it. Nothing when there is none, when its bytes are cut
    /// short or wrong, or when it is nested too deeply; the cursor may stand anywhere then.
    static std::unique_ptr<CAMFBase> ParseValue(const std::byte*& cursor, const std::byte* end);

    /// Appends a line an entry to both lists: the name, two blanks in front for each level, and the value's
    /// text. Entries of containers inside follow, one level deeper. Only containers have entries.
    virtual void ListEntries(int level, std::vector<std::u16string>& names,
                             std::vector<std::u16string>& texts) const;
    /// The value for a person; empty for what has no text.
    [[nodiscard]] virtual std::u16string ToString() const { return {}; }
    /// Appends the encoding. False, without a byte of this value, when it was never read or set.
    virtual bool Write(CQoMemFile& stream) const;
    /// Reads this kind of value, its marker first, and moves the cursor behind it. After a failure the
    /// cursor and the value are in between.
    bool Read(const std::byte*& cursor, const std::byte* end);

    [[nodiscard]] bool is_container() const noexcept;

    std::uint8_t type = amf::unread;  ///< the marker

  protected:
    static std::unique_ptr<CAMFBase> parse(AmfInput& input);
    /// Takes the marker; false when there is none.
    bool read_marker(AmfInput& input);
    virtual bool read(AmfInput& input);

    friend class CAMFObject;
    friend class CAMFArray;
    friend class CAMFTypedObject;
};

class CAMFNumber : public CAMFBase {
  public:
    [[nodiscard]] std::u16string ToString() const override;
    bool Write(CQoMemFile& stream) const override;

    double value = 0;

  protected:
    bool read(AmfInput& input) override;
};

class CAMFBoolean : public CAMFBase {
  public:
    [[nodiscard]] std::u16string ToString() const override;
    bool Write(CQoMemFile& stream) const override;

    std::uint8_t value = 0;  ///< as it was read: anything but 0 is true

  protected:
    bool read(AmfInput& input) override;
};

/// An earlier value of the same body, by its index.
class CAMFReference : public CAMFBase {
  public:
    bool Write(CQoMemFile& stream) const override;

    std::uint16_t index = 0;

  protected:
    bool read(AmfInput& input) override;
};

class CAMFDate : public CAMFBase {
  public:
    /// The date and the time of day, local and in the user's form.
    [[nodiscard]] std::u16string ToString() const override;
    bool Write(CQoMemFile& stream) const override;
    /// Ticks of 100 nanoseconds since 1601, UTC.
    [[nodiscard]] std::uint64_t file_time() const noexcept;

    double milliseconds = 0;  ///< since 1970, UTC
    std::uint16_t zone = 0;   ///< kept, not used

  protected:
    bool read(AmfInput& input) override;
};

/// A text: a value by itself, or the name of an entry, which has no marker.
class CAMFString : public CAMFBase {
  public:
    CAMFString() = default;
    /// An entry's name.
    explicit CAMFString(std::u16string_view name) : CAMFBase(amf::string), text(name), has_marker(false) {}

    [[nodiscard]] std::u16string ToString() const override { return text.value_or(std::u16string()); }
    /// Fails without a byte when there is no text.
    bool Write(CQoMemFile& stream) const override;

    std::optional<std::u16string> text;  ///< none until it was read or set
    bool has_marker = true;

  protected:
    bool read(AmfInput& input) override;
    friend class CAMFObject;
    friend class CAMFMixedArray;
    friend class CAMFTypedObject;
};

/// Entries with names, in the order of the wire.
class CAMFObject : public CAMFBase {
  public:
    struct Entry {
        std::unique_ptr<CAMFString> name;
        std::unique_ptr<CAMFBase> value;
    };

    void ListEntries(int level, std::vector<std::u16string>& names,
                     std::vector<std::u16string>& texts) const override;
    bool Write(CQoMemFile& stream) const override;

    std::vector<Entry> entries;

  protected:
    bool read(AmfInput& input) override;
    /// From the first entry on, up to the end marker, which must be there.
    bool read_entries(AmfInput& input);
    bool write_entries(CQoMemFile& stream) const;
};

/// An ECMA array: as an object, but its end may be missing.
class CAMFMixedArray : public CAMFObject {
  public:
    bool Write(CQoMemFile& stream) const override;

  protected:
    bool read(AmfInput& input) override;
};

/// An object of a named class. Here the name is a whole string value and the object a whole object value.
class CAMFTypedObject : public CAMFObject {
  public:
    bool Write(CQoMemFile& stream) const override;

    CAMFString class_name;

  protected:
    bool read(AmfInput& input) override;
};

/// Values without names.
class CAMFArray : public CAMFBase {
  public:
    void ListEntries(int level, std::vector<std::u16string>& names,
                     std::vector<std::u16string>& texts) const override;
    bool Write(CQoMemFile& stream) const override;

    std::vector<std::unique_ptr<CAMFBase>> values;

  protected:
    bool read(AmfInput& input) override;
};

}  // namespace vantlow
