// The cookies that the system's own browser component keeps.
#pragma once

#include <string>

namespace vantlow {

/// The cookies for an address, "name=value; name=value"; empty where there are none and on systems that keep
/// none.
std::u16string system_cookies(const std::u16string& address);

}  // namespace vantlow
