// Datagrams to one server, directly or through a SOCKS5 proxy's association (RFC 1928, section 7).
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "platform/udp_socket.h"
#include "transfer/connection/base_socket.h"

namespace vantlow {

/// Belongs to one thread.
class UdpChannel {
  public:
    /// All but the way outlive the object, whose packets go by that way alone.
    UdpChannel(ConnectionServices& services, LogSink& log, const StopSource& stop, NetworkWay way);
    ~UdpChannel();
    UdpChannel(const UdpChannel&) = delete;
    UdpChannel& operator=(const UdpChannel&) = delete;

    /// Prepares to exchange datagrams with host and port. `timeout` is that of connecting to a proxy and of
    /// its answers. `unsupported` through a proxy of another kind: nothing bypasses a proxy that a person
    /// named.
    Result open(const std::string& host, std::uint16_t port, const ProxyPlan& proxy,
                std::chrono::milliseconds timeout);
    Result send(std::string_view datagram);
    /// The next datagram's content, cut off at `most` bytes; `transient` when none came in time.
    Outcome<std::string> receive(std::size_t most, Clock::time_point until);
    /// True when the other side is known to have an IPv6 address.
    [[nodiscard]] bool is_ipv6() const noexcept { return is_ipv6_; }
    /// This machine's address as the other side may see it; none through a proxy.
    [[nodiscard]] std::optional<SocketAddress> local_address() const;

  private:
    class Association;

    Result open_direct(const std::string& host, std::uint16_t port);
    Result open_association(const std::string& host, std::uint16_t port, const ProxyPlan& proxy,
                            std::chrono::milliseconds timeout);
    Result fail(int system_error);

    ConnectionServices& services_;
    LogSink& log_;
    const StopSource& stop_;
    const NetworkWay way_;
    std::unique_ptr<Association> association_;  ///< held open while the relay is used; null: direct
    std::string header_;                        ///< in front of each datagram to the relay
    UdpSocket socket_;
    bool is_ipv6_ = false;
};

}  // namespace vantlow
