#include <algorithm>
#include <memory>

#include "base/text.h"
#include "platform/fault_hook.h"
#include "platform/name_functions.h"
#include "platform/net_headers.h"
#include "platform/socket.h"

namespace vantlow {
namespace {

NameAnswer failed(int error) {
    NameAnswer answer;
    answer.error = error;
    answer.definite = is_definite_name_error(error);
    answer.text = name_error_text(error);
    return answer;
}

void add_new(std::vector<SocketAddress>& addresses, const addrinfo& info, std::uint16_t port) {
    SocketAddress address(info.ai_addr, static_cast<std::size_t>(info.ai_addrlen));
    if (address.size() == 0) return;
    address.set_port(port);
    if (std::find(addresses.begin(), addresses.end(), address) == addresses.end())
        addresses.push_back(address);
}

// Names below "localhost" are this machine, whatever a name server says of them (RFC 6761, 6.3).
bool is_this_machine(std::string_view host) {
    if (host.ends_with('.')) host.remove_suffix(1);
    constexpr std::string_view end = ".localhost";
    return host.size() > end.size() && iequals(host.substr(host.size() - end.size()), end);
}

}  // namespace

NameAnswer resolve_name(const std::string& host, std::uint16_t port) {
    // An empty name would mean this machine on Windows; a zero byte would cut the name.
    if (host.empty() || host.find('\0') != std::string::npos) return failed(EAI_NONAME);
    if (const auto literal = SocketAddress::from_literal(host, port)) {
        NameAnswer answer;
        answer.addresses.push_back(*literal);
        return answer;
    }
    if (const int error = ask_hook(Operation::resolve, host); error != 0) return failed(error);
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_protocol = IPPROTO_TCP;
    addrinfo* list = nullptr;
    const NameFunctions& functions = name_functions();
    const int error =
        functions.get_address(is_this_machine(host) ? "localhost" : host.c_str(), nullptr, &hints, &list);
    if (error != 0) return failed(error);
    const std::unique_ptr<addrinfo, void (*)(addrinfo*)> owner(list, functions.free_address);
    NameAnswer answer;
    for (const addrinfo* info = list; info != nullptr; info = info->ai_next)
        add_new(answer.addresses, *info, port);
    return answer.addresses.empty() ? failed(EAI_NONAME) : answer;
}

std::string_view name_functions_source() noexcept {
    return name_functions().source;
}

}  // namespace vantlow
