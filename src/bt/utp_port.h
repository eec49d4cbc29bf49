// Connections to peers over datagrams (uTP, BEP 29).
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "bt/ip_filter.h"
#include "net/network.h"
#include "runtime/tables.h"

namespace vantlow {

class UtpStream;

/// uTP at a UDP port of both kinds of addresses, over `libBTDHT`. Its streams are as those of a network, but
/// for one thing: this protocol ends both directions at once, so that none can stop sending and go on
/// reading. A stream's local address is never known. Belongs to the network's thread; is not to be destroyed
/// from inside its callbacks, and outlives its streams.
class UtpPort {
  public:
    using Caller = std::function<void(std::unique_ptr<net::Stream>)>;

    /// Both outlive the object.
    UtpPort(const BtdhtTable& library, net::Network& network);
    ~UtpPort();
    UtpPort(const UtpPort&) = delete;
    UtpPort& operator=(const UtpPort&) = delete;

    /// Binds the port and takes calls: a peer that calls is handed over with its first bytes. Fails without
    /// the library, and where neither kind of addresses has the port free.
    Result open(std::uint16_t port, Caller on_caller);
    /// Binds the port anew, for an interface that went and came back. Its streams go on.
    Result rebind(std::uint16_t port);
    /// Nobody can call any more.
    void refuse_callers() { on_caller_ = nullptr; }
    /// As Network::connect(). An attempt ends after about 20 s.
    std::unique_ptr<net::Stream> connect(const SocketAddress& to, net::Network::Connected done);
    /// Whom it blocks gets and gives no datagram; null: it blocks nobody.
    void set_filter(std::shared_ptr<const IpFilter> filter) { filter_ = std::move(filter); }

  private:
    friend class UtpStream;

    Result bind(std::uint16_t port);
    void listen();
    void read_some(net::Datagrams& datagrams);
    void settle();
    void settle_at(Clock::time_point at);
    void send(const SocketAddress& to, std::span<const std::byte> datagram);
    void* take_caller(VantlowUtpClient* client, const SocketAddress& from);
    [[nodiscard]] bool is_blocked(const SocketAddress& address) const noexcept {
        return filter_ && filter_->blocks(address);
    }
    void queue(UtpStream& stream);
    void forget(UtpStream& stream) noexcept;

    const BtdhtTable& library_;
    net::Network& network_;
    VantlowUtpServer* server_ = nullptr;
    Caller on_caller_;
    std::shared_ptr<const IpFilter> filter_;
    std::unique_ptr<net::Datagrams> four_;
    std::unique_ptr<net::Datagrams> six_;
    std::vector<UtpStream*> queued_;                   ///< that have news to tell; null: not any more
    std::vector<std::unique_ptr<UtpStream>> callers_;  ///< that are to be handed over
    net::Timer work_timer_;
    net::Timer rest_timer_;  ///< behind a failure of the system
    std::optional<Clock::time_point>
        next_work_;  ///< the time of work_timer_, or one that is over: it is at work
};

}  // namespace vantlow
