// Paths of addresses (RFC 3986).
#pragma once

#include <string>
#include <string_view>

namespace vantlow {

/// A path without its dot segments (RFC 3986, 5.2.4): "/a/./b/../c" is "/a/c", and nothing climbs above the
/// root. A dot that is written "%2E" is one (6.2.2.3). A query ("?") stays as it is.
std::string remove_dot_segments(std::string_view path);

}  // namespace vantlow
