// Names that came from elsewhere, made safe as one file name on both systems.
#pragma once

#include <string>
#include <string_view>

namespace vantlow {

/// What stands behind the name of a file that is not finished, and behind that of its state.
inline constexpr std::u16string_view partial_suffix = u".vantlow";
inline constexpr std::u16string_view state_suffix = u".vantlow-job";

/// A name that is one file in the chosen folder on Windows and on Linux, whatever it was: the part behind the
/// last separator, without control characters, drive letters and alternate streams (":"), characters that
/// Windows refuses, trailing dots and blanks; reserved device names and names that
/// begin with a dot get a "_" in front; at most 200 UTF-8
/// bytes and 200 UTF-16 units, the extension kept when the name is cut; a "_" behind a name that would be an
/// unfinished file's or its state's. Never empty, "." or "..": `otherwise` stands in for a name of which
/// nothing is left.
std::u16string safe_file_name(std::u16string_view name, std::u16string_view otherwise = u"index");

}  // namespace vantlow
