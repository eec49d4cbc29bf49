#include "bt/peer_store.h"

#include <algorithm>

#include "base/text.h"
#include "bt/wire.h"

namespace vantlow {
namespace {

// False for the unspecified address, multicast, broadcast, and port 0, at which nobody listens.
bool can_be_a_peer(const SocketAddress& address) noexcept {
    if (address.size() == 0 || address.port() == 0) return false;
    if (address.is_ipv6()) {
        const auto bytes = address.ipv6();
        const bool unspecified = std::all_of(bytes.begin(), bytes.end(), [](auto byte) { return byte == 0; });
        return !unspecified && bytes[0] != 0xFF;
    }
    const auto bytes = address.ipv4();
    return bytes[0] != 0 && bytes[0] < 224;
}

}  // namespace

PeerStore::Key PeerStore::key_of(const SocketAddress& address) {
    Key key = address_bytes(address);
    put_number(key, address.port());
    return key;
}

void PeerStore::add_own(const SocketAddress& address) {
    const Key key = key_of(address);
    const MutexLock guard(mutex_);
    if (std::find(own_.begin(), own_.end(), key) != own_.end()) return;
    own_.push_back(key);
    std::erase_if(peers_, [&](const SocketAddress& peer) { return key_of(peer) == key; });
}

bool PeerStore::is_own(const SocketAddress& address) const {
    const Key key = key_of(address);
    const MutexLock guard(mutex_);
    return std::find(own_.begin(), own_.end(), key) != own_.end();
}

std::size_t PeerStore::add(std::span<const SocketAddress> peers) {
    const MutexLock guard(mutex_);
    std::size_t added = 0;
    for (const SocketAddress& peer : peers) {
        if (peers_.size() >= most_peers) break;
        if (!can_be_a_peer(peer)) continue;
        Key key = key_of(peer);
        if (std::find(own_.begin(), own_.end(), key) != own_.end()) continue;
        const auto place = std::lower_bound(known_.begin(), known_.end(), key);
        if (place != known_.end() && *place == key) continue;
        known_.insert(place, std::move(key));
        peers_.push_back(peer);
        ++added;
    }
    return added;
}

std::vector<SocketAddress> PeerStore::peers() const {
    const MutexLock guard(mutex_);
    return peers_;
}

std::size_t PeerStore::size() const {
    const MutexLock guard(mutex_);
    return peers_.size();
}

std::string peer_text(const SocketAddress& peer) {
    const std::string port = ":" + std::to_string(peer.port());
    return peer.is_ipv6() ? "[" + peer.host() + "]" + port : peer.host() + port;
}

std::string address_bytes(const SocketAddress& address) {
    const auto text = [](const auto& bytes) { return std::string(bytes.begin(), bytes.end()); };
    return address.is_ipv6() ? text(address.ipv6()) : text(address.ipv4());
}

SocketAddress ipv4_peer(std::string_view bytes) {
    const auto part = [&](std::size_t i) { return unsigned{static_cast<unsigned char>(bytes[i])}; };
    const std::string text = print("%u.%u.%u.%u", part(0), part(1), part(2), part(3));
    return SocketAddress::from_literal(text, get_number<std::uint16_t>(bytes, 4)).value_or(SocketAddress());
}

SocketAddress ipv6_peer(std::string_view bytes) {
    std::string text;
    for (std::size_t i = 0; i < 16; i += 2) {
        text += print(i == 0 ? "%x" : ":%x", unsigned{get_number<std::uint16_t>(bytes, i)});
    }
    return SocketAddress::from_literal(text, get_number<std::uint16_t>(bytes, 16)).value_or(SocketAddress());
}

}  // namespace vantlow
