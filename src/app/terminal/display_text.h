// Text for a terminal: made harmless, measured in columns, shortened.
#pragma once

#include <string>
#include <string_view>

namespace vantlow {

/// Returns the text (UTF-8) with a `?` for each character that moves the cursor, commands the terminal or
/// turns the direction of writing round, and for each byte that is not UTF-8. Emoji lose their joiners and
/// variants, since terminals disagree about the columns of such sequences.
std::string printable(std::string_view text);

/// Returns the columns of a text that printable() made.
int display_width(std::string_view text);

/// Returns the printable text in at most `columns` columns. Where it is too long, "…" stands for its middle,
/// so that its beginning and its extension stay.
std::string shorten(std::string_view text, int columns);

/// Returns the columns that one character takes: 0 for characters that stand on the one before them
/// (combining marks, format characters), 2 for wide East Asian ones and emoji (UAX #11), 1 for all others.
/// Characters of ambiguous width count as narrow. Control characters have no columns of their own: the caller
/// keeps them away.
int columns_of(char32_t character) noexcept;

}  // namespace vantlow
