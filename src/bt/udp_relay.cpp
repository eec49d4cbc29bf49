#include "bt/udp_relay.h"

#include "bt/peer_store.h"
#include "bt/wire.h"

namespace vantlow {
namespace {

enum AddressType : unsigned char { type_ipv4 = 1, type_name = 3, type_ipv6 = 4 };
constexpr std::size_t fragment_at = 2;
constexpr std::size_t type_at = 3;  // of a datagram's header and of the reply
constexpr std::size_t address_at = type_at + 1;

// Bytes of address and port behind the type byte; 0 when there are not that many.
std::size_t address_size(std::string_view bytes) noexcept {
    if (bytes.size() <= address_at) return 0;
    std::size_t size = 0;
    if (bytes[type_at] == type_ipv4) size = 4 + 2;
    if (bytes[type_at] == type_ipv6) size = 16 + 2;
    if (bytes[type_at] == type_name)
        size = 1 + std::size_t{static_cast<unsigned char>(bytes[address_at])} + 2;
    return bytes.size() - address_at >= size ? size : 0;
}

}  // namespace

std::string relay_header(const std::string& host, std::uint16_t port) {
    std::string header(type_at, '\0');  // reserved, no fragment
    if (const auto address = SocketAddress::from_literal(host, port)) {
        header += static_cast<char>(address->is_ipv6() ? type_ipv6 : type_ipv4);
        header += address_bytes(*address);
    } else {
        header += static_cast<char>(type_name);
        header += static_cast<char>(host.size());
        header += host;
    }
    put_number(header, port);
    return header;
}

bool names_ipv6(std::string_view header) noexcept {
    return header.size() > type_at && header[type_at] == type_ipv6;
}

std::optional<std::string_view> relayed(std::string_view datagram) noexcept {
    const std::size_t size = address_size(datagram);
    if (size == 0 || datagram[fragment_at] != 0) return std::nullopt;
    return datagram.substr(address_at + size);
}

std::optional<UdpRelay> relay_of(std::string_view reply) {
    const std::size_t size = address_size(reply);
    if (size == 0) return std::nullopt;
    SocketAddress address;
    if (reply[type_at] == type_ipv4) address = ipv4_peer(reply.substr(address_at));
    if (reply[type_at] == type_ipv6) address = ipv6_peer(reply.substr(address_at));
    UdpRelay relay;
    relay.port = get_number<std::uint16_t>(reply, address_at + size - 2);
    // A relay with an empty address, too, is looked for on the proxy's machine.
    const bool same_machine = address.size() == 0 || address.host() == "0.0.0.0" || address.host() == "::";
    if (!same_machine) relay.address = address;
    return relay;
}

}  // namespace vantlow
