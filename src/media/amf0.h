// One AMF0 message body: a list of values, looked up and changed by name.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <variant>

#include "base/mem_file.h"
#include "media/amf_values.h"

namespace vantlow {

/// The result of a look-up: a number, a boolean (0 or 1), a text, a date (ticks of 100 ns since 1601) or a
/// container, which the body goes on owning.
using AmfFound = std::variant<double, std::int32_t, std::u16string, std::uint64_t, CAMFBase*>;

class CAMF0 {
  public:
    /// Reads a body in place of an earlier one. False when something in it is no value. A body of no more
    /// than one value, with or without zeros behind it, yields no values.
    bool Parse(const std::byte* bytes, std::size_t length);

    /// The first entry with this name in the objects and mixed arrays at the top. False when there is none,
    /// when `expected_type` (a marker; any when negative) is another, and for null, undefined and references.
    bool GetValue(std::u16string_view name, AmfFound& out, int expected_type = -1) const;

    /// Replaces that entry's value by an encoded one; where there is none and `add_if_missing` is set,
    /// appends an entry to the last object or mixed array at the top. False when nothing was changed.
    bool SetValue(std::u16string_view name, std::span<const std::byte> encoded, bool add_if_missing);

    /// Sets the entry "keyframes", by which players seek: byte offsets in the file, and milliseconds.
    /// Changes nothing when the lists differ in length.
    bool SetKeyframes(std::span<const std::int64_t> file_positions, std::span<const std::uint32_t> times);

    /// The values, none before the first Parse.
    [[nodiscard]] const CAMFArray* values() const noexcept { return values_.get(); }
    /// Appends the values one after the other, as Parse reads them.
    bool Write(CQoMemFile& stream) const;

    // Encoded values, made without objects. Each is appended.
    static void WriteString(CQoMemFile& stream, std::string_view text, bool marker = true,
                            bool empty_first = false);
    static void WriteString(CQoMemFile& stream, std::u16string_view text);
    static void WriteNumber(CQoMemFile& stream, double value);
    static void WriteBoolean(CQoMemFile& stream, bool value);
    static void WriteObjectEnd(CQoMemFile& stream);

  private:
    struct Place {
        CAMFObject::Entry* entry = nullptr;  ///< the entry with that name
        CAMFObject* last = nullptr;          ///< the last container that was searched
    };
    [[nodiscard]] Place find(std::u16string_view name) const;

    std::unique_ptr<CAMFArray> values_;
};

}  // namespace vantlow
