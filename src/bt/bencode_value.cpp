#include "bt/bencode_value.h"

#include "base/text.h"
#include "platform/local_text.h"

namespace vantlow {
namespace {

// Null for what has no children.
BEObjects* children_of(CBEObject& object) noexcept {
    if (object.kind == CBEObject::list_kind) return &static_cast<CBEList&>(object).items;
    if (object.kind == CBEObject::dictionary_kind) return &static_cast<CBEDictionary&>(object).values;
    return nullptr;
}

template <class Value>
const Value* as(const CBEObject* object, std::int32_t kind) noexcept {
    return object != nullptr && object->kind == kind ? static_cast<const Value*>(object) : nullptr;
}

}  // namespace

void CBEObject::destroy_children() noexcept {
    // The last leaf of the last branch is always next. It is found from above, with links back upwards, so
    // that this takes neither stack nor memory, which may be short.
    for (CBEObject* node = this;;) {
        BEObjects& below = *children_of(*node);
        if (below.empty()) {
            if (node == this) return;
            node = node->holder_;
            children_of(*node)->pop_back();
        } else if (CBEObject* last = below.back().get(); last != nullptr && children_of(*last) != nullptr) {
            last->holder_ = node;
            node = last;
        } else {
            below.pop_back();
        }
    }
}

std::unique_ptr<CBEString> CBEString::from_text_ansi(std::u16string_view text) {
    return std::make_unique<CBEString>(to_ansi(text));
}

std::unique_ptr<CBEString> CBEString::from_text_utf8(std::u16string_view text) {
    return std::make_unique<CBEString>(to_utf8(text));
}

void CBEDictionary::add(std::unique_ptr<CBEString> key, std::unique_ptr<CBEObject> value) {
    keys.push_back(std::move(key));
    values.push_back(std::move(value));
}

const CBEObject* CBEDictionary::find(std::string_view key) const noexcept {
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (keys[i]->data == key) return values[i].get();
    }
    return nullptr;
}

const CBEString* CBEDictionary::find_string(std::string_view key) const noexcept {
    return as_string(find(key));
}
const CBEInteger* CBEDictionary::find_integer(std::string_view key) const noexcept {
    return as_integer(find(key));
}
const CBEList* CBEDictionary::find_list(std::string_view key) const noexcept {
    return as_list(find(key));
}
const CBEDictionary* CBEDictionary::find_dictionary(std::string_view key) const noexcept {
    return as_dictionary(find(key));
}

const CBEString* as_string(const CBEObject* object) noexcept {
    return as<CBEString>(object, CBEObject::string_kind);
}
const CBEInteger* as_integer(const CBEObject* object) noexcept {
    return as<CBEInteger>(object, CBEObject::integer_kind);
}
const CBEList* as_list(const CBEObject* object) noexcept {
    return as<CBEList>(object, CBEObject::list_kind);
}
const CBEDictionary* as_dictionary(const CBEObject* object) noexcept {
    return as<CBEDictionary>(object, CBEObject::dictionary_kind);
}

}  // namespace vantlow
