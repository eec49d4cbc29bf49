// Peers tell each other of others: the exchange of peers (BEP 11), nodes of the hash table (BEP 5).
#include "bt/peer_store.h"
#include "bt/swarm/swarm.h"

namespace vantlow {

// The peer at the address where others can call it; none where that is unknown.
std::optional<ExchangedPeer> Swarm::named(const PeerLink& link) {
    ExchangedPeer peer{link.address()};
    if (link.is_incoming()) {
        if (link.listens_at == 0) return std::nullopt;
        peer.address.set_port(link.listens_at);
    } else {
        peer.flags |= ExchangedPeer::reachable;
    }
    if (link.holepunch_number != 0) peer.flags |= ExchangedPeer::punches;
    if (link.is_over_datagrams()) peer.flags |= ExchangedPeer::datagrams;
    if (link.is_seed || link.wants_nothing) peer.flags |= ExchangedPeer::seed;
    return peer;
}

void Swarm::exchange_some(Clock::time_point now) {
    if (!options_.exchanges) return;
    std::vector<std::pair<std::uint32_t, ExchangedPeer>> live;
    for (const auto& [number, link] : links_) {
        if (!link->is_live) continue;
        if (const auto peer = named(*link)) live.emplace_back(number, *peer);
    }
    for (const auto& [number, link] : links_) {
        if (link->exchange_number == 0 || !link->exchange.is_due(now)) continue;
        std::vector<ExchangedPeer> others;
        for (const auto& [other, peer] : live) {
            if (other != number && may_know(link->address(), peer.address)) others.push_back(peer);
        }
        if (const auto news = link->exchange.news(others, now))
            link->send(build_exchange_message(link->exchange_number, *news));
    }
}

bool Swarm::is_worth(const PeerLink& by, const ExchangedPeer& peer) const {
    if (!may_know(by.address(), peer.address)) return false;
    // Two that want nothing have nothing to say to each other.
    if (wants_nothing_ && (peer.flags & ExchangedPeer::seed) != 0) return false;
    auto own = by.local_address();
    if (own) own->set_port(options_.port);
    return !own || peer_text(*own) != peer_text(peer.address);
}

void Swarm::take_node_port(const PeerLink& link, std::uint16_t port) {
    SocketAddress node = link.address();
    node.set_port(port);
    if (options_.node_port != 0 && port != 0) listener_.met_node(node);
}

void Swarm::take_exchange(PeerLink& link, std::string_view payload) {
    if (!link.exchange.may_take(network_.now())) return;
    const auto peers = parse_exchange_message(payload);
    if (!peers) return;
    std::vector<SocketAddress> addresses;
    link.named.clear();
    for (const ExchangedPeer& peer : peers->added) {
        if (!is_worth(link, peer)) continue;
        addresses.push_back(peer.address);
        if ((peer.flags & ExchangedPeer::punches) != 0) link.named.push_back(peer.address);
    }
    // Those are called at the next tick: this is in the middle of a message.
    exchanged_ += candidates_.add_named(addresses);
}

}  // namespace vantlow
