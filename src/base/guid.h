// 16-byte identities.
#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace vantlow {

/// A GUID as the 16 bytes that lie in the job database.
struct Guid {
    std::array<std::uint8_t, 16> bytes{};

    auto operator<=>(const Guid&) const = default;  // NOLINT(modernize-use-nullptr): its own zero
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

/// The usual text of a GUID, "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx" in lower case; the first three groups are
/// little-endian numbers in the bytes, as on Windows.
std::string guid_text(const Guid& guid);

/// The text without what people write differently: lower case, no braces, no hyphens. None when something
/// else than up to 32 hexadecimal digits is left.
std::optional<std::string> guid_digits(std::string_view text);

/// The GUID of 32 digits in the order of guid_text(); none for fewer.
std::optional<Guid> guid_from_digits(std::string_view digits);

/// For unordered containers.
struct GuidHash {
    std::size_t operator()(const Guid& guid) const noexcept {
        return std::hash<std::string_view>{}({reinterpret_cast<const char*>(guid.bytes.data()), 16});
    }
};

}  // namespace vantlow
