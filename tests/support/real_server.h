// Real servers and proxies for tests, where they are installed.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "support/temp_folder.h"

namespace vantlow::test {

class RunningProgram;

/// The full path of a program in the system's usual places; empty when it is not there, and on Windows.
std::u16string installed_program(std::u16string_view name);

/// Runs a program to its end; its exit status.
int run_installed(const std::u16string& program, const std::vector<std::u16string>& arguments);

/// A server as a child process that listens on a free port of 127.0.0.1, with a folder for what it reads and
/// writes. Ended by its id when the object ends.
class RealServer {
  public:
    /// What it is started with, for a port: the configuration is written into the folder here.
    using Arguments =
        std::function<std::vector<std::u16string>(const TempFolder& folder, std::uint16_t port)>;

    /// At this port, or a free one. Throws std::runtime_error when it does not listen within ten seconds.
    RealServer(const std::u16string& program, const Arguments& arguments, std::uint16_t port = 0);
    ~RealServer();
    RealServer(const RealServer&) = delete;
    RealServer& operator=(const RealServer&) = delete;

    [[nodiscard]] std::uint16_t port() const noexcept { return port_; }
    [[nodiscard]] const TempFolder& folder() const noexcept { return folder_; }

  private:
    [[nodiscard]] bool wait_until_it_accepts();

    TempFolder folder_;
    std::uint16_t port_ = 0;
    std::unique_ptr<RunningProgram> program_;
};

}  // namespace vantlow::test
