// File names: those that came from elsewhere made safe on both systems, free ones, those of unfinished files.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace vantlow {

/// The suffixes of a file that is not finished, and of its state.
inline constexpr std::u16string_view partial_suffix = u".vantlow";
inline constexpr std::u16string_view state_suffix = u".vantlow-job";
/// The suffix of a file whose hash is not the one that was asked for.
inline constexpr std::u16string_view wrong_hash_suffix = u".wrong-hash";

/// A name that is one file in the chosen folder on Windows and on Linux, whatever it was: the part behind the
/// last separator, without control characters, drive letters and alternate streams (":"), characters that
/// Windows refuses, trailing dots and blanks; reserved device names and names that begin with a dot get a "_"
/// in front; at most 200 UTF-8 bytes and 200 UTF-16 units, the extension kept when the name is cut; a "_"
/// behind a name that ends in one of the suffixes above. Never empty, "." or "..": `otherwise` stands in for
/// a name of which nothing is left.
std::u16string safe_file_name(std::u16string_view name, std::u16string_view otherwise = u"index");

/// A free name for `name`: "(N)" between base name and extension, N from 1 on, or from the number that the
/// base name already ends in. `is_taken` tells which names are not free.
std::u16string free_name(std::u16string_view name,
                         const std::function<bool(const std::u16string&)>& is_taken);

}  // namespace vantlow
