// Sizes, rates, spans and moments as people and programs read and write them.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vantlow {

/// Reads bytes a second from "131072", "500K", "1.5M", "2MB" or "1GiB/s": digits, with a unit (K, M, G, T:
/// powers of 1024) also with a fraction, rounded down. Case does not matter. "0" is 0. None for anything else
/// that is less than a byte, for numbers that are too large, and for texts that are no rate.
std::optional<std::int64_t> parse_rate(std::string_view text) noexcept;

/// Reads "90s", "5m", "2h", "1d", and "0"; at most 100 years. None for anything else.
std::optional<std::chrono::seconds> parse_span(std::string_view text) noexcept;

/// Writes a size: "1.4 GiB", at most 8 columns; "--" for a negative number.
std::string human_size(std::int64_t bytes);

/// Writes a speed: "12.3 MiB/s", at most 10 columns; "--" where nothing moves.
std::string human_speed(double bytes_per_second);

/// Writes a span: "0:42", "1:02:03", from a hundred hours on "5d 04h", at most 8 columns; "--" for a negative
/// number and for more than 999 days.
std::string human_time(std::int64_t seconds);

/// Writes a moment, in seconds since 1970, for programs: "2026-11-25T17:05:09Z" (ISO 8601, UTC).
std::string iso_time(std::int64_t seconds);

/// Writes a moment, in milliseconds since 1970, for programs: "2026-11-25T17:05:09.042Z".
std::string iso_time_with_milliseconds(std::int64_t milliseconds);

/// Writes a moment, in seconds since 1970, for people, in the local time: "2026-11-25 18:05:09"; "--" for
/// none (0 or less). Only for the thread that runs the commands.
std::string local_time(std::int64_t seconds);

}  // namespace vantlow
