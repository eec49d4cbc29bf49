// Text: UTF-16 in memory, UTF-8 towards logs, terminals and the wire; words of protocols; escapes and dot
// segments of addresses.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vantlow {

/// UTF-8 to UTF-16. Bytes that are not UTF-8 become lone surrogates U+DC80..U+DCFF (one a byte), so that
/// to_utf8 gives the same bytes back: a file name of any kind survives the way through the program.
std::u16string to_utf16(std::string_view utf8);

/// UTF-16 to UTF-8, the reverse of to_utf16. Other lone surrogates become U+FFFD.
std::string to_utf8(std::u16string_view text);

/// True when the bytes are well-formed UTF-8 (no overlong forms, no surrogates, at most U+10FFFF).
bool is_utf8(std::string_view bytes) noexcept;

// ASCII only: letters outside A-Z are left alone, whatever the locale says.
char ascii_lower(char c) noexcept;
char16_t ascii_lower(char16_t c) noexcept;
std::string ascii_lower(std::string_view text);
bool iequals(std::string_view a, std::string_view b) noexcept;
bool iequals(std::u16string_view a, std::u16string_view b) noexcept;
bool istarts_with(std::string_view text, std::string_view prefix) noexcept;
bool istarts_with(std::u16string_view text, std::u16string_view prefix) noexcept;
/// An order of names, for containers; names that differ in letter case only are equal in it.
struct NameLess {
    using is_transparent = void;
    bool operator()(std::u16string_view a, std::u16string_view b) const noexcept;
};

/// The text without blanks and tabs at its ends.
std::string_view trim(std::string_view text) noexcept;

/// The pieces between the separators; empty pieces are kept, an empty text is one empty piece.
std::vector<std::string_view> split(std::string_view text, char separator);

/// The whole text as a decimal number without sign, blanks or anything else; none when it is not one or too
/// large.
std::optional<std::int64_t> parse_decimal(std::string_view text) noexcept;

/// The whole text as a hexadecimal number, digits only; none when it is not one or too large.
std::optional<std::int64_t> parse_hexadecimal(std::string_view text) noexcept;

/// Replaces %XX by the byte it names; a % that no two hexadecimal digits follow stays as it is (RFC
/// 3986, 2.1).
std::string percent_decode(std::string_view text);

/// Replaces blanks, control bytes, non-ASCII bytes and the characters <>"{}|\^` by %XX, leaving everything
/// that an address may hold, existing escapes included, as it is.
std::string percent_encode_unsafe(std::string_view text);

/// A path without its dot segments (RFC 3986, 5.2.4): "/a/./b/../c" is "/a/c", and nothing climbs above the
/// root. A dot that is written "%2E" is one (6.2.2.3). A query ("?") stays as it is.
std::string remove_dot_segments(std::string_view path);

/// printf-style text, as the program's messages are written. The format is checked by the compiler.
#if defined(__clang__)
[[gnu::format(printf, 1, 2)]]
#else
[[gnu::format(gnu_printf, 1, 2)]]  // the same everywhere, whatever the system's own printf knows
#endif
std::string
print(const char* format, ...);

}  // namespace vantlow
