// Paths on their way to the system.
#pragma once

#include <string>

#include "base/text.h"

namespace vantlow {

/// A path as the system takes it. A zero inside would cut it: such a path names nothing.
class NativePath {
  public:
    explicit NativePath(const std::u16string& path) : text_(to_utf8(path)) {
        if (text_.find('\0') != std::string::npos) text_.clear();
    }
    [[nodiscard]] const char* get() const noexcept { return text_.c_str(); }

  private:
    std::string text_;
};

}  // namespace vantlow
