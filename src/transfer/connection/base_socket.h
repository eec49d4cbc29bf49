// One connection to one server: resolve, connect, tunnel, then bytes; and the plan of a file to be fetched,
// as far as it is the same for all protocols.
#pragma once

#include <any>
#include <memory>
#include <optional>
#include <string>

#include "base/log.h"
#include "runtime/tables.h"
#include "transfer/connection/keepsakes.h"
#include "transfer/connection/pacer.h"
#include "transfer/connection/resolver.h"
#include "transfer/connection/reuse.h"
#include "transfer/connection/server_slots.h"
#include "transfer/connection/tls.h"
#include "transfer/connection/tunnel.h"

namespace vantlow {

/// The services that all connections of the program share. Outlives every connection.
struct ConnectionServices {
    /// Without the TLS library (null) secured connections are refused. Both outlive the object.
    explicit ConnectionServices(const SecurTable* tls_library = nullptr,
                                const TimeSource& time_source = system_time)
        : time(time_source),
          received(Clock::now()),
          sent(Clock::now()),
          resolver(resolve_name, time),
          slots(time),
          tls(tls_library),
          reuse(time) {}

    const TimeSource& time;
    net::SharedTokens
        received;            ///< limits of what all connections receive, in real time; jobs are groups in it
    net::SharedTokens sent;  ///< the same of what is sent to peers of torrents
    Resolver resolver;
    ServerSlots slots;
    TlsEngines tls;
    ReusePool reuse;   // after what its connections hold
    Keepsakes memory;  ///< what the protocols keep
};

/// Everything that opening a connection needs to be told.
struct ConnectPlan {
    std::string scheme;  ///< part of what makes a kept connection the right one
    std::string host;
    std::uint16_t port = 0;
    ProxyPlan proxy;
    std::chrono::milliseconds timeout{60000};  ///< of connecting and of each handshake read
    ServerLimits limits;
    std::optional<TlsPlan> tls;  ///< TLS before the protocol speaks
    bool may_reuse = true;       ///< a connection kept from an earlier request will do
    bool want_connect = false;   ///< a proxy of kind 10 is asked for a tunnel too: for all but HTTP requests
    NetworkWay way;              ///< that the connection is held to
    std::string owner;           ///< whose connection a kept one must be; see HttpLogin::owner()
};

/// The part of a plan that is the same for all protocols.
struct FetchPlan {
    std::u16string address;  ///< where to go
    std::u16string origin;   ///< whose server the credentials below are for; empty: that of `address`
    std::u16string user;
    std::u16string password;
    bool utf8 = true;  ///< how a path's letters beyond ASCII are written: UTF-8, or the ANSI code page
    ProxyPlan proxy;   ///< for `address`
    NetworkWay way;    ///< that all connections are held to
    TlsPlan trust;     ///< for addresses that are secured
    std::chrono::milliseconds timeout{60000};
    ServerLimits limits;
    std::size_t receive_buffer = 64 * 1024;  ///< bytes, where a decoder stands between connection and file
};

/// All of it outlives what is made with it.
struct ConnectionContext {
    ConnectionServices& services;
    const LibraryTables& libraries;
    LogSink& log;
    const StopSource& stop;
    CConnectionNode* node = nullptr;
};

/// Logs why a connection failed: "Socket error = %d." where the system says so, and the sentence.
void log_failure(LogSink& log, const Result& failure);

/// The base of the objects that talk over TCP. Belongs to the one thread that made it.
class CBaseSocket {
  public:
    CBaseSocket(ConnectionServices& services, LogSink& log, const StopSource& stop,
                CConnectionNode* node = nullptr);
    virtual ~CBaseSocket();
    CBaseSocket(const CBaseSocket&) = delete;
    CBaseSocket& operator=(const CBaseSocket&) = delete;

