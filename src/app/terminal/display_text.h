// Text for a terminal: made harmless, measured in columns, shortened; sizes, speeds and times for a person.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vantlow {

/// The text with a `?` for each character that moves the cursor, commands the terminal or turns the direction
/// of writing round, and for each byte that is not UTF-8. Emoji lose their joiners and variants: terminals
/// disagree about the columns of such sequences.
std::string printable(std::string_view text);

/// The columns of a text that printable() made.
int display_width(std::string_view text);

/// The printable text in at most `columns` columns: where it is too long, "…" stands for its middle, so that
/// the beginning and the extension stay.
std::string shorten(std::string_view text, int columns);

/// "1.4 GiB", at most 8 columns; "--" for a negative number.
std::string human_size(std::int64_t bytes);

/// "12.3 MiB/s", at most 10 columns; "--" where nothing moves.
std::string human_speed(double bytes_per_second);

/// "0:42", "1:02:03", from a hundred hours on "5d 04h", at most 8 columns; "--" for a negative number and for
/// more than 999 days.
std::string human_time(std::int64_t seconds);

/// "2026-11-25T17:05:09Z" (ISO 8601) from seconds since 1970.
std::string iso_time(std::int64_t seconds);

}  // namespace vantlow
