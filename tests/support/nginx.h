// A real web server for tests, where there is one.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "support/temp_folder.h"
#include "support/unix_server.h"

namespace vantlow::test {

/// nginx on a free port, with everything that it writes in a temporary folder. Tests begin with: if
/// (!Nginx::available()) GTEST_SKIP() << Nginx::missing;
class Nginx {
  public:
    static constexpr const char* missing = "nginx is not installed on this system";
    static bool available();

    /// Begins with an empty document folder and the server block's further lines, for example
    /// "gzip on; gzip_types *; location /limited/ { limit_rate 100k; }"; "{{documents}}" in them stands for
    /// the document folder. Throws std::runtime_error when it does not start.
    explicit Nginx(std::string_view server_lines = {}, std::string_view http_lines = {});

    /// Puts a file into the document folder; `name` may not hold a separator.
    void put(std::u16string_view name, std::string_view bytes) const;
    [[nodiscard]] const TempFolder& documents() const noexcept { return documents_; }
    [[nodiscard]] std::uint16_t port() const noexcept { return server_->port(); }
    [[nodiscard]] std::string url(std::string_view path) const;
    [[nodiscard]] std::u16string url16(std::string_view path) const;

  private:
    TempFolder documents_;
    std::unique_ptr<UnixServer> server_;
};

}  // namespace vantlow::test
