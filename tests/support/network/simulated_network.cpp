#include "support/network/simulated_network.h"

#include <algorithm>

namespace vantlow::test {
namespace {

std::string key_of(SocketAddress address, bool with_port) {
    if (!with_port) address.set_port(0);
    return {static_cast<const char*>(address.data()), address.size()};
}

Clock::duration seconds(double count) {
    return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(count));
}

}  // namespace

SocketAddress SimulatedNat::outward(const SocketAddress& inner, const SocketAddress& remote,
                                    Clock::time_point now) {
    const auto is_of = [&](const auto& entry) { return entry.second.inner == inner; };
    auto found = std::find_if(opened_.begin(), opened_.end(), is_of);
    if (found != opened_.end() && now - found->second.last > traits_.forgets) {
        opened_.erase(found);
        found = opened_.end();
    }
    if (found == opened_.end()) found = opened_.emplace(next_port_++, Opened{inner, now, {}}).first;
    found->second.last = now;
    found->second.remotes.insert(key_of(remote, traits_.filter == NatFilter::same_address_and_port));
    SocketAddress outer = outer_;
    outer.set_port(found->first);
    return outer;
}

std::optional<SocketAddress> SimulatedNat::inward(std::uint16_t port, const SocketAddress& remote,
                                                  Clock::time_point now) {
    const auto found = opened_.find(port);
    if (found == opened_.end() || now - found->second.last > traits_.forgets) return std::nullopt;
    const std::string key = key_of(remote, traits_.filter == NatFilter::same_address_and_port);
    if (traits_.filter != NatFilter::anybody && !found->second.remotes.contains(key)) return std::nullopt;
    return found->second.inner;
}

SimulatedInternet::~SimulatedInternet() = default;

SimulatedHost& SimulatedInternet::add_host(std::string_view address, const HostTraits& traits,
                                           SimulatedNat* nat) {
    const SocketAddress at = *SocketAddress::from_literal(address, 0);
    auto& host = hosts_[key_of(at, false)];
    host = std::make_unique<SimulatedHost>(*this, at, traits, nat);
    return *host;
}

SimulatedNat& SimulatedInternet::add_nat(std::string_view address, const NatTraits& traits) {
    const SocketAddress at = *SocketAddress::from_literal(address, 0);
    auto& nat = nats_[key_of(at, false)];
    nat = std::make_unique<SimulatedNat>(at, traits);
    return *nat;
}

bool SimulatedInternet::happens(double share) {
    if (share <= 0) return false;
    return static_cast<double>(random_() >> 11U) * 0x1p-53 < share;
}

Clock::time_point SimulatedInternet::arrival(SimulatedHost& from, SimulatedHost& to, std::size_t bytes) {
    Clock::time_point time = now_;
    if (from.traits.up > 0) {
        time = std::max(time, from.up_free_) + seconds(static_cast<double>(bytes) / from.traits.up);
        from.up_free_ = time;
    }
    time += from.traits.latency + to.traits.latency;
    const auto jitter = from.traits.jitter + to.traits.jitter;
    if (jitter.count() > 0) {
        time += std::chrono::microseconds(random_() % static_cast<std::uint64_t>(jitter.count() * 1000));
    }
    if (to.traits.down > 0) {
        time = std::max(time, to.down_free_) + seconds(static_cast<double>(bytes) / to.traits.down);
        to.down_free_ = time;
    }
    return time;
}

SocketAddress SimulatedInternet::seen_as(const SimulatedHost& from, const SocketAddress& source,
                                         const SocketAddress& to) {
    if (from.nat_ == nullptr) return source;
    const auto host = hosts_.find(key_of(to, false));
    if (host != hosts_.end() && host->second->nat_ == from.nat_) return source;
    return from.nat_->outward(source, to, now_);
}

SimulatedInternet::Target SimulatedInternet::find(const SimulatedHost& from, const SocketAddress& source,
                                                  const SocketAddress& to) {
    SocketAddress inner = to;
    auto host = hosts_.find(key_of(to, false));
    const bool foreign =
        host != hosts_.end() && host->second->nat_ != nullptr && host->second->nat_ != from.nat_;
    if (host == hosts_.end() || foreign) {
        const auto nat = nats_.find(key_of(to, false));
        if (nat == nats_.end()) return {};
        const auto address = nat->second->inward(to.port(), source, now_);
        if (!address) return {Way::silent, nullptr, {}};
        inner = *address;
        host = hosts_.find(key_of(inner, false));
    }
    if (from.is_cut_ || host->second->is_cut_) return {Way::silent, nullptr, {}};
    return {Way::open, host->second.get(), inner};
}

bool SimulatedInternet::post(net::Callback work) {
    const std::lock_guard guard(mutex_);
    if (posted_.size() >= net::most_posted) return false;
    posted_.push_back(std::move(work));
    return true;
}

bool SimulatedInternet::run_next(Clock::time_point end) {
    std::vector<net::Callback> works;
    {
        const std::lock_guard guard(mutex_);
        works.swap(posted_);
    }
    for (const net::Callback& work : works) work();
    const auto next = timers_.next();
    if (!next || *next > end) {
        if (works.empty()) now_ = std::max(now_, end);
        return !works.empty();
    }
    now_ = std::max(now_, *next);
    timers_.run_due(now_);
    return true;
}

void SimulatedInternet::run_for(std::chrono::milliseconds time) {
    const Clock::time_point end = now_ + time;
    while (run_next(end)) {
    }
}

bool SimulatedInternet::run_until(const std::function<bool()>& done, std::chrono::milliseconds at_most) {
    const Clock::time_point end = now_ + at_most;
    while (!done()) {
        if (!run_next(end)) return done();
    }
    return true;
}

}  // namespace vantlow::test
