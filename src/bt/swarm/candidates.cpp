#include "bt/swarm/candidates.h"

#include <algorithm>

#include "bt/peer_store.h"

namespace vantlow {
namespace {

using namespace std::chrono_literals;

constexpr Clock::duration first_pause = 30s;
constexpr Clock::duration after_a_connection = 15s;
constexpr int most_doublings = 6;

// The part of an address's text before the port.
std::string host_of(const std::string& key) {
    return key.substr(0, key.rfind(':') + 1);
}

}  // namespace

Candidates::Entry* Candidates::find(const SocketAddress& address) {
    const auto at = known_.find(peer_text(address));
    return at == known_.end() ? nullptr : &at->second;
}

void Candidates::note(const std::string& key, const SocketAddress& address) {
    const bool blocks = is_blocked(address);
    const Entry entry{.address = address, .is_banned = is_bad_host(key), .is_blocked = blocks};
    const bool is_new = known_.try_emplace(key, entry).second;
    if (is_new && blocks) ++blocked_;
}

// Swarms change: without this the first ones would be tried for ever, and no others.
bool Candidates::make_room(std::size_t limit) {
    if (known_.size() < limit) return true;
    auto worst = known_.end();
    for (auto at = known_.begin(); at != known_.end(); ++at) {
        const Entry& entry = at->second;
        if (entry.is_taken || entry.is_banned || entry.is_blocked || entry.failures < most_failures) continue;
        if (worst == known_.end() || entry.failures > worst->second.failures) worst = at;
    }
    if (worst == known_.end()) return false;
    known_.erase(worst);
    return true;
}

void Candidates::set_filter(std::shared_ptr<const IpFilter> filter) {
    filter_ = std::move(filter);
    blocked_ = 0;
    for (auto& [key, entry] : known_) {
        entry.is_blocked = is_blocked(entry.address);
        if (entry.is_blocked) ++blocked_;
    }
}

void Candidates::add(std::span<const SocketAddress> addresses) {
    for (const SocketAddress& address : addresses) {
        const std::string key = peer_text(address);
        if (address.port() == 0 || known_.contains(key) || !make_room(most)) continue;
        note(key, address);
    }
}

std::size_t Candidates::add_named(std::span<const SocketAddress> addresses) {
    std::size_t added = 0;
    for (const SocketAddress& address : addresses) {
        if (address.port() == 0) continue;
        const std::string key = peer_text(address);
        if (known_.contains(key) || ports_of(key) >= most_named_ports || !make_room(most / 2)) continue;
        note(key, address);
        ++added;
    }
    return added;
}

// The keys of a host stand beside each other.
std::size_t Candidates::ports_of(const std::string& key) const {
    const std::string host = host_of(key);
    std::size_t ports = 0;
    for (auto at = known_.lower_bound(host); at != known_.end() && at->first.starts_with(host); ++at) {
        if (++ports == most_named_ports) break;
    }
    return ports;
}

std::optional<SocketAddress> Candidates::take(Clock::time_point now) {
    Entry* best = nullptr;
    for (auto& [text, entry] : known_) {
        if (entry.is_taken || entry.is_banned || entry.is_blocked || entry.not_before > now) continue;
        const bool is_better = best == nullptr || std::pair(entry.failures, entry.not_before) <
                                                      std::pair(best->failures, best->not_before);
        if (is_better) best = &entry;
    }
    if (best == nullptr) return std::nullopt;
    best->is_taken = true;
    return best->address;
}

bool Candidates::take_this(const SocketAddress& address) {
    if (find(address) == nullptr) add_named({&address, 1});
    Entry* const entry = find(address);
    if (entry == nullptr || entry->is_taken || entry->is_banned || entry->is_blocked) return false;
    return entry->is_taken = true;
}

void Candidates::refused(const SocketAddress& address, Clock::time_point now) {
    Entry* const entry = find(address);
    if (entry == nullptr) return;
    entry->is_taken = false;
    entry->not_before = now + first_pause * (1 << std::min(entry->failures, most_doublings));
    ++entry->failures;
}

void Candidates::ended(const SocketAddress& address, Clock::time_point now) {
    Entry* const entry = find(address);
    if (entry == nullptr) return;
    entry->is_taken = false;
    entry->failures = 0;
    entry->not_before = now + after_a_connection;
}

void Candidates::forgive() noexcept {
    for (auto& [key, entry] : known_) {
        entry.failures = 0;
        entry.not_before = {};
    }
}

void Candidates::ban(const SocketAddress& address) {
    const std::string key = peer_text(address);
    if (known_.size() < most) note(key, address);
    if (const auto at = known_.find(key); at != known_.end()) at->second.is_banned = true;
}

void Candidates::broke_rules(const SocketAddress& address) {
    const Reach reach = reach_of(address);
    if (reach != Reach::network && reach != Reach::everywhere) return;
    const std::string host = host_of(peer_text(address));
    if (!breaches_.contains(host) && breaches_.size() >= most) return;
    if (++breaches_[host] != most_breaches) return;
    for (auto at = known_.lower_bound(host); at != known_.end() && at->first.starts_with(host); ++at)
        at->second.is_banned = true;
}

bool Candidates::is_bad_host(const std::string& key) const {
    const auto at = breaches_.find(host_of(key));
    return at != breaches_.end() && at->second >= most_breaches;
}

bool Candidates::is_banned(const SocketAddress& address) const {
    const std::string key = peer_text(address);
    const auto at = known_.find(key);
    return (at != known_.end() && at->second.is_banned) || is_bad_host(key);
}

}  // namespace vantlow