    /// Opens the connection: one kept for reuse where the plan allows it, else a new one through the proxy,
    /// with TLS where the plan asks for it.
    Result open(const ConnectPlan& plan);
    /// Begins TLS on the open connection (after "AUTH TLS", say), within the plan's time-out. Everything goes
    /// through it from then on. On failure, which is logged, the connection is closed: `not_trusted`,
    /// `server_error` when the two sides have nothing in common, `unsupported` without a TLS library,
    /// `transient`.
    Result start_tls(const TlsPlan& tls);
    [[nodiscard]] bool is_secured() const noexcept { return node_ != nullptr && node_->tls != nullptr; }
    /// Secured by a session that an earlier connection began.
    [[nodiscard]] bool is_resumed() const noexcept { return is_secured() && node_->tls->is_resumed(); }
    /// Ends it. `keep` when the last answer was read whole and the server wants to go on: the connection is
    /// kept for the next request to the same server.
    void close(bool keep = false);
    /// The connection has become what this plan asks for (its owner logged in): kept for no other.
    void claim(const ConnectPlan& plan);
    [[nodiscard]] bool is_open() const noexcept { return node_ != nullptr; }
    /// True when open() took a kept connection: the server may have closed it a moment ago.
    [[nodiscard]] bool is_reused() const noexcept { return reused_; }

    /// The next bytes, at the pace of the speed limit.
    Moved receive(std::span<std::byte> into, Clock::time_point until) { return paced_->read(into, until); }
    /// The same past the program's memory, where nothing below needs to see the bytes: see ByteSource.
    [[nodiscard]] bool can_fill() const noexcept { return paced_ && paced_->can_fill(); }
    Moved fill(Conduit& conduit, std::size_t most, Clock::time_point until) {
        return paced_->fill(conduit, most, until);
    }
    /// Sends the whole buffer or fails.
    Result send_all(std::span<const std::byte> bytes);
    /// Reads exactly that many bytes within the time-out, or before `until`; `transient` when the peer closed
    /// or the time passed.
    Result receive_exactly(std::span<std::byte> into) { return receive_exactly(into, from_now(timeout_)); }
    Result receive_exactly(std::span<std::byte> into, Clock::time_point until);
    Result receive_byte(std::byte& into) { return receive_exactly({&into, 1}); }

    /// Takes over a connection that the other side opened. `timeout` is that of each send.
    void adopt(TcpSocket socket, std::chrono::milliseconds timeout);
    /// A protocol's notes, remembered while the connection is open, also when it is kept for reuse;
    /// empty at first.
    [[nodiscard]] std::any& notes() noexcept { return node_->notes; }
    /// This end and the other end (a proxy, where one stands between); none without a connection.
    [[nodiscard]] std::optional<SocketAddress> local_address() const;
    [[nodiscard]] std::optional<SocketAddress> peer_address() const;

  protected:
    /// Opens a tunnel through the connected proxy before the protocol speaks. `port` gets the port that the
    /// proxy reports. A direct connection, and a proxy that needs no tunnel, are a success at once. Failures:
    /// see tunnel.h; the connection is closed then where the target says so.
    virtual Result tunnel(const ProxyPlan& proxy, const TunnelTarget& target, std::uint16_t& port);

    LogSink& log() noexcept { return log_; }

  private:
    Result take_slot(const std::string& server, const ServerLimits& limits, ServerSlots::Slot& slot);
    Result connect_new(const ConnectPlan& plan, HttpLogin* login);
    Outcome<std::vector<SocketAddress>> resolve(const std::string& host, std::uint16_t port,
                                                const NetworkWay& way);
    Result open_tunnel(const ConnectPlan& plan, HttpLogin* login);
    void use(std::unique_ptr<CReuseNode> node);
    void begin_pacing();

    ConnectionServices& services_;
    LogSink& log_;
    const StopSource& stop_;
    CConnectionNode* const pace_;
    std::chrono::milliseconds timeout_{60000};
    std::string host_;  ///< that the connection was opened to, and its port
    std::uint16_t port_ = 0;
    bool reused_ = false;
    bool tunnel_again_ = false;  ///< the last tunnel failed, and may succeed over a new connection
    std::unique_ptr<CReuseNode> node_;
    std::optional<PacedStream> paced_;  // reads from node_
};

}  // namespace vantlow
