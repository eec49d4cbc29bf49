// Paths on their way to the system, and the folder in which sockets and locks of the running session stand.
#pragma once

#include <string>

#include "base/text.h"

namespace vantlow {

/// A path in the form that the system takes, UTF-8. A zero character inside would cut it, so such a path
/// names nothing.
class NativePath {
  public:
    explicit NativePath(const std::u16string& path) : text_(to_utf8(path)) {
        if (text_.find('\0') != std::string::npos) text_.clear();
    }
    /// Ended by a zero; valid while the object lives.
    [[nodiscard]] const char* get() const noexcept { return text_.c_str(); }

  private:
    std::string text_;
};

/// The program's folder in the user's run-time folder ($XDG_RUNTIME_DIR), else "/tmp/vantlow-UID". It is
/// made, for this user alone, where it is missing. Empty, with a sentence in `error`, when it belongs to
/// somebody else, other users may look into it, or it cannot be made. No path of it is longer than 83 bytes,
/// so that a socket's name of 24 bytes still fits behind it.
std::string runtime_folder(std::string& error);

}  // namespace vantlow
