#include "platform/network_way.h"

#include "platform/net_headers.h"

#ifndef _WIN32
#include <cerrno>
#endif

namespace vantlow {
namespace {

#ifdef _WIN32
using Native = SOCKET;
using Length = int;
constexpr int no_such_family = WSAEAFNOSUPPORT;
int last_error() noexcept {
    return WSAGetLastError();
}
#else
using Native = int;
using Length = socklen_t;
constexpr int no_such_family = EAFNOSUPPORT;
int last_error() noexcept {
    return errno;
}
#endif

}  // namespace

void NetworkWay::State::take(const SocketAddress& address) {
    const auto bytes = address.ipv6();
    const bool is_of_the_link = address.is_ipv6() && bytes[0] == 0xfe && (bytes[1] & 0xc0U) == 0x80;
    auto& own = address.is_ipv6() ? ipv6 : ipv4;
    if (!own && !is_of_the_link) own = address;
}

int NetworkWay::hold(std::intptr_t socket, bool is_ipv6) const {
    if (is_any()) return 0;
    const auto state = look();
    if (!state) return state.failure().system_error;
    return state->own(is_ipv6) ? hold_to(*state, socket, is_ipv6) : no_such_family;
}

int NetworkWay::bind(std::intptr_t socket, bool is_ipv6, std::uint16_t port) const {
    if (is_any()) return 0;
    const auto state = look();
    if (!state) return state.failure().system_error;
    auto address = state->own(is_ipv6);
    if (!address) return no_such_family;
    if (const int error = hold_to(*state, socket, is_ipv6); error != 0) return error;
    address->set_port(port);
    const auto* at = static_cast<const sockaddr*>(address->data());
    return ::bind(static_cast<Native>(socket), at, static_cast<Length>(address->size())) == 0 ? 0
                                                                                              : last_error();
}

}  // namespace vantlow
