#include "ed2k/link.h"

#include <algorithm>
#include <limits>
#include <vector>

#include "base/text.h"

namespace vantlow {
namespace {

constexpr std::size_t hash_digits = 2 * CED2KLink::hash_size;
constexpr std::size_t least_fields = 5;

// The value of a hexadecimal digit; -1 for anything else.
int digit_value(char16_t c) noexcept {
    if (c >= u'0' && c <= u'9') return c - u'0';
    const char16_t lower = ascii_lower(c);
    return lower >= u'a' && lower <= u'f' ? lower - u'a' + 10 : -1;
}

std::vector<std::u16string_view> split_fields(std::u16string_view text) {
    std::vector<std::u16string_view> fields;
    for (auto bar = text.find(u'|'); bar != std::u16string_view::npos; bar = text.find(u'|')) {
        fields.push_back(text.substr(0, bar));
        text.remove_prefix(bar + 1);
    }
    fields.push_back(text);
    return fields;
}

// Unlike in other addresses "%%" stands for a percent sign.
std::u16string decode_name(std::u16string_view text) {
    const std::string bytes = to_utf8(text);
    std::string name;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        name += bytes[i];
        if (bytes[i] != '%' || i + 1 == bytes.size()) continue;
        const auto next = static_cast<unsigned char>(bytes[i + 1]);
        const int high = digit_value(next);
        const int low = i + 2 < bytes.size() ? digit_value(static_cast<unsigned char>(bytes[i + 2])) : -1;
        if (next == '%') {
            ++i;
        } else if (high >= 0 && low >= 0) {
            name.back() = static_cast<char>(high * 16 + low);
            i += 2;
        }
    }
    return to_utf16(name);
}

// A decimal number with a sign, whatever follows it; the largest of its sign when it is too large.
std::int64_t read_size(std::u16string_view text) noexcept {
    constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
    while (!text.empty() && (text.front() == u' ' || text.front() == u'\t')) text.remove_prefix(1);
    const bool negative = text.starts_with(u'-');
    if (negative || text.starts_with(u'+')) text.remove_prefix(1);
    std::int64_t value = 0;
    for (const char16_t c : text) {
        if (c < u'0' || c > u'9') break;
        const int digit = c - u'0';
        if (value > (largest - digit) / 10) return negative ? -largest - 1 : largest;
        value = value * 10 + digit;
    }
    return negative ? -value : value;
}

bool is_escaped(unsigned char byte) noexcept {
    constexpr std::string_view escaped = " \"#<>[\\]^`{}";
    return byte < 32 || byte > 126 || escaped.find(static_cast<char>(byte)) != std::string_view::npos;
}

}  // namespace

CED2KLink::CED2KLink(std::u16string file_name, std::uint64_t file_size, const Hash& hash)
    : file_name_(std::move(file_name)), file_size_(file_size), file_hash_(hash) {
    constexpr std::u16string_view digits = u"0123456789ABCDEF";
    for (const std::byte byte : hash) {
        const auto value = std::to_integer<unsigned>(byte);
        hash_text_ += digits[value / 16];
        hash_text_ += digits[value % 16];
    }
}

bool CED2KLink::parse(std::u16string_view text) {
    std::u16string link(text.substr(0, text.find_first_of(u"\r\n")));
    std::replace(link.begin(), link.end(), u'\\', u'/');
    const auto fields = split_fields(link);
    if (fields.size() < least_fields || !iequals(fields[0], u"ed2k://") || !iequals(fields[1], u"file") ||
        fields[4].size() != hash_digits)
        return false;
    file_name_ = decode_name(fields[2]);
    file_size_ = static_cast<std::uint64_t>(read_size(fields[3]));
    hash_text_ = fields[4];
    for (std::size_t i = 0; i < hash_size; ++i) {
        const int high = std::max(digit_value(hash_text_[2 * i]), 0);
        const int low = std::max(digit_value(hash_text_[2 * i + 1]), 0);
        file_hash_[i] = static_cast<std::byte>(high * 16 + low);
    }
    return true;
}

bool CED2KLink::is_hash_valid() const noexcept {
    return hash_text_.size() == hash_digits &&
           std::all_of(hash_text_.begin(), hash_text_.end(), [](char16_t c) { return digit_value(c) >= 0; });
}

std::u16string CED2KLink::format() const {
    std::string name;
    for (const char c : to_utf8(file_name_)) {
        const auto byte = static_cast<unsigned char>(c);
        if (is_escaped(byte)) {
            name += print("%%%02X", byte);
        } else {
            name += c;
        }
    }
    return u"ed2k://|file|" + to_utf16(name) + u"|" + to_utf16(std::to_string(file_size_)) + u"|" +
           hash_text_ + u"|/";
}

std::string ed2k_server_line(std::string_view address, std::uint16_t port) {
    return "ed2k://|server|" + std::string(address) + "|" + std::to_string(port) + "|/\r\n";
}

}  // namespace vantlow
