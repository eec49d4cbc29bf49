// Datagrams through the relay of a SOCKS5 proxy, and the proxy's statement about it (RFC 1928, sections 6 and
// 7).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/socket.h"

namespace vantlow {

/// The header in front of each datagram to the host (at most 255 bytes: a name or an address) and port.
std::string relay_header(const std::string& host, std::uint16_t port);

/// True when the header names an IPv6 address.
bool names_ipv6(std::string_view header) noexcept;

/// The content of a datagram from the relay; none where it is a fragment or has no header.
std::optional<std::string_view> relayed(std::string_view datagram) noexcept;

/// The place of a proxy's relay.
struct UdpRelay {
    std::optional<SocketAddress> address;  ///< none: on the proxy's machine
    std::uint16_t port = 0;
};

/// Reads the proxy's reply to an association, from its first byte on; none where it names no relay.
std::optional<UdpRelay> relay_of(std::string_view reply);

}  // namespace vantlow
