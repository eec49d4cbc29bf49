#include "transfer/job/proxy_rules.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "base/text.h"
#include "platform/local_text.h"
#include "platform/socket.h"
#include "runtime/host_names.h"

namespace vantlow {
namespace {

std::string_view without_dots(std::string_view name) {
    while (name.starts_with('.')) name.remove_prefix(1);
    if (name.ends_with('.')) name.remove_suffix(1);
    return name;
}

// The first bits of two addresses of one family are the same.
bool in_range(std::string_view host, std::string_view network, std::int64_t bits) {
    const auto a = SocketAddress::from_literal(host, 0);
    const auto b = SocketAddress::from_literal(network, 0);
    if (!a || !b || a->is_ipv6() != b->is_ipv6()) return false;
    std::array<std::uint8_t, 16> x = a->ipv6();
    std::array<std::uint8_t, 16> y = b->ipv6();
    if (!a->is_ipv6()) {
        const auto four_x = a->ipv4();
        const auto four_y = b->ipv4();
        std::copy(four_x.begin(), four_x.end(), x.begin());
        std::copy(four_y.begin(), four_y.end(), y.begin());
    }
    if (bits > (a->is_ipv6() ? 128 : 32)) return false;
    const auto whole = static_cast<std::size_t>(bits / 8);
    const auto rest = static_cast<unsigned>(bits % 8);
    if (!std::equal(x.begin(), x.begin() + static_cast<std::ptrdiff_t>(whole), y.begin())) return false;
    return rest == 0 || (x[whole] >> (8 - rest)) == (y[whole] >> (8 - rest));
}

// Reads "host" or "[v6]", either with ":port".
struct Entry {
    std::string_view host;
    std::int64_t port = 0;
};

Entry read_entry(std::string_view text) {
    Entry entry{text, 0};
    if (text.starts_with('[')) {
        const auto end = text.find(']');
        if (end == std::string_view::npos) return entry;
        entry.host = text.substr(1, end - 1);
        text.remove_prefix(end + 1);
        if (text.starts_with(':')) entry.port = parse_decimal(text.substr(1)).value_or(0);
    } else if (std::count(text.begin(), text.end(), ':') == 1) {
        const auto colon = text.find(':');
        entry.host = text.substr(0, colon);
        entry.port = parse_decimal(text.substr(colon + 1)).value_or(0);
    }
    return entry;
}

bool is_meant(std::string_view text, std::string_view host, std::uint16_t port) {
    if (text == "*") return true;
    if (const auto slash = text.find('/'); slash != std::string_view::npos) {
        const auto bits = parse_decimal(text.substr(slash + 1));
        return bits && in_range(host, text.substr(0, slash), *bits);
    }
    const Entry entry = read_entry(text);
    if (entry.port != 0 && entry.port != port) return false;
    const std::string ascii = ascii_host(without_dots(entry.host)).value_or("");
    const std::string_view name = ascii;
    host = without_dots(host);
    if (name.empty() || host.size() < name.size()) return false;
    const std::string_view tail = host.substr(host.size() - name.size());
    if (!iequals(tail, name)) return false;
    if (host.size() == name.size()) return true;
    // A name may lie below another one; an address does not.
    return host[host.size() - name.size() - 1] == '.' && !SocketAddress::from_literal(host, 0);
}

}  // namespace

ProxyPlan proxy_plan(const CProxyNode& proxy) {
    ProxyPlan plan;
    if (proxy.host.empty() || proxy.port < 1 || proxy.port > 65535) return plan;
    plan.kind = proxy.kind;
    const std::string host = to_utf8(proxy.host);
    plan.host = ascii_host(host).value_or(host);
    plan.port = static_cast<std::uint16_t>(proxy.port);
    plan.user = to_ansi(proxy.user);
    plan.password = to_ansi(proxy.password);
    return plan;
}

bool ProxyRules::is_direct(std::string_view host, std::uint16_t port) const {
    std::string_view rest = direct_;
    while (!rest.empty()) {
        const auto end = std::min(rest.find_first_of(", \t"), rest.size());
        if (is_meant(rest.substr(0, end), host, port)) return true;
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return false;
}

const ProxyPlan& ProxyRules::choose(const std::string& scheme, std::string_view host,
                                    std::uint16_t port) const {
    if (is_direct(host, port)) return none_;
    const std::string key = scheme == "ftps" || scheme == "sftp" ? "ftp" : scheme;
    auto found = by_scheme_.find(key);
    if (found == by_scheme_.end()) found = by_scheme_.find("");
    return found == by_scheme_.end() ? none_ : found->second;
}

}  // namespace vantlow
