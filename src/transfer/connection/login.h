// A login with an HTTP server or proxy, as far as a connection has to know it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vantlow {

/// The side of a login that makes answers to challenges. One for each request (its repetitions included);
/// used by one thread.
class HttpLogin {
  public:
    HttpLogin() = default;
    HttpLogin(const HttpLogin&) = delete;
    HttpLogin& operator=(const HttpLogin&) = delete;
    virtual ~HttpLogin() = default;

    /// A connection was opened. `kept` when it is one of an earlier request by the same user.
    virtual void connected(bool kept) = 0;
    /// What stands behind "Authorization: " or "Proxy-Authorization: " in the next request; empty: no line.
    /// `target` is the request's, as it stands in its first line or names its resource.
    virtual std::string line(std::string_view method, std::string_view target) = 0;
    /// The same for the log, without what must not stand there.
    [[nodiscard]] virtual std::string shown() const = 0;
    /// The answer was 401 or 407 with these "...-Authenticate" values. True when the request is to be made
    /// again; `kept` tells whether on the same connection.
    virtual bool challenged(const std::vector<std::string>& fields, bool kept) = 0;
    /// The answer was another one: what was sent last works.
    virtual void accepted() = 0;
    /// Where the login is the connection's and not the request's (NTLM): whose, so that the connection is
    /// kept for nobody else. Holds no secret; empty for all other logins.
    [[nodiscard]] virtual std::string owner() const = 0;
    /// Why challenged() said no, for a person; may be empty.
    [[nodiscard]] virtual std::string trouble() const = 0;
};

}  // namespace vantlow
