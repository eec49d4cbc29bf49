// An FTP server that behaves as a test tells it to.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "support/scripted_server.h"

namespace vantlow::test {

/// Serves one file under every name, on control connections with data connections beside them. Commands are
/// answered as a server of 1985 with RFC 3659 would, unless the test has put other answers in.
class FakeFtp {
  public:
    struct Rules {
        std::string content{};
        /// Answers in place of the usual ones, by command word or whole command; each may hold several lines.
        /// "" says nothing at all, "!" closes the control connection.
        std::map<std::string, std::string> answers{};
        std::string welcome = "220 Ready";
        std::int64_t rate = 0;          ///< bytes a second of each transfer; 0: all at once
        std::int64_t cut_after = -1;    ///< closes each data connection after so many bytes, and says 426
        bool silent_cut = false;        ///< ... and closes the control connection instead
        bool shift = false;             ///< takes REST but begins at 0
        bool restless = false;          ///< MDTM tells another time at each question
        std::string passive_host{};     ///< announced in PASV ("10,0,0,1"); empty: 127.0.0.1
        int most_logins = 0;            ///< further logins get a 421; 0: no limit
        std::size_t bytes_at_once = 0;  ///< replies come in pieces of this size; 0: whole
    };

    /// At that port; 0: a free one.
    explicit FakeFtp(Rules rules, bool ipv6 = false, std::uint16_t port = 0);

    [[nodiscard]] std::string url(std::string_view path = "/file.bin", std::string_view login = {}) const;
    [[nodiscard]] std::u16string url16(std::string_view path = "/file.bin",
                                       std::string_view login = {}) const;
    /// Every command of every control connection, in the order in which they came.
    [[nodiscard]] std::vector<std::string> commands() const;
    /// How many of them begin with this.
    [[nodiscard]] std::size_t count(std::string_view beginning) const;
    [[nodiscard]] ScriptedServer& server() noexcept { return *server_; }

  private:
    class Session;
    void serve(Exchange& exchange);

    Rules rules_;
    bool ipv6_;
    mutable std::mutex mutex_;
    std::vector<std::string> commands_;  ///< guarded by mutex_, like logins_
    int logins_ = 0;
    std::atomic<int> asked_times_{0};
    std::unique_ptr<ScriptedServer> server_;  ///< last: its threads use what is above
};

}  // namespace vantlow::test
