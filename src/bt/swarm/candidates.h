// The addresses at which a swarm may find peers.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "base/clock.h"
#include "bt/ip_filter.h"
#include "platform/socket.h"

namespace vantlow {

/// Addresses with their history: whom to connect to next. Bounded; one thread; the times never go back.
class Candidates {
  public:
    static constexpr std::size_t most = 4000;
    /// An address that failed so often makes room for a new one where there is none.
    static constexpr int most_failures = 3;

    /// Of one host, where other peers or nodes name it: whoever names many ports of a victim gets no further.
    static constexpr std::size_t most_named_ports = 4;
    /// A host is banned with so many breaches of the rules.
    static constexpr int most_breaches = 3;

    /// From now on nobody is connected to whom the filter blocks; null: it blocks nobody.
    void set_filter(std::shared_ptr<const IpFilter> filter);
    [[nodiscard]] bool is_blocked(const SocketAddress& address) const noexcept {
        return filter_ && filter_->blocks(address);
    }
    /// Of the addresses here, those that the filter blocks.
    [[nodiscard]] std::size_t blocked() const noexcept { return blocked_; }
    /// Notes addresses; those that are known stay as they are. Port 0 is nobody's.
    void add(std::span<const SocketAddress> addresses);
    /// The same for addresses that other peers or nodes name, of which there may be lies: they fill one half
    /// of the room, and few ports of a host are taken. Returns how many were new.
    std::size_t add_named(std::span<const SocketAddress> addresses);
    /// The next one to connect to, which is taken until ended() or refused() is called: the one that failed
    /// least, and of those the one that waited longest.
    std::optional<SocketAddress> take(Clock::time_point now);
    /// Takes this one, which need not be known, before its time. False: it is taken already, is banned or
    /// blocked, or there is no room for it.
    bool take_this(const SocketAddress& address);
    /// The connection was not made, or brought nothing: it is tried again after a pause that doubles.
    void refused(const SocketAddress& address, Clock::time_point now);
    /// A connection that worked is over.
    void ended(const SocketAddress& address, Clock::time_point now);
    /// Earlier failures say nothing any more: everybody may be tried at once.
    void forgive() noexcept;
    /// Never again: it lied, or it is this side itself.
    void ban(const SocketAddress& address);
    /// Somebody there broke the protocol's rules or lied. A host that does so often is banned with all its
    /// ports, since whoever calls comes from another one each time; not at once, because many may share its
    /// address. What one program of this machine, or one web seed, does is not held against the others.
    void broke_rules(const SocketAddress& address);
    [[nodiscard]] bool is_banned(const SocketAddress& address) const;
    [[nodiscard]] std::size_t size() const noexcept { return known_.size(); }

  private:
    struct Entry {
        SocketAddress address;
        bool is_taken = false;
        bool is_banned = false;
        bool is_blocked = false;  ///< by the filter
        int failures = 0;
        Clock::time_point not_before{};
    };
    Entry* find(const SocketAddress& address);
    void note(const std::string& key, const SocketAddress& address);
    bool make_room(std::size_t limit);
    [[nodiscard]] std::size_t ports_of(const std::string& key) const;
    [[nodiscard]] bool is_bad_host(const std::string& key) const;

    std::map<std::string, Entry> known_;
    std::map<std::string, int> breaches_;  ///< by host; of so many hosts as there may be entries
    std::shared_ptr<const IpFilter> filter_;
    std::size_t blocked_ = 0;
};

}  // namespace vantlow
