// Reading values. Lengths and counts are believed only as far as there are bytes: no memory is reserved by
// them.
#include "base/text.h"
#include "media/amf_values.h"
#include "media/big_endian.h"

namespace vantlow {
namespace {

bool at_object_end(const AmfInput& input) noexcept {
    return input.left() >= 3 && load_u24(input.cursor) == amf::object_end;
}

std::unique_ptr<CAMFBase> make_value(std::uint8_t marker) {
    switch (marker) {
        case amf::number:
            return std::make_unique<CAMFNumber>();
        case amf::boolean:
            return std::make_unique<CAMFBoolean>();
        case amf::string:
        case amf::movie_clip:
        case amf::long_string:
        case amf::xml:
            return std::make_unique<CAMFString>();
        case amf::object:
            return std::make_unique<CAMFObject>();
        case amf::null:
        case amf::undefined:
            return std::make_unique<CAMFBase>();
        case amf::reference:
            return std::make_unique<CAMFReference>();
        case amf::mixed_array:
            return std::make_unique<CAMFMixedArray>();
        case amf::strict_array:
            return std::make_unique<CAMFArray>();
        case amf::date:
            return std::make_unique<CAMFDate>();
        case amf::typed_object:
            return std::make_unique<CAMFTypedObject>();
        default:
            return nullptr;
    }
}

}  // namespace

std::unique_ptr<CAMFBase> CAMFBase::ParseValue(const std::byte*& cursor, const std::byte* end) {
    AmfInput input{cursor, end, 0};
    auto value = parse(input);
    cursor = input.cursor;
    return value;
}

std::unique_ptr<CAMFBase> CAMFBase::parse(AmfInput& input) {
    if (input.left() == 0 || input.level >= amf::most_levels) return nullptr;
    auto value = make_value(std::to_integer<std::uint8_t>(*input.cursor));
    if (value == nullptr) return nullptr;
    ++input.level;
    const bool ok = value->read(input);
    --input.level;
    if (!ok) value.reset();
    return value;
}

bool CAMFBase::Read(const std::byte*& cursor, const std::byte* end) {
    AmfInput input{cursor, end, 1};
    const bool ok = read(input);
    cursor = input.cursor;
    return ok;
}

bool CAMFBase::read_marker(AmfInput& input) {
    if (input.left() == 0) return false;
    type = std::to_integer<std::uint8_t>(*input.cursor++);
    return true;
}

bool CAMFBase::read(AmfInput& input) {
    return read_marker(input) && (type == amf::null || type == amf::undefined);
}

bool CAMFNumber::read(AmfInput& input) {
    if (!read_marker(input) || type != amf::number || input.left() < 8) return false;
    value = load_double(input.cursor);
    input.cursor += 8;
    return true;
}

bool CAMFBoolean::read(AmfInput& input) {
    if (!read_marker(input) || type != amf::boolean || input.left() < 1) return false;
    value = std::to_integer<std::uint8_t>(*input.cursor++);
    return true;
}

bool CAMFReference::read(AmfInput& input) {
    if (!read_marker(input) || type != amf::reference || input.left() < 2) return false;
    index = load_u16(input.cursor);
    input.cursor += 2;
    return true;
}

bool CAMFDate::read(AmfInput& input) {
    if (!read_marker(input) || type != amf::date || input.left() < 10) return false;
    milliseconds = load_double(input.cursor);
    zone = load_u16(input.cursor + 8);
    input.cursor += 10;
    return true;
}

bool CAMFString::read(AmfInput& input) {
    if (!has_marker) {
        if (input.left() == 0) return false;
        type = amf::string;
    } else if (!read_marker(input)) {
        return false;
    }
    const bool is_short = type == amf::string || type == amf::movie_clip;
    if (!is_short && type != amf::long_string && type != amf::xml) return false;
    const std::size_t length_bytes = is_short ? 2 : 4;
    if (input.left() < length_bytes) return false;
    const std::uint64_t length = load_big(input.cursor, length_bytes);
    input.cursor += length_bytes;
    if (length > input.left()) return false;
    text = to_utf16({reinterpret_cast<const char*>(input.cursor), static_cast<std::size_t>(length)});
    input.cursor += length;
    return true;
}

bool CAMFObject::read(AmfInput& input) {
    return read_marker(input) && type == amf::object && input.left() > 0 && read_entries(input);
}

bool CAMFObject::read_entries(AmfInput& input) {
    for (;;) {
        if (input.left() < 3) return false;
        if (at_object_end(input)) {
            input.cursor += 3;
            return true;
        }
        Entry entry;
        entry.name = std::make_unique<CAMFString>(std::u16string_view());
        if (!entry.name->read(input)) return false;
        entry.value = parse(input);
        if (entry.value == nullptr) return false;
        entries.push_back(std::move(entry));
        if (input.left() == 0) return false;
    }
}

bool CAMFMixedArray::read(AmfInput& input) {
    if (!read_marker(input) || type != amf::mixed_array || input.left() < 4) return false;
    input.cursor += 4;  // the count: writers disagree about what they count
    for (;;) {
        if (at_object_end(input)) {
            input.cursor += 3;
            return true;
        }
        Entry entry;
        entry.name = std::make_unique<CAMFString>(std::u16string_view());
        const std::byte* const before = input.cursor;
        if (!entry.name->read(input)) {
            // Metadata may be cut off; the values up to there count.
            input.cursor = before;
            return true;
        }
        entry.value = parse(input);
        if (entry.value == nullptr) return false;
        entries.push_back(std::move(entry));
    }
}

bool CAMFArray::read(AmfInput& input) {
    if (!read_marker(input) || type != amf::strict_array || input.left() < 4) return false;
    const std::uint32_t count = load_u32(input.cursor);
    input.cursor += 4;
    for (std::uint32_t i = 0; i < count; ++i) {
        auto value = parse(input);
        if (value == nullptr) break;  // an array that was cut short has the values up to there
        values.push_back(std::move(value));
    }
    return true;
}

bool CAMFTypedObject::read(AmfInput& input) {
    if (!read_marker(input) || type != amf::typed_object) return false;
    class_name.has_marker = true;
    if (!class_name.read(input) || !CAMFObject::read(input)) return false;
    type = amf::typed_object;
    return true;
}

}  // namespace vantlow
