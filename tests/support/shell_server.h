// Server programs of a Unix system, also below Wine.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "support/unix_shell.h"

namespace vantlow::test {

/// A program that listens on a free port of 127.0.0.1. Ended with the object.
class ShellServer {
  public:
    /// `command`: one simple command for a port, whose working folder is `folder`; configurations are written
    /// there. Throws std::runtime_error when it does not listen.
    ShellServer(const TempFolder& folder, const std::function<std::string(std::uint16_t port)>& command);

    [[nodiscard]] std::uint16_t port() const noexcept { return port_; }

  private:
    std::uint16_t port_ = 0;
    std::unique_ptr<ShellProgram> program_;
};

/// Another home folder for this process, as long as the object lives.
class OtherHome {
  public:
    OtherHome();
    ~OtherHome();
    OtherHome(const OtherHome&) = delete;
    OtherHome& operator=(const OtherHome&) = delete;

    [[nodiscard]] const TempFolder& folder() const noexcept { return folder_; }

  private:
    TempFolder folder_;
    std::u16string before_;
};

}  // namespace vantlow::test
