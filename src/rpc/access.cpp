#include "rpc/access.h"

#include <algorithm>

#include "base/text.h"

namespace vantlow::rpc {
namespace {

constexpr std::chrono::milliseconds first_delay{250};
constexpr int most_doublings = 5;
constexpr std::chrono::minutes memory{10};

// Cuts the port off; an IPv6 literal stays in its brackets.
std::string_view without_port(std::string_view host) {
    const auto colon = host.rfind(':');
    const auto bracket = host.rfind(']');
    const bool is_port = colon != std::string_view::npos &&
                         (bracket == std::string_view::npos ? host.find(':') == colon : colon > bracket);
    return is_port ? host.substr(0, colon) : host;
}

bool is_ipv4(std::string_view host) {
    const auto is_number = [](std::string_view part) {
        const auto number = parse_decimal(part);
        return number && part.size() <= 3 && *number <= 255;
    };
    const auto parts = split(host, '.');
    return parts.size() == 4 && std::ranges::all_of(parts, is_number);
}

bool is_ipv6(std::string_view host) {
    return host.size() > 3 && host.starts_with('[') && host.ends_with(']') &&
           host.find_first_not_of("0123456789abcdefABCDEF:.%", 1) == host.size() - 1;
}

bool is_our_name(std::string_view host, const AccessRules& rules) {
    if (is_address_or_localhost(host)) return true;
    const std::string_view name = without_port(host);
    return std::ranges::any_of(rules.names, [name](const std::string& one) { return iequals(one, name); });
}

bool is_named(std::string_view origin, const AccessRules& rules) {
    return std::ranges::any_of(
        rules.origins, [origin](const std::string& one) { return one == "*" || iequals(one, origin); });
}

// The page that the endpoint itself serves, over either scheme: in front of it may stand a server with TLS.
bool is_own(std::string_view origin, std::string_view host) {
    return iequals(origin, "http://" + std::string(host)) || iequals(origin, "https://" + std::string(host));
}

bool is_extension(std::string_view origin) {
    return origin.starts_with("chrome-extension://") || origin.starts_with("moz-extension://");
}

}  // namespace

bool is_address_or_localhost(std::string_view host) {
    const std::string_view name = without_port(host);
    return is_ipv4(name) || is_ipv6(name) || iequals(name, "localhost");
}

Admission admit(const Visitor& visitor, const AccessRules& rules) {
    if (!is_our_name(visitor.host, rules)) return Admission::refused;
    if (visitor.origin) {
        if (is_named(*visitor.origin, rules)) return Admission::named_origin;
        const bool known = is_own(*visitor.origin, visitor.host) || is_extension(*visitor.origin);
        return known ? Admission::admitted : Admission::refused;
    }
    // A page's script, picture or form may come without an origin; its browser tells all the same.
    const bool is_foreign =
        visitor.fetch_site && *visitor.fetch_site != "none" && *visitor.fetch_site != "same-origin";
    return is_foreign && !visitor.opens_page ? Admission::refused : Admission::admitted;
}

bool is_same_secret(std::string_view given, std::string_view secret) noexcept {
    unsigned char differences = given.size() == secret.size() ? 0 : 1;
    for (std::size_t i = 0; i < given.size(); ++i) {
        const char other = secret.empty() ? '\0' : secret[i % secret.size()];
        differences |= static_cast<unsigned char>(given[i] ^ other);
    }
    return differences == 0;
}

void WrongTokens::make_room(Time now) {
    if (seen_.size() < most_addresses) return;
    std::erase_if(seen_, [now](const auto& one) { return now - one.second.last > memory; });
    if (seen_.size() < most_addresses) return;
    seen_.erase(std::ranges::min_element(seen_, {}, [](const auto& one) { return one.second.last; }));
}

std::chrono::milliseconds WrongTokens::refuse(const std::string& address, Time now) {
    if (!seen_.contains(address)) make_room(now);
    Entry& entry = seen_[address];
    if (entry.count > 0 && now - entry.last > memory) entry.count = 0;
    const int doublings = std::min(entry.count, most_doublings);
    ++entry.count;
    entry.last = now;
    return first_delay * (1 << doublings);
}

}  // namespace vantlow::rpc
