// Bencoded values (BEP 3): a tree of strings, integers, lists and dictionaries.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace vantlow {

class CBEObject;
using BEObjects = std::vector<std::unique_ptr<CBEObject>>;

/// The base of all values. A tree may be as deep as its document makes it: nothing here takes stack for each
/// level.
class CBEObject {
  public:
    enum : std::int32_t { dictionary_kind = 'd', integer_kind = 'i', list_kind = 'l', string_kind = 's' };

    CBEObject(const CBEObject&) = delete;
    CBEObject& operator=(const CBEObject&) = delete;
    virtual ~CBEObject() { kind = 0; }

    std::int32_t kind;  ///< the letter of the kind

  protected:
    explicit CBEObject(std::int32_t k) noexcept : kind(k) {}
    /// Destroys everything below, the deepest first. For the destructors of lists and dictionaries.
    void destroy_children() noexcept;

  private:
    CBEObject* holder_ = nullptr;  ///< while a tree is destroyed: the way back up
};

/// A byte string.
class CBEString : public CBEObject {
  public:
    explicit CBEString(std::string_view bytes) : CBEObject(string_kind), data(bytes) {}
    /// Text in the ANSI code page, and in UTF-8.
    static std::unique_ptr<CBEString> from_text_ansi(std::u16string_view text);
    static std::unique_ptr<CBEString> from_text_utf8(std::u16string_view text);

    std::string data;
    [[nodiscard]] std::uint32_t length() const noexcept { return static_cast<std::uint32_t>(data.size()); }
};

class CBEInteger : public CBEObject {
  public:
    explicit CBEInteger(std::int64_t number) noexcept : CBEObject(integer_kind), value(number) {}

    std::int64_t value;
};

class CBEList : public CBEObject {
  public:
    CBEList() noexcept : CBEObject(list_kind) {}
    ~CBEList() override { destroy_children(); }

    void add(std::unique_ptr<CBEObject> item) { items.push_back(std::move(item)); }

    BEObjects items;  ///< in document order
};

/// Entries stay in the order in which they were added; a key may occur more than once.
class CBEDictionary : public CBEObject {
  public:
    CBEDictionary() noexcept : CBEObject(dictionary_kind) {}
    ~CBEDictionary() override { destroy_children(); }

    void add(std::unique_ptr<CBEString> key, std::unique_ptr<CBEObject> value);
    void add(std::string_view key, std::unique_ptr<CBEObject> value) {
        add(std::make_unique<CBEString>(key), std::move(value));
    }
    void add(std::string_view key, std::string_view bytes) { add(key, std::make_unique<CBEString>(bytes)); }
    void add(std::string_view key, std::int64_t number) { add(key, std::make_unique<CBEInteger>(number)); }

    /// The first value of this key (its exact bytes); null when there is none.
    [[nodiscard]] const CBEObject* find(std::string_view key) const noexcept;
    /// The same where the value is of that kind; null for another kind too.
    [[nodiscard]] const CBEString* find_string(std::string_view key) const noexcept;
    [[nodiscard]] const CBEInteger* find_integer(std::string_view key) const noexcept;
    [[nodiscard]] const CBEList* find_list(std::string_view key) const noexcept;
    [[nodiscard]] const CBEDictionary* find_dictionary(std::string_view key) const noexcept;

    std::vector<std::unique_ptr<CBEString>> keys;
    BEObjects values;  ///< the value of keys[n] is values[n]
};

/// The object as its kind; null when it is none or of another kind.
const CBEString* as_string(const CBEObject* object) noexcept;
const CBEInteger* as_integer(const CBEObject* object) noexcept;
const CBEList* as_list(const CBEObject* object) noexcept;
const CBEDictionary* as_dictionary(const CBEObject* object) noexcept;

}  // namespace vantlow
