// Writing values, and showing them.
#include <algorithm>
#include <cmath>
#include <limits>
#include <string>

#include "base/text.h"
#include "media/amf_values.h"
#include "media/big_endian.h"
#include "platform/local_text.h"

namespace vantlow {
namespace {

void put_marker(CQoMemFile& stream, std::uint8_t marker) {
    stream.write_u8(marker);
}

void add_line(const CAMFBase& value, std::u16string name, int level, std::vector<std::u16string>& names,
              std::vector<std::u16string>& texts) {
    names.push_back(std::move(name));
    texts.push_back(value.is_container() ? std::u16string() : value.ToString());
    if (value.is_container()) value.ListEntries(level + 1, names, texts);
}

std::u16string indent(int level) {
    return std::u16string(2 * static_cast<std::size_t>(std::max(level, 0)), u' ');
}

// Converts to an unsigned number, also from the upper half of its range; a value without a place there wraps
// or becomes 2^63.
std::uint64_t to_unsigned(double value) noexcept {
    constexpr double half = 9223372036854775808.0;  // 2^63
    constexpr std::uint64_t half_bits = std::uint64_t{1} << 63U;
    if (value >= half)
        return value < 2 * half ? static_cast<std::uint64_t>(value - half) + half_bits : half_bits;
    return value > -half ? static_cast<std::uint64_t>(static_cast<std::int64_t>(value)) : half_bits;
}

}  // namespace

bool CAMFBase::is_container() const noexcept {
    return type == amf::object || type == amf::mixed_array || type == amf::strict_array ||
           type == amf::typed_object;
}

void CAMFBase::ListEntries(int /*level*/, std::vector<std::u16string>& /*names*/,
                           std::vector<std::u16string>& /*texts*/) const {}

bool CAMFBase::Write(CQoMemFile& stream) const {
    if (type != amf::null && type != amf::undefined) return false;
    put_marker(stream, type);
    return true;
}

std::u16string CAMFNumber::ToString() const {
    if (value > std::numeric_limits<double>::max()) return u"N/A";
    return to_utf16(print(value == std::trunc(value) ? "%.0f" : "%.3f", value));
}

bool CAMFNumber::Write(CQoMemFile& stream) const {
    if (type != amf::number) return false;
    put_marker(stream, type);
    put_double(stream, value);
    return true;
}

std::u16string CAMFBoolean::ToString() const {
    return to_utf16(print("%u", unsigned{value}));
}

bool CAMFBoolean::Write(CQoMemFile& stream) const {
    if (type != amf::boolean) return false;
    put_marker(stream, type);
    stream.write_u8(value);
    return true;
}

bool CAMFReference::Write(CQoMemFile& stream) const {
    if (type != amf::reference) return false;
    put_marker(stream, type);
    put_big(stream, index, 2);
    return true;
}

std::uint64_t CAMFDate::file_time() const noexcept {
    constexpr std::uint64_t ticks_to_1970 = 116'444'736'000'000'000;
    constexpr std::uint64_t ticks_a_millisecond = 10'000;
    return ticks_to_1970 + to_unsigned(milliseconds) * ticks_a_millisecond;
}

std::u16string CAMFDate::ToString() const {
    const LocalDate local = local_date(file_time());
    return local.date + u" " + local.time;
}

bool CAMFDate::Write(CQoMemFile& stream) const {
    if (type != amf::date) return false;
    put_marker(stream, type);
    put_double(stream, milliseconds);
    put_big(stream, zone, 2);
    return true;
}

bool CAMFString::Write(CQoMemFile& stream) const {
    const bool is_short = type == amf::string || type == amf::movie_clip;
    if (!text || (!is_short && type != amf::long_string && type != amf::xml)) return false;
    const std::string utf8 = to_utf8(*text);
    const std::size_t length_bytes = is_short ? 2 : 4;
    // A wrong length would make garbage of everything behind it.
    if (utf8.size() > (is_short ? 0xFFFF : 0xFFFFFFFF)) return false;
    if (has_marker) put_marker(stream, type);
    put_big(stream, utf8.size(), length_bytes);
    stream.write(std::as_bytes(std::span(utf8)));
    return true;
}

void CAMFObject::ListEntries(int level, std::vector<std::u16string>& names,
                             std::vector<std::u16string>& texts) const {
    for (const Entry& entry : entries) {
        add_line(*entry.value, indent(level) + entry.name->ToString(), level, names, texts);
    }
}

bool CAMFObject::write_entries(CQoMemFile& stream) const {
    for (const Entry& entry : entries) {
        if (!entry.name->Write(stream) || !entry.value->Write(stream)) return false;
    }
    put_big(stream, amf::object_end, 3);
    return true;
}

bool CAMFObject::Write(CQoMemFile& stream) const {
    if (type != amf::object) return false;
    put_marker(stream, type);
    return write_entries(stream);
}

bool CAMFMixedArray::Write(CQoMemFile& stream) const {
    if (type != amf::mixed_array) return false;
    put_marker(stream, type);
    put_big(stream, entries.size(), 4);
    return write_entries(stream);
}

bool CAMFTypedObject::Write(CQoMemFile& stream) const {
    if (type != amf::typed_object) return false;
    put_marker(stream, type);
    if (!class_name.Write(stream)) return false;
    put_marker(stream, amf::object);
    return write_entries(stream);
}

void CAMFArray::ListEntries(int level, std::vector<std::u16string>& names,
                            std::vector<std::u16string>& texts) const {
    // Lines without a name, so that both lists stay side by side.
    for (const auto& value : values) add_line(*value, {}, level, names, texts);
}

bool CAMFArray::Write(CQoMemFile& stream) const {
    if (type != amf::strict_array) return false;
    put_marker(stream, type);
    put_big(stream, values.size(), 4);
    return std::all_of(values.begin(), values.end(), [&](const auto& value) { return value->Write(stream); });
}

}  // namespace vantlow
