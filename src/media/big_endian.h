// Numbers in network order, as FLV, AMF0 and MP4 have them.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>

#include "base/mem_file.h"

namespace vantlow {

/// The number of `count` bytes (at most 8) at `bytes`, which must be there.
inline std::uint64_t load_big(const std::byte* bytes, std::size_t count) noexcept {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < count; ++i) value = value << 8U | std::to_integer<std::uint64_t>(bytes[i]);
    return value;
}
inline std::uint16_t load_u16(const std::byte* bytes) noexcept {
    return static_cast<std::uint16_t>(load_big(bytes, 2));
}
inline std::uint32_t load_u24(const std::byte* bytes) noexcept {
    return static_cast<std::uint32_t>(load_big(bytes, 3));
}
inline std::uint32_t load_u32(const std::byte* bytes) noexcept {
    return static_cast<std::uint32_t>(load_big(bytes, 4));
}
inline std::uint64_t load_u64(const std::byte* bytes) noexcept {
    return load_big(bytes, 8);
}
/// IEEE 754, double.
inline double load_double(const std::byte* bytes) noexcept {
    return std::bit_cast<double>(load_u64(bytes));
}

/// Stores the lowest `count` bytes (at most 8) of the number.
inline void store_big(std::byte* bytes, std::uint64_t value, std::size_t count) noexcept {
    for (std::size_t i = count; i > 0; --i, value >>= 8U) bytes[i - 1] = static_cast<std::byte>(value);
}

/// Appends the lowest `count` bytes (at most 8) of the number to a stream.
inline void put_big(CQoMemFile& stream, std::uint64_t value, std::size_t count) {
    std::byte bytes[8];
    store_big(bytes, value, count);
    stream.write(std::span(bytes, count));
}
inline void put_double(CQoMemFile& stream, double value) {
    put_big(stream, std::bit_cast<std::uint64_t>(value), 8);
}

}  // namespace vantlow
