#include "platform/network_way.h"

#include "platform/fault_hook.h"
#include "platform/net_headers.h"
#include "platform/win32/native.h"
// after winsock2.h
#include <iphlpapi.h>

#include <vector>

#include "base/text.h"

namespace vantlow {
namespace {

constexpr ULONG first_room = 16384;
constexpr int most_tries = 4;  // the list may grow between two calls

Result missing(const std::string& why, int error) {
    return {Code::transient, why, error};
}

const IP_ADAPTER_ADDRESSES* first_adapter(const std::vector<std::byte>& list) {
    return list.empty() ? nullptr : reinterpret_cast<const IP_ADAPTER_ADDRESSES*>(list.data());
}

std::vector<std::byte> adapters() {
    constexpr ULONG flags = GAA_FLAG_SKIP_ANYCAST | GAA_FLAG_SKIP_MULTICAST | GAA_FLAG_SKIP_DNS_SERVER;
    ULONG size = first_room;
    std::vector<std::byte> list;
    for (int i = 0; i < most_tries; ++i) {
        list.resize(size);
        auto* const room = reinterpret_cast<IP_ADAPTER_ADDRESSES*>(list.data());
        const ULONG result = GetAdaptersAddresses(AF_UNSPEC, flags, nullptr, room, &size);
        if (result == NO_ERROR) return list;
        if (result != ERROR_BUFFER_OVERFLOW) break;
    }
    return {};
}

std::string text_of(const wchar_t* text) {
    return text != nullptr ? to_utf8(from_wide(text)) : std::string();
}

bool is_named(const IP_ADAPTER_ADDRESSES& adapter, const std::string& name) {
    return text_of(adapter.FriendlyName) == name || text_of(adapter.Description) == name ||
           (adapter.AdapterName != nullptr && name == adapter.AdapterName);
}

// The addresses of the adapter that count: all, or the one that the way is named by.
void take_addresses(const IP_ADAPTER_ADDRESSES& adapter, const std::optional<SocketAddress>& named,
                    NetworkWay::State& state) {
    for (const auto* one = adapter.FirstUnicastAddress; one != nullptr; one = one->Next) {
        const SocketAddress address(one->Address.lpSockaddr,
                                    static_cast<std::size_t>(one->Address.iSockaddrLength));
        if (address.size() != 0 && (!named || address == *named)) state.take(address);
    }
}

}  // namespace

Outcome<NetworkWay::State> NetworkWay::look() const {
    if (const int error = ask_hook(Operation::own_address); error != 0)
        return missing(socket_error_text(error), error);
    const auto named = SocketAddress::from_literal(name_, 0);
    const std::vector<std::byte> list = adapters();
    for (const auto* adapter = first_adapter(list); adapter != nullptr; adapter = adapter->Next) {
        State state;
        take_addresses(*adapter, named, state);
        if (named ? !state.ipv4 && !state.ipv6 : !is_named(*adapter, name_)) continue;
        if (adapter->OperStatus != IfOperStatusUp)
            return missing("The network interface " + name_ + " is down.", WSAENETDOWN);
        if (!state.ipv4 && !state.ipv6)
            return missing("The network interface " + name_ + " has no address.", WSAEADDRNOTAVAIL);
        state.device = text_of(adapter->FriendlyName);
        state.index = adapter->IfIndex;
        state.index6 = adapter->Ipv6IfIndex;
        return state;
    }
    return missing("The network interface " + name_ + " is not there.", WSAENETDOWN);
}

int NetworkWay::hold_to(const State& state, std::intptr_t socket, bool is_ipv6) noexcept {
    // IPv4 takes the number in network order.
    const DWORD index = is_ipv6 ? state.index6 : htonl(state.index);
    const int level = is_ipv6 ? static_cast<int>(IPPROTO_IPV6) : static_cast<int>(IPPROTO_IP);
    const int name = is_ipv6 ? IPV6_UNICAST_IF : IP_UNICAST_IF;
    const int result = setsockopt(static_cast<SOCKET>(socket), level, name,
                                  reinterpret_cast<const char*>(&index), sizeof index);
    return result == 0 ? 0 : WSAGetLastError();
}

}  // namespace vantlow
