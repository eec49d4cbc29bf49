// Numbers in network order (most significant byte first), as the messages of peers and UDP trackers hold them
// (BEP 3, BEP 15).
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace vantlow {

/// Appends the number to the bytes.
template <std::unsigned_integral Number>
void put_number(std::string& bytes, Number value) {
    for (std::size_t i = sizeof value; i-- > 0;)
        bytes += static_cast<char>((std::uint64_t{value} >> (8 * i)) & 0xFFU);
}

/// Reads the number at an offset; the caller has made sure that all of its bytes exist.
template <std::unsigned_integral Number>
Number get_number(std::string_view bytes, std::size_t offset) noexcept {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < sizeof(Number); ++i) {
        value = value << 8U | static_cast<unsigned char>(bytes[offset + i]);
    }
    return static_cast<Number>(value);
}

}  // namespace vantlow
