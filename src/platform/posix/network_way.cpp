#include "platform/network_way.h"

#include <ifaddrs.h>
#include <net/if.h>

#include <cerrno>
#include <memory>

#include "platform/fault_hook.h"
#include "platform/net_headers.h"

namespace vantlow {
namespace {

Result missing(const std::string& why, int error) {
    return {Code::transient, why, error};
}

std::optional<SocketAddress> address_of(const ifaddrs& entry) {
    if (entry.ifa_addr == nullptr) return std::nullopt;
    const int family = entry.ifa_addr->sa_family;
    if (family != AF_INET && family != AF_INET6) return std::nullopt;
    return SocketAddress(entry.ifa_addr, family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6));
}

}  // namespace

Outcome<NetworkWay::State> NetworkWay::look() const {
    ifaddrs* list = nullptr;
    if (const int error = ask_hook(Operation::own_address); error != 0)
        return missing(socket_error_text(error), error);
    if (::getifaddrs(&list) != 0) return missing(socket_error_text(errno), errno);
    const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owner(list, ::freeifaddrs);
    const auto named = SocketAddress::from_literal(name_, 0);
    State state;
    bool is_up = false;
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        const auto address = address_of(*entry);
        if (named ? address != named : name_ != entry->ifa_name) continue;
        state.device = entry->ifa_name;
        is_up = (entry->ifa_flags & IFF_UP) != 0;
        if (address) state.take(*address);
    }
    if (state.device.empty()) return missing("The network interface " + name_ + " is not there.", ENODEV);
    if (!is_up) return missing("The network interface " + name_ + " is down.", ENETDOWN);
    if (!state.ipv4 && !state.ipv6)
        return missing("The network interface " + name_ + " has no address.", EADDRNOTAVAIL);
    state.index = state.index6 = ::if_nametoindex(state.device.c_str());
    return state;
}

// An address alone would not do: the system may send its packets by any interface.
int NetworkWay::hold_to(const State& state, std::intptr_t socket, bool /*is_ipv6*/) noexcept {
    const auto length = static_cast<socklen_t>(state.device.size());
    const int result =
        ::setsockopt(static_cast<int>(socket), SOL_SOCKET, SO_BINDTODEVICE, state.device.c_str(), length);
    return result == 0 ? 0 : errno;
}

}  // namespace vantlow
