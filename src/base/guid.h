// 16-byte identities.
#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>

namespace vantlow {

/// A GUID as the 16 bytes that lie in the job database.
struct Guid {
    std::array<std::uint8_t, 16> bytes{};

    auto operator<=>(const Guid&) const = default;
    [[nodiscard]] bool is_zero() const noexcept { return *this == Guid{}; }
    /// The GUID whose bytes, read as two little-endian 64-bit numbers, are these.
    static Guid from_numbers(std::uint64_t first, std::uint64_t second) noexcept {
        Guid guid;
        for (std::size_t i = 0; i < 8; ++i) {
            guid.bytes[i] = static_cast<std::uint8_t>(first >> (8 * i));
            guid.bytes[8 + i] = static_cast<std::uint8_t>(second >> (8 * i));
        }
        return guid;
    }
};

}  // namespace vantlow
