#include "base/guid.h"

#include "base/codes.h"
#include "base/text.h"

namespace vantlow {
namespace {

// The places of the bytes in the text.
constexpr std::array<std::size_t, 16> text_order{3, 2, 1, 0, 5, 4, 7, 6, 8, 9, 10, 11, 12, 13, 14, 15};

}  // namespace

std::string guid_text(const Guid& guid) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    text.reserve(36);
    for (std::size_t i = 0; i < text_order.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) text.push_back('-');
        const std::uint8_t byte = guid.bytes[text_order[i]];
        text.push_back(digits[byte >> 4U]);
        text.push_back(digits[byte & 15U]);
    }
    return text;
}

std::optional<std::string> guid_digits(std::string_view text) {
    std::string digits;
    for (const char c : text) {
        const char lower = ascii_lower(c);
        const bool is_digit = (lower >= '0' && lower <= '9') || (lower >= 'a' && lower <= 'f');
        if (is_digit) {
            digits.push_back(lower);
        } else if (c != '-' && c != '{' && c != '}') {
            return std::nullopt;
        }
    }
    if (digits.empty() || digits.size() > 32) return std::nullopt;
    return digits;
}

std::optional<Guid> guid_from_digits(std::string_view digits) {
    const auto bytes = from_hex(digits);
    if (!bytes || bytes->size() != 16) return std::nullopt;
    Guid guid;
    for (std::size_t i = 0; i < text_order.size(); ++i) {
        guid.bytes[text_order[i]] = std::to_integer<std::uint8_t>((*bytes)[i]);
    }
    return guid;
}

}  // namespace vantlow
