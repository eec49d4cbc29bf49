#include "bt/peer_store.h"

#include <algorithm>

#include "base/text.h"
#include "bt/wire.h"

namespace vantlow {
namespace {

// At port 0 nobody listens.
bool can_be_a_peer(const SocketAddress& address) noexcept {
    return address.port() != 0 && reach_of(address) != Reach::nowhere;
}

Reach reach_of_ipv4(const std::array<std::uint8_t, 4>& bytes) noexcept {
    if (bytes[0] == 0 || bytes[0] >= 224) return Reach::nowhere;
    if (bytes[0] == 127) return Reach::machine;
    const bool is_near = bytes[0] == 10 || (bytes[0] == 172 && bytes[1] >> 4U == 1) ||
                         (bytes[0] == 192 && bytes[1] == 168) || (bytes[0] == 169 && bytes[1] == 254) ||
                         (bytes[0] == 100 && bytes[1] >> 6U == 1);
    return is_near ? Reach::network : Reach::everywhere;
}

Reach reach_of_ipv6(const std::array<std::uint8_t, 16>& bytes) noexcept {
    if (bytes[0] == 0xFF) return Reach::nowhere;
    const auto end_of_zeroes = std::find_if(bytes.begin(), bytes.end(), [](auto byte) { return byte != 0; });
    const auto zeroes = end_of_zeroes - bytes.begin();
    if (zeroes == 15 && bytes[15] == 1) return Reach::machine;
    if (zeroes >= 10) return Reach::nowhere;
    const bool is_near = bytes[0] >> 1U == 0xFC >> 1U || (bytes[0] == 0xFE && bytes[1] >> 6U == 2);
    return is_near ? Reach::network : Reach::everywhere;
}

}  // namespace

Reach reach_of(const SocketAddress& address) noexcept {
    if (address.size() == 0) return Reach::nowhere;
    return address.is_ipv6() ? reach_of_ipv6(address.ipv6()) : reach_of_ipv4(address.ipv4());
}

bool may_know(const SocketAddress& by, const SocketAddress& named) noexcept {
    return can_be_a_peer(named) && reach_of(named) >= reach_of(by);
}

PeerStore::Key PeerStore::key_of(const SocketAddress& address) {
    Key key = address_bytes(address);
    put_number(key, address.port());
    return key;
}

void PeerStore::add_own(const SocketAddress& address) {
    const Key key = key_of(address);
    const MutexLock guard(mutex_);
    if (is_own_key(key)) return;
    own_.push_back(key);
    if (std::binary_search(known_.begin(), known_.end(), key)) ++own_among_them_;
}

bool PeerStore::is_own(const SocketAddress& address) const {
    const Key key = key_of(address);
    const MutexLock guard(mutex_);
    return is_own_key(key);
}

bool PeerStore::is_own_key(const Key& key) const {
    return std::find(own_.begin(), own_.end(), key) != own_.end();
}

std::size_t PeerStore::add(std::span<const SocketAddress> peers) {
    const MutexLock guard(mutex_);
    std::size_t added = 0;
    for (const SocketAddress& peer : peers) {
        if (!can_be_a_peer(peer)) continue;
        Key key = key_of(peer);
        if (is_own_key(key)) continue;
        const auto place = std::lower_bound(known_.begin(), known_.end(), key);
        if (place != known_.end() && *place == key) continue;
        known_.insert(place, std::move(key));
        peers_.push_back(peer);
        ++added;
        while (peers_.size() - own_among_them_ > most_peers) forget_oldest();
    }
    return added;
}

void PeerStore::forget_oldest() {
    const Key key = key_of(peers_.front());
    if (is_own_key(key)) --own_among_them_;
    known_.erase(std::lower_bound(known_.begin(), known_.end(), key));
    peers_.pop_front();
    ++forgotten_;
}

std::vector<SocketAddress> PeerStore::peers() const {
    std::size_t told = 0;
    return fresh(told);
}

std::vector<SocketAddress> PeerStore::fresh(std::size_t& told) const {
    const MutexLock guard(mutex_);
    std::vector<SocketAddress> peers;
    for (told = std::max(told, forgotten_); told < forgotten_ + peers_.size(); ++told) {
        const SocketAddress& peer = peers_[told - forgotten_];
        if (!is_own_key(key_of(peer))) peers.push_back(peer);
    }
    return peers;
}

std::size_t PeerStore::size() const {
    const MutexLock guard(mutex_);
    return peers_.size() - own_among_them_;
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
