// The peers that a torrent job has heard of.
#pragma once

#include <cstddef>
#include <deque>
#include <span>
#include <string>
#include <vector>

#include "base/mutex.h"
#include "platform/socket.h"

namespace vantlow {

/// IPv4 and IPv6 addresses, each once, without this side's own and without what cannot be a peer. Keeps the
/// last 4,000 that it is told. Any thread may call.
class PeerStore {
  public:
    static constexpr std::size_t most_peers = 4000;

    /// Addresses that stand for this side, from now on.
    void add_own(const SocketAddress& address);
    [[nodiscard]] bool is_own(const SocketAddress& address) const;
    /// Returns how many were new.
    std::size_t add(std::span<const SocketAddress> peers);
    /// In the order of coming.
    [[nodiscard]] std::vector<SocketAddress> peers() const;
    /// Those that came since the call that left `told` as it is; 0 at first.
    [[nodiscard]] std::vector<SocketAddress> fresh(std::size_t& told) const;
    [[nodiscard]] std::size_t size() const;

  private:
    using Key = std::string;  ///< the bytes of the address and its port
    static Key key_of(const SocketAddress& address);
    [[nodiscard]] bool is_own_key(const Key& key) const VANTLOW_REQUIRES(mutex_);
    void forget_oldest() VANTLOW_REQUIRES(mutex_);

    mutable Mutex mutex_;
    std::vector<Key> known_ VANTLOW_GUARDED_BY(mutex_);  ///< sorted
    std::vector<Key> own_ VANTLOW_GUARDED_BY(mutex_);
    /// In the order of coming, with those of this side that came before they were known to be its own.
    std::deque<SocketAddress> peers_ VANTLOW_GUARDED_BY(mutex_);
    std::size_t forgotten_ VANTLOW_GUARDED_BY(mutex_) = 0;  ///< that came before those
    std::size_t own_among_them_ VANTLOW_GUARDED_BY(mutex_) = 0;
};

/// How far an address is known: nowhere (unspecified, multicast, IPv4 in IPv6's form), on one machine, in one
/// network, everywhere.
enum class Reach { nowhere, machine, network, everywhere };
Reach reach_of(const SocketAddress& address) noexcept;

/// Whether somebody at `by` may know of a peer at `named`: nobody far away sends this side to its neighbours.
/// Port 0 is nobody's.
bool may_know(const SocketAddress& by, const SocketAddress& named) noexcept;

/// "ip:port", "[ip]:port" for IPv6.
std::string peer_text(const SocketAddress& peer);

/// The bytes of an address in network order: 4 or 16.
std::string address_bytes(const SocketAddress& address);
/// An address and its port from their bytes in network order.
SocketAddress ipv4_peer(std::string_view six_bytes);
SocketAddress ipv6_peer(std::string_view eighteen_bytes);

}  // namespace vantlow
