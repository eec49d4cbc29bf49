#include "base/text.h"

#include <algorithm>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <type_traits>

namespace vantlow {
namespace {

struct Decoded {
    char32_t point = 0;
    std::size_t length = 0;  // 0: not UTF-8 here
};

bool is_continuation(unsigned char byte) noexcept {
    return (byte & 0xC0U) == 0x80U;
}

// The length that a lead byte announces and the smallest point that may be written so (longer forms are
// refused: they let a separator hide from a check).
struct Lead {
    std::size_t length;
    char32_t bits;
    char32_t smallest;
};

Lead read_lead(unsigned char byte) noexcept {
    if (byte >= 0xC2 && byte <= 0xDF) return {2, byte & 0x1FU, 0x80};
    if (byte >= 0xE0 && byte <= 0xEF) return {3, byte & 0x0FU, 0x800};
    if (byte >= 0xF0 && byte <= 0xF4) return {4, byte & 0x07U, 0x10000};
    return {0, 0, 0};
}

Decoded decode_one(std::string_view bytes) noexcept {
    const auto first = static_cast<unsigned char>(bytes[0]);
    if (first < 0x80) return {first, 1};
    const Lead lead = read_lead(first);
    if (lead.length == 0 || bytes.size() < lead.length) return {};
    char32_t point = lead.bits;
    for (std::size_t i = 1; i < lead.length; ++i) {
        const auto byte = static_cast<unsigned char>(bytes[i]);
        if (!is_continuation(byte)) return {};
        point = (point << 6U) | (byte & 0x3FU);
    }
    const bool surrogate = point >= 0xD800 && point <= 0xDFFF;
    if (point < lead.smallest || point > 0x10FFFF || surrogate) return {};
    return {point, lead.length};
}

void append_utf8(std::string& out, char32_t point) {
    const auto put = [&out](char32_t byte) {
        out.push_back(static_cast<char>(static_cast<unsigned char>(byte)));
    };
    if (point < 0x80) {
        put(point);
    } else if (point < 0x800) {
        put(0xC0U | (point >> 6U));
        put(0x80U | (point & 0x3FU));
    } else if (point < 0x10000) {
        put(0xE0U | (point >> 12U));
        put(0x80U | ((point >> 6U) & 0x3FU));
        put(0x80U | (point & 0x3FU));
    } else {
        put(0xF0U | (point >> 18U));
        put(0x80U | ((point >> 12U) & 0x3FU));
        put(0x80U | ((point >> 6U) & 0x3FU));
        put(0x80U | (point & 0x3FU));
    }
}

template <class Char>
bool same_ignoring_case(std::basic_string_view<Char> a, std::basic_string_view<Char> b) noexcept {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](Char x, Char y) {
               return ascii_lower(x) == ascii_lower(y);
           });
}

int hex_digit(char c) noexcept {
    if (c >= '0' && c <= '9') return c - '0';
    const char low = ascii_lower(c);
    return low >= 'a' && low <= 'f' ? low - 'a' + 10 : -1;
}

std::optional<std::int64_t> parse_number(std::string_view text, int base) noexcept {
    std::int64_t value = 0;
    if (text.empty() || hex_digit(text[0]) < 0) return std::nullopt;  // no sign
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
    return value;
}

// How many dots a segment consists of; 0 where it holds anything else or more than two.
int dots_of(std::string_view segment) noexcept {
    int dots = 0;
    while (!segment.empty() && dots <= 2) {
        const std::size_t size = segment.front() == '.' ? 1 : istarts_with(segment, "%2e") ? 3 : 0;
        if (size == 0) return 0;
        segment.remove_prefix(size);
        ++dots;
    }
    return dots <= 2 ? dots : 0;
}

// How many ASCII units a text begins with. Nearly every text here is ASCII to its end, and such a run is
// converted by one copy instead of unit by unit.
template <class Char>
std::size_t ascii_run(std::basic_string_view<Char> text) noexcept {
    const auto is_ascii = [](Char unit) { return static_cast<std::make_unsigned_t<Char>>(unit) < 0x80; };
    return static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), is_ascii) - text.begin());
}

}  // namespace

std::u16string to_utf16(std::string_view utf8) {
    const std::size_t ascii = ascii_run(utf8);
    std::u16string out(utf8.begin(), utf8.begin() + ascii);
    utf8.remove_prefix(ascii);
    out.reserve(out.size() + utf8.size());
    while (!utf8.empty()) {
        const Decoded next = decode_one(utf8);
        if (next.length == 0) {
            out.push_back(static_cast<char16_t>(0xDC00U + static_cast<unsigned char>(utf8[0])));
            utf8.remove_prefix(1);
            continue;
        }
        if (next.point >= 0x10000) {
            const char32_t offset = next.point - 0x10000;
            out.push_back(static_cast<char16_t>(0xD800U + (offset >> 10U)));
            out.push_back(static_cast<char16_t>(0xDC00U + (offset & 0x3FFU)));
        } else {
            out.push_back(static_cast<char16_t>(next.point));
        }
        utf8.remove_prefix(next.length);
    }
    return out;
}

