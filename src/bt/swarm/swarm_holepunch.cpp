// Introductions (BEP 55): this side asks for them, follows them, and introduces others to each other.
#include <algorithm>

#include "bt/extension.h"
#include "bt/peer_store.h"
#include "bt/swarm/swarm.h"

namespace vantlow {

using Introduction = HolepunchMessage::Kind;
using Error = HolepunchMessage::Error;

// A peer that cannot be called may have been named by one that is connected to it. Each is asked once.
void Swarm::ask_for_introduction(const SocketAddress& to) {
    if (!options_.punches || !runs_) return;
    for (auto& [number, link] : links_) {
        if (link->holepunch_number == 0 || std::erase(link->named, to) == 0) continue;
        return link->send(build_holepunch_message(link->holepunch_number, {Introduction::rendezvous, to}));
    }
}

bool Swarm::take_holepunch(PeerLink& link, std::string_view payload) {
    const auto message = parse_holepunch_message(payload);
    if (!message) return false;
    if (!options_.punches || message->kind == Introduction::error) return true;
    if (!link.introductions.take(network_.now())) return true;
    if (message->kind == Introduction::rendezvous) {
        introduce(link, message->peer);
    } else {
        follow_introduction(link, message->peer);
    }
    return true;
}

// The address at which somebody else may call the peer by uTP.
std::optional<SocketAddress> Swarm::reached_at(const PeerLink& link) {
    if (link.is_over_datagrams()) return link.address();
    const auto peer = named(link);
    return peer ? std::optional(peer->address) : std::nullopt;
}

// Both call each other at the same time, which opens both their routers.
void Swarm::introduce(PeerLink& link, const SocketAddress& to) {
    const auto refuse_it = [&](Error error) {
        if (link.holepunch_number != 0)
            link.send(build_holepunch_message(link.holepunch_number, {Introduction::error, to, error}));
    };
    const auto own = reached_at(link);
    if (!own || link.holepunch_number == 0) return refuse_it(Error::no_such_peer);
    if (*own == to || link.address() == to) return refuse_it(Error::no_self);
    const auto at = std::find_if(links_.begin(), links_.end(), [&](const auto& entry) {
        const auto reached = reached_at(*entry.second);
        return entry.second->is_live && (entry.second->address() == to || (reached && *reached == to));
    });
    if (at == links_.end()) return refuse_it(Error::not_connected);
    PeerLink& other = *at->second;
    if (!may_know(link.address(), to) || !may_know(other.address(), *own))
        return refuse_it(Error::no_such_peer);
    if (other.holepunch_number == 0) return refuse_it(Error::no_support);
    other.send(build_holepunch_message(other.holepunch_number, {Introduction::connect, *own}));
    link.send(build_holepunch_message(link.holepunch_number, {Introduction::connect, to}));
}

// They are called from a timer, because the link is in the middle of a message.
void Swarm::follow_introduction(const PeerLink& link, const SocketAddress& to) {
    const bool is_connected = std::any_of(links_.begin(), links_.end(), [&](const auto& entry) {
        return entry.second->is_live && entry.second->address() == to;
    });
    if (is_connected || !is_worth(link, {to}) || introduced_.size() >= options_.most_half_open) return;
    introduced_.push_back(to);
    introductions_.start(network_.now(), [this] { call_introduced(); });
}

void Swarm::call_introduced() {
    for (const SocketAddress& peer : std::exchange(introduced_, {})) {
        if (has_room() && candidates_.take_this(peer)) call(peer, crypto_.first_call(), true);
    }
}

}  // namespace vantlow
