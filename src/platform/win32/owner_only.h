// Who may open a new file.
#pragma once

#include <memory>

#include "platform/win32/native.h"

namespace vantlow {

/// The security of a file that its owner alone may open; made when it is wanted.
class OwnerOnly {
  public:
    explicit OwnerOnly(bool wanted);

    [[nodiscard]] bool ok() const noexcept { return error_.ok(); }
    [[nodiscard]] FileError error() const noexcept { return error_; }
    /// What CreateFileW takes; null for the system's default.
    [[nodiscard]] SECURITY_ATTRIBUTES* attributes() const noexcept { return attributes_.get(); }

  private:
    FileError error_;
    std::unique_ptr<void, HLOCAL (*)(HLOCAL)> descriptor_;
    std::unique_ptr<SECURITY_ATTRIBUTES> attributes_;
};

}  // namespace vantlow
