#include "media/amf0.h"

#include <utility>

#include "base/text.h"
#include "media/big_endian.h"

namespace vantlow {
namespace {

void put_numbers(CQoMemFile& stream, std::string_view name, std::size_t count, auto&& number) {
    CAMF0::WriteString(stream, name, false);
    stream.write_u8(amf::strict_array);
    put_big(stream, count, 4);
    for (std::size_t i = 0; i < count; ++i) CAMF0::WriteNumber(stream, number(i));
}

}  // namespace

bool CAMF0::Parse(const std::byte* bytes, std::size_t length) {
    values_ = std::make_unique<CAMFArray>();
    values_->type = amf::strict_array;
    const std::byte* cursor = bytes;
    const std::byte* const end = bytes + length;
    while (cursor != end) {
        auto value = CAMFBase::ParseValue(cursor, end);
        if (value == nullptr) {
            if (cursor >= end) return true;
            values_.reset();
            return false;
        }
        values_->values.push_back(std::move(value));
        if (values_->values.size() > 1) continue;
        const std::byte* behind_zeros = cursor;
        while (behind_zeros != end && *behind_zeros == std::byte{0}) ++behind_zeros;
        // A single value, perhaps padded, is no message: a message has a value beside its name.
        if (behind_zeros == end) {
            values_->values.clear();
            return true;
        }
    }
    return true;
}

CAMF0::Place CAMF0::find(std::u16string_view name) const {
    Place place;
    if (values_ == nullptr) return place;
    for (const auto& value : values_->values) {
        if (value->type != amf::object && value->type != amf::mixed_array) continue;
        place.last = static_cast<CAMFObject*>(value.get());  // both kinds are
        for (CAMFObject::Entry& entry : place.last->entries) {
            if (*entry.name->text != name) continue;
            place.entry = &entry;
            return place;
        }
    }
    return place;
}

bool CAMF0::GetValue(std::u16string_view name, AmfFound& out, int expected_type) const {
    const CAMFObject::Entry* const entry = find(name).entry;
    if (entry == nullptr) return false;
    CAMFBase& value = *entry->value;
    if (expected_type >= 0 && expected_type != value.type) return false;
    if (const auto* number = dynamic_cast<const CAMFNumber*>(&value)) {
        out = number->value;
    } else if (const auto* boolean = dynamic_cast<const CAMFBoolean*>(&value)) {
        out = std::int32_t{boolean->value != 0};
    } else if (const auto* string = dynamic_cast<const CAMFString*>(&value)) {
        out = string->ToString();
    } else if (const auto* date = dynamic_cast<const CAMFDate*>(&value)) {
        out = date->file_time();
    } else if (value.is_container()) {
        out = &value;
    } else {
        return false;
    }
    return true;
}

bool CAMF0::SetValue(std::u16string_view name, std::span<const std::byte> encoded, bool add_if_missing) {
    const Place place = find(name);
    if (place.entry == nullptr && (!add_if_missing || place.last == nullptr)) return false;
    const std::byte* cursor = encoded.data();
    auto value = CAMFBase::ParseValue(cursor, encoded.data() + encoded.size());
    if (value == nullptr) return false;
    if (place.entry != nullptr) {
        place.entry->value = std::move(value);
    } else {
        CAMFObject::Entry& added = place.last->entries.emplace_back();
        added.name = std::make_unique<CAMFString>(name);
        added.value = std::move(value);
    }
    return true;
}

bool CAMF0::SetKeyframes(std::span<const std::int64_t> file_positions, std::span<const std::uint32_t> times) {
    if (file_positions.size() != times.size()) return false;
    CQoMemFile stream;
    stream.write_u8(amf::object);
    put_numbers(stream, "filepositions", file_positions.size(),
                [&](std::size_t i) { return static_cast<double>(file_positions[i]); });
    put_numbers(stream, "times", times.size(), [&](std::size_t i) { return times[i] / 1000.0; });
    WriteObjectEnd(stream);
    return SetValue(u"keyframes", stream.bytes(), true);
}

bool CAMF0::Write(CQoMemFile& stream) const {
    if (values_ == nullptr) return false;
    for (const auto& value : values_->values) {
        if (!value->Write(stream)) return false;
    }
    return true;
}

void CAMF0::WriteString(CQoMemFile& stream, std::string_view text, bool marker, bool empty_first) {
    if (empty_first) stream.clear();
    if (marker) stream.write_u8(amf::string);
    put_big(stream, text.size(), 2);
    stream.write(std::as_bytes(std::span(text)));
}

void CAMF0::WriteString(CQoMemFile& stream, std::u16string_view text) {
    WriteString(stream, to_utf8(text));
}

void CAMF0::WriteNumber(CQoMemFile& stream, double value) {
    stream.write_u8(amf::number);
    put_double(stream, value);
}

void CAMF0::WriteBoolean(CQoMemFile& stream, bool value) {
    stream.write_u8(amf::boolean);
    stream.write_u8(value ? 1 : 0);
}

void CAMF0::WriteObjectEnd(CQoMemFile& stream) {
    put_big(stream, amf::object_end, 3);
}

}  // namespace vantlow
