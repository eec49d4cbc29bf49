// A real web server for tests, where there is one.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "support/process_run.h"
#include "support/temp_folder.h"

namespace vantlow::test {

/// nginx as a child process on a free port, with everything that it writes in a temporary folder. Ended by
/// its id when the object ends. Tests begin with: if (!Nginx::available()) GTEST_SKIP() << Nginx::missing;
class Nginx {
  public:
    static constexpr const char* missing = "nginx is not installed on this system";
    static bool available();

    /// Begins with an empty document folder and the server block's further lines, for example
    /// "gzip on; gzip_types *; location /limited/ { limit_rate 100k; }"; "{{documents}}" in them stands for
    /// the document folder. Throws std::runtime_error when it does not start.
    explicit Nginx(std::string_view server_lines = {}, std::string_view http_lines = {});
    ~Nginx();
    Nginx(const Nginx&) = delete;
    Nginx& operator=(const Nginx&) = delete;

    /// Puts a file into the document folder; `name` may not hold a separator.
    void put(std::u16string_view name, std::string_view bytes) const;
    [[nodiscard]] const TempFolder& documents() const noexcept { return documents_; }
    [[nodiscard]] std::uint16_t port() const noexcept { return port_; }
    [[nodiscard]] std::string url(std::string_view path) const;
    [[nodiscard]] std::u16string url16(std::string_view path) const;
    /// What it wrote to its error log.
    [[nodiscard]] std::string error_log() const;

  private:
    [[nodiscard]] std::string configuration(std::string_view server_lines, std::string_view http_lines) const;
    [[nodiscard]] bool wait_until_it_accepts();
    void end();

    TempFolder prefix_;
    TempFolder documents_;
    std::uint16_t port_ = 0;
    std::unique_ptr<RunningProgram> program_;
};

}  // namespace vantlow::test
