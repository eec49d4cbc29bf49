// How many columns of a terminal a character takes.
#pragma once

namespace vantlow {

/// 0 for characters that stand on the one before them (combining marks, format characters), 2 for wide East
/// Asian ones and emoji (UAX #11), 1 for all others; characters of ambiguous width count as narrow. Control
/// characters have no columns of their own: the caller keeps them away.
int columns_of(char32_t character) noexcept;

}  // namespace vantlow