std::string to_utf8(std::u16string_view text) {
    const std::size_t ascii = ascii_run(text);
    std::string out(ascii, '\0');
    std::transform(text.begin(), text.begin() + ascii, out.begin(),
                   [](char16_t unit) { return static_cast<char>(unit); });
    out.reserve(text.size());
    for (std::size_t i = ascii; i < text.size(); ++i) {
        const char32_t unit = text[i];
        const bool high = unit >= 0xD800 && unit <= 0xDBFF;
        if (high && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) {
            append_utf8(out, 0x10000 + ((unit - 0xD800) << 10U) + (text[i + 1] - 0xDC00U));
            ++i;
        } else if (unit >= 0xDC80 && unit <= 0xDCFF) {
            out.push_back(static_cast<char>(static_cast<unsigned char>(unit - 0xDC00)));
        } else if (unit >= 0xD800 && unit <= 0xDFFF) {
            append_utf8(out, 0xFFFD);
        } else {
            append_utf8(out, unit);
        }
    }
    return out;
}

bool is_utf8(std::string_view bytes) noexcept {
    while (!bytes.empty()) {
        const Decoded next = decode_one(bytes);
        if (next.length == 0) return false;
        bytes.remove_prefix(next.length);
    }
    return true;
}

char ascii_lower(char c) noexcept {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}

char16_t ascii_lower(char16_t c) noexcept {
    return c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c + (u'a' - u'A')) : c;
}

std::string ascii_lower(std::string_view text) {
    std::string out(text);
    for (char& c : out) c = ascii_lower(c);
    return out;
}

bool iequals(std::string_view a, std::string_view b) noexcept {
    return same_ignoring_case(a, b);
}
bool iequals(std::u16string_view a, std::u16string_view b) noexcept {
    return same_ignoring_case(a, b);
}

bool istarts_with(std::string_view text, std::string_view prefix) noexcept {
    return text.size() >= prefix.size() && iequals(text.substr(0, prefix.size()), prefix);
}

bool istarts_with(std::u16string_view text, std::u16string_view prefix) noexcept {
    return text.size() >= prefix.size() && iequals(text.substr(0, prefix.size()), prefix);
}

bool NameLess::operator()(std::u16string_view a, std::u16string_view b) const noexcept {
    return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(), [](char16_t x, char16_t y) {
        return ascii_lower(x) < ascii_lower(y);
    });
}

std::string_view trim(std::string_view text) noexcept {
    const auto first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> pieces;
    for (;;) {
        const auto at = text.find(separator);
        pieces.push_back(text.substr(0, at));
        if (at == std::string_view::npos) return pieces;
        text.remove_prefix(at + 1);
    }
}

std::optional<std::int64_t> parse_decimal(std::string_view text) noexcept {
    return parse_number(text, 10);
}
std::optional<std::int64_t> parse_hexadecimal(std::string_view text) noexcept {
    return parse_number(text, 16);
}

std::string percent_decode(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const int high = text[i] == '%' && i + 2 < text.size() ? hex_digit(text[i + 1]) : -1;
        const int low = high >= 0 ? hex_digit(text[i + 2]) : -1;
        if (low >= 0) {
            out.push_back(static_cast<char>(static_cast<unsigned char>(high * 16 + low)));
            i += 2;
        } else {
            out.push_back(text[i]);
        }
    }
    return out;
}

std::string percent_encode_unsafe(std::string_view text) {
    constexpr std::string_view unsafe = " <>\"{}|\\^`";
    std::string out;
    out.reserve(text.size());
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte <= 0x20 || byte >= 0x7F || unsafe.find(c) != std::string_view::npos) {
            out += print("%%%02X", static_cast<unsigned>(byte));
        } else {
            out.push_back(c);
        }
    }
    return out;
}

std::string remove_dot_segments(std::string_view path) {
    const auto query = std::min(path.find('?'), path.size());
    std::string out;
    std::string_view rest = path.substr(0, query);
    if (!rest.starts_with('/')) {
        const auto end = std::min(rest.find('/'), rest.size());
        const std::string_view first = rest.substr(0, end);
        if (dots_of(first) == 0) out = first;
        rest.remove_prefix(end);
    }
    while (!rest.empty()) {
        const auto end = std::min(rest.find('/', 1), rest.size());
        const std::string_view segment = rest.substr(1, end - 1);
        rest.remove_prefix(end);
        const int dots = dots_of(segment);
        if (dots == 2) out.resize(out.rfind('/') == std::string::npos ? 0 : out.rfind('/'));
        if (dots == 0) {
            out.append("/").append(segment);
        } else if (rest.empty()) {
            out += '/';
        }
    }
    return out.append(path.substr(query));
}

std::string print(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    std::va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, arguments);
    va_end(arguments);
    std::string out(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
    if (length > 0) std::vsnprintf(out.data(), out.size() + 1, format, again);
    va_end(again);
    return out;
}

}  // namespace vantlow
