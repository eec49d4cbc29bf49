// Bytes as text: hexadecimal and Base64.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vantlow {

/// Two lower-case hexadecimal digits a byte.
std::string to_hex(std::span<const std::byte> bytes);

/// The bytes that an even number of hexadecimal digits (either case) stands for; none for any other text.
std::optional<std::vector<std::byte>> from_hex(std::string_view digits);

/// RFC 4648 Base64 with the standard alphabet and padding.
std::string to_base64(std::string_view bytes);

/// The bytes that Base64 text stands for, its padding there or not; none for any other text.
std::optional<std::vector<std::byte>> from_base64(std::string_view text);

}  // namespace vantlow
