// The handshakes that open a tunnel through a connected proxy, and the login that a proxy may ask for.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/log.h"
#include "transfer/connection/stream.h"

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
    /// The text behind "Authorization: " or "Proxy-Authorization: " in the next request; empty: no line.
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

/// The proxy that a connection goes through, as far as this folder needs to know it.
struct ProxyPlan {
    enum : int { direct = 0, socks4 = 4, socks5 = 5, http = 10, http_tunnel = 11 };

    int kind = direct;  ///< any other value than those above is a direct connection too
    std::string host;
    std::uint16_t port = 0;
    std::string user;  ///< in the ANSI code page; empty: none
    std::string password;
    /// Names are turned into addresses here, not by the proxy (SOCKS only).
    bool resolve_here = false;
    /// Not empty: a proxy of some kind is wanted but cannot be used, and this sentence says why. No
    /// connection is made.
    std::string trouble;

    /// Makes the login of one connection with an HTTP proxy; empty: Basic with the user above, once.
    std::function<std::unique_ptr<HttpLogin>()> make_login;

    /// True when there is a proxy at all.
    [[nodiscard]] bool is_used() const noexcept {
        return kind == socks4 || kind == socks5 || kind == http || kind == http_tunnel;
    }
    /// True when requests for such an address go to the proxy itself, in their absolute form.
    [[nodiscard]] bool takes_requests(bool secure) const noexcept { return kind == http && !secure; }
};

/// The target that a proxy is asked to open a tunnel to.
struct TunnelTarget {
    std::uint8_t command = 1;             ///< 1 connect, 2 bind
    std::array<std::uint8_t, 4> ipv4{};   ///< network order; all zero: unknown
    std::array<std::uint8_t, 16> ipv6{};  ///< all zero: absent
    std::string host;                     ///< without brackets; may be empty
    std::uint16_t port = 0;
    bool want_connect = false;  ///< a CONNECT tunnel through a proxy of kind 10 too
    bool close_on_failure = true;
    const char* name_words = "DOMAINNAME";  ///< what the log says of a SOCKS5 request with a name
    /// Of an HTTP proxy; null: Basic with the proxy's user, once. Outlives the handshake.
    HttpLogin* login = nullptr;
};

/// A connected proxy: what a handshake reads and writes. Each wait has the connection's time-out.
class ProxyWire {
  public:
    ProxyWire() = default;
    ProxyWire(const ProxyWire&) = delete;
    ProxyWire& operator=(const ProxyWire&) = delete;
    virtual ~ProxyWire() = default;

    /// All of it, or `transient`.
    virtual Result send(std::span<const std::byte> bytes) = 0;
    /// Exactly that many before `until`; `transient` when the proxy closed or the time passed.
    virtual Result receive(std::span<std::byte> into, Clock::time_point until) = 0;
    /// Appends the next bytes, to the end of a line (an LF) or until there are `most`; what has come stays in
    /// `line` where it fails as receive() does.
    virtual Result receive_line(std::string& line, std::size_t most, Clock::time_point until);
    /// A time-out from now.
    [[nodiscard]] virtual Clock::time_point time_out() const = 0;
};

// Each of these speaks one handshake, byte values logged, so that a person can see where it stopped. `port`
// gets the port that the proxy reports. `transient` when the proxy closed or was silent, `tunnel_refused`
// when the request cannot be made or a repetition will not mend the refusal, else `proxy_refused`.

/// SOCKS4, and SOCKS4a for a name without an address.
Result open_socks4(ProxyWire& wire, LogSink& log, const ProxyPlan& proxy, const TunnelTarget& target,
                   std::uint16_t& port);
/// SOCKS5 (RFC 1928) without authentication or with user name and password (RFC 1929).
Result open_socks5(ProxyWire& wire, LogSink& log, const ProxyPlan& proxy, const TunnelTarget& target,
                   std::uint16_t& port);
/// HTTP CONNECT (RFC 9110, 9.3.6). `login` may be null. Where it has an answer to a refusal and the proxy
/// ended the connection, `again` becomes true: the same once more over a new connection.
Result open_connect(ProxyWire& wire, LogSink& log, const ProxyPlan& proxy, const TunnelTarget& target,
                    HttpLogin* login, bool& again);

}  // namespace vantlow
