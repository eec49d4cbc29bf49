#include "transfer/http/strict_hosts.h"

#include <algorithm>
#include <optional>
#include <set>

#include "base/text.h"
#include "platform/socket.h"
#include "transfer/http/field_value.h"

namespace vantlow {
namespace {

constexpr std::size_t most_hosts = 1000;
constexpr std::int64_t longest_age = 1LL << 40;

struct Policy {
    std::int64_t max_age = 0;
    bool subdomains = false;
};

// RFC 6797, 6.1: no directive twice, max-age always.
std::optional<Policy> read_policy(std::string_view field) {
    Policy policy;
    std::optional<std::int64_t> max_age;
    std::set<std::string> seen;
    while (const auto directive = next_parameter(field)) {
        if (directive->name.empty()) continue;
        if (!seen.insert(directive->name).second) return std::nullopt;
        if (directive->name == "includesubdomains") policy.subdomains = true;
        if (directive->name == "max-age") {
            max_age = parse_decimal(directive->value);
            if (!max_age) return std::nullopt;
        }
    }
    if (!max_age) return std::nullopt;
    policy.max_age = std::min(*max_age, longest_age);
    return policy;
}

std::string key_of(std::string_view host) {
    std::string key = ascii_lower(host);
    if (key.ends_with('.')) key.pop_back();
    return key;
}

}  // namespace

void StrictHosts::take(std::string_view field, std::string_view host, std::int64_t now) {
    const auto policy = read_policy(field);
    const std::string key = key_of(host);
    if (!policy || key.empty() || SocketAddress::from_literal(key, 0)) return;
    const MutexLock guard(mutex_);
    if (policy->max_age == 0) {
        hosts_.erase(key);
        return;
    }
    if (hosts_.size() >= most_hosts && !hosts_.contains(key)) {
        hosts_.erase(std::min_element(hosts_.begin(), hosts_.end(), [](const auto& a, const auto& b) {
            return a.second.expires < b.second.expires;
        }));
    }
    hosts_[key] = {now + policy->max_age, policy->subdomains};
}

bool StrictHosts::is_empty() const {
    const MutexLock guard(mutex_);
    return hosts_.empty();
}

bool StrictHosts::contains(std::string_view host, std::int64_t now) const {
    const std::string key = key_of(host);
    const MutexLock guard(mutex_);
    if (hosts_.empty() || SocketAddress::from_literal(key, 0)) return false;
    std::string_view name = key;
    for (;;) {
        const auto found = hosts_.find(name);
        if (found != hosts_.end() && found->second.expires > now &&
            (found->second.subdomains || name.size() == key.size())) {
            return true;
        }
        const auto dot = name.find('.');
        if (dot == std::string_view::npos) return false;
        name.remove_prefix(dot + 1);
    }
}

}  // namespace vantlow
