#include "base/codes.h"

#include <algorithm>

#include "base/text.h"

namespace vantlow {
namespace {

constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

}  // namespace

std::string to_hex(std::span<const std::byte> bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string out;
    out.reserve(bytes.size() * 2);
    for (const std::byte b : bytes) {
        const auto value = std::to_integer<unsigned>(b);
        out.push_back(digits[value >> 4U]);
        out.push_back(digits[value & 15U]);
    }
    return out;
}

std::optional<std::vector<std::byte>> from_hex(std::string_view digits) {
    if (digits.size() % 2 != 0) return std::nullopt;
    std::vector<std::byte> out;
    out.reserve(digits.size() / 2);
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        const auto value = parse_hexadecimal(digits.substr(i, 2));
        if (!value) return std::nullopt;
        out.push_back(static_cast<std::byte>(*value));
    }
    return out;
}

std::string to_base64(std::string_view bytes) {
    std::string out;
    out.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const std::size_t have = std::min<std::size_t>(3, bytes.size() - i);
        unsigned group = 0;
        for (std::size_t k = 0; k < 3; ++k) {
            group = (group << 8U) | (k < have ? static_cast<unsigned char>(bytes[i + k]) : 0U);
        }
        for (std::size_t k = 0; k < 4; ++k) {
            out.push_back(k <= have ? alphabet[(group >> (18U - 6U * static_cast<unsigned>(k))) & 63U] : '=');
        }
    }
    return out;
}

std::optional<std::vector<std::byte>> from_base64(std::string_view text) {
    while (text.ends_with('=')) text.remove_suffix(1);
    std::vector<std::byte> bytes;
    std::uint32_t bits = 0;
    unsigned count = 0;
    for (const char c : text) {
        const auto value = alphabet.find(c);
        if (value == std::string_view::npos) return std::nullopt;
        bits = bits << 6U | static_cast<std::uint32_t>(value);
        count += 6;
        if (count < 8) continue;
        count -= 8;
        bytes.push_back(static_cast<std::byte>(bits >> count & 0xFFU));
    }
    if (count >= 6) return std::nullopt;  // one character stands for nothing
    return bytes;
}

}  // namespace vantlow
