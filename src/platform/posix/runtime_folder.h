// Where sockets and locks of the running session stand.
#pragma once

#include <string>

namespace vantlow {

/// The program's folder in the user's run-time folder ($XDG_RUNTIME_DIR), else "/tmp/vantlow-UID": made for
/// this user alone where it is missing. Empty, with a sentence in `error`, when it belongs to somebody else
/// or cannot be made.
std::string runtime_folder(std::string& error);

}  // namespace vantlow
