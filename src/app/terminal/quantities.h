// Rates and spans of time as a person writes them.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string_view>

namespace vantlow {

/// Bytes a second from "131072", "500K", "1.5M", "2MB", "1 GiB/s" without the blank: digits, for a unit (K,
/// M, G, T: powers of 1024) also with a fraction, rounded down. Case does not matter. "0" is 0; none for
/// anything else that is less than a byte, for what is too large and for what is no rate.
std::optional<std::int64_t> parse_rate(std::string_view text) noexcept;

/// "90s", "5m", "2h", "1d", and "0"; at most 100 years. None for anything else.
std::optional<std::chrono::seconds> parse_span(std::string_view text) noexcept;

}  // namespace vantlow
