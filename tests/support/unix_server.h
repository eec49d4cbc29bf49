// Server programs of a Unix system, natively and below Wine.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "support/temp_folder.h"
#include "support/unix_program.h"

namespace vantlow::test {

class RunningProgram;

/// A server as a child process that listens on a free port of this machine, with a folder for what it reads
/// and writes. Ended by its id when the object ends.
class UnixServer {
  public:
    /// What it is started with, for a port: the configuration is written into the folder here.
    using Arguments =
        std::function<std::vector<std::u16string>(const TempFolder& folder, std::uint16_t port)>;
    struct Options {
        std::uint16_t port = 0;  ///< 0: a free one
        std::string host = "127.0.0.1";
        std::u16string run_folder{};  ///< its working folder; empty: folder()
        std::vector<std::pair<std::string, std::u16string>> environment{};  ///< added to the test's own
    };

    /// Throws std::runtime_error when it does not listen within ten seconds.
    UnixServer(const std::u16string& program, const Arguments& arguments, const Options& options);
    UnixServer(const std::u16string& program, const Arguments& arguments)
        : UnixServer(program, arguments, Options()) {}
    ~UnixServer();
    UnixServer(const UnixServer&) = delete;
    UnixServer& operator=(const UnixServer&) = delete;

    [[nodiscard]] std::uint16_t port() const noexcept { return port_; }
    [[nodiscard]] const TempFolder& folder() const noexcept { return folder_; }
    /// What it wrote to its standard streams.
    [[nodiscard]] std::string output() const;

  private:
    TempFolder folder_;
    std::uint16_t port_ = 0;
    std::unique_ptr<RunningProgram> program_;
};

/// Waits until a program that was started accepts connections; false where it ends or takes too long.
bool wait_until_it_accepts(RunningProgram& program, std::uint16_t port,
                           const std::string& host = "127.0.0.1");

}  // namespace vantlow::test
