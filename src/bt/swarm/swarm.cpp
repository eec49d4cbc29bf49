#include "bt/swarm/swarm.h"

#include <algorithm>
#include <utility>

#include "bt/extension.h"
#include "bt/peer_store.h"

namespace vantlow {
namespace {

using namespace std::chrono_literals;
using MessageKind = PeerMessage::Kind;

constexpr Clock::duration tick_time = 1s;
constexpr Clock::duration greeting_time = 20s;  ///< connecting, and both handshakes
constexpr Clock::duration silence = 150s;  ///< of a peer: it should have sent something every two minutes
constexpr Clock::duration keep_alive_after = 100s;
constexpr Clock::duration sign_of_life = 5s;  ///< of a peer that has called a second time

}  // namespace

Swarm::Swarm(net::Network& network, SwarmDisk& disk, SwarmListener& listener, SwarmTorrent torrent,
             const LinkLimits& limits, SwarmOptions options)
    : network_(network),
      disk_(disk),
      listener_(listener),
      torrent_(std::move(torrent)),
      limits_(limits),
      options_(std::move(options)),
      crypto_{options_.library, options_.crypto, torrent_.info_hash},
      picker_(torrent_.total, torrent_.piece_length, options_.seed, torrent_.shorter),
      choker_(options_.seed),
      ticks_(network.timers()),
      introductions_(network.timers()) {}

Swarm::~Swarm() {
    stop();
}

void Swarm::start() {
    runs_ = true;
    was_done_ = wants_nothing_ = picker_.is_done();
    ticks_.start(network_.now(), [this] { tick(); });
}

void Swarm::stop() noexcept {
    runs_ = false;
    ticks_.cancel();
    introductions_.cancel();
    for (auto& [number, link] : links_) {
        link->close();
        gone_.push_back(std::move(link));
    }
    links_.clear();
    count_links();
}

void Swarm::add_peers(std::span<const SocketAddress> addresses) {
    candidates_.add(addresses);
    if (runs_) connect_some();
}

std::size_t Swarm::add_named(std::span<const SocketAddress> addresses) {
    const std::size_t added = candidates_.add_named(addresses);
    if (runs_) connect_some();
    return added;
}

// Connections from within the program are shown at addresses that are nobody's.
void Swarm::set_filter(std::shared_ptr<const IpFilter> filter) {
    candidates_.set_filter(std::move(filter));
    drop_outside([this](const PeerLink& link) { return candidates_.is_blocked(link.address()); });
}

void Swarm::begin_anew() {
    drop_outside([](const PeerLink&) { return true; });
    candidates_.forgive();
    connect_some();
}

// Not the web seeds, which are shown at addresses of nowhere.
void Swarm::drop_outside(const std::function<bool(const PeerLink&)>& is_meant) {
    std::vector<std::uint32_t> numbers;
    for (const auto& [number, link] : links_) {
        if (reach_of(link->address()) != Reach::nowhere && is_meant(*link)) numbers.push_back(number);
    }
    for (const std::uint32_t number : numbers) {
        const auto at = links_.find(number);
        if (at == links_.end()) continue;
        at->second->do_not_call_again();
        drop(*at->second, false);
    }
}

void Swarm::choose(std::span<const PiecePriority> wanted, bool sequential) {
    for (std::uint32_t piece = 0; piece < picker_.pieces(); ++piece)
        picker_.set_priority(piece, wanted[piece]);
    picker_.set_sequential(sequential);
    for (auto& [number, link] : links_) {
        if (!link->is_live) continue;
        take_back_unwanted(*link);
        update_interest(*link);
    }
}

void Swarm::take_back_unwanted(PeerLink& link) {
    std::deque<PieceBlock> kept;
    for (const PieceBlock& block : std::exchange(link.owes, {})) {
        if (picker_.priority(block.piece) != PiecePriority::skip) {
            kept.push_back(block);
            continue;
        }
        picker_.lost(link.number(), block);
        cancel(link, block);
    }
    link.owes = std::move(kept);
    if (link.owes.empty()) link.window.dropped();
}

std::vector<SwarmPeer> Swarm::look() const {
    std::vector<SwarmPeer> peers;
    for (const auto& [number, link] : links_) {
        peers.push_back({.address = link->address(),
                         .is_live = link->is_live,
                         .gives = !link->chokes_us && !link->owes.empty(),
                         .received = link->window.rate(),
                         .given = link->give_rate});
    }
    return peers;
}

void Swarm::visit(const std::function<void(const PeerLink&)>& see) const {
    for (const auto& [number, link] : links_) see(*link);
}

PeerLink& Swarm::add_link(const SocketAddress& address, bool is_incoming, const LinkCrypto& crypto) {
    const std::uint32_t number = ++last_number_;
    LinkOwner& owner = *this;
    auto link = std::make_unique<PeerLink>(number, address, is_incoming, network_, owner, limits_, crypto);
    link->has = PieceSet(picker_.pieces());
    PeerLink& added = *links_.emplace(number, std::move(link)).first->second;
    count_links();
    return added;
}

bool Swarm::has_room() const noexcept {
    if (links_.size() >= options_.most_peers) return false;
    return options_.all == nullptr || *options_.all < options_.most_of_all;
}

void Swarm::count_links() noexcept {
    if (options_.all == nullptr) return;
    *options_.all += links_.size() - counted_;  // also where it is less: the numbers wrap around
    counted_ = links_.size();
}

void Swarm::connect_some() {
    const auto is_half_open = [](const auto& entry) { return !entry.second->is_live; };
    auto half_open = static_cast<std::size_t>(std::count_if(links_.begin(), links_.end(), is_half_open));
    while (has_room() && half_open < options_.most_half_open) {
        const auto address = candidates_.take(network_.now());
        if (!address) return;
        call(*address, crypto_.first_call());
        ++half_open;
    }
}

void Swarm::call(const SocketAddress& address, CallForm form, bool at_once) {
    PeerLink& link = add_link(address, false, crypto_);
    link.call(own_handshake(), form, at_once);
}

void Swarm::take_incoming(std::unique_ptr<net::Stream> stream) {
    const auto address = stream->peer_address();
    if (!runs_ || !address || !has_room() || candidates_.is_banned(*address)) return;
    if (candidates_.is_blocked(*address)) {
        ++turned_away_;
        return;
    }
    ++callers_;
    PeerLink& link = add_link(*address, true, crypto_);
    link.take_call(std::move(stream));
}

void Swarm::take_inner(std::unique_ptr<net::Stream> stream) {
    const auto address = stream->peer_address();
    if (!runs_ || !address) return;
    PeerLink& link = add_link(*address, true, {});
    link.take_call(std::move(stream));
}

PeerHandshake Swarm::own_handshake() const {
    PeerHandshake own;
    own.torrent = torrent_.info_hash;
    own.peer_id = torrent_.peer_id;
    own.extensions = true;
    own.fast = true;
    own.dht = options_.node_port != 0;
    own.second = torrent_.hashes != nullptr;
    return own;
}

// Of two connections to the same peer both sides keep the same one: where both called, the one that the lower
// id began. Where one of them called twice it has often lost the first connection, and this side has not
// heard of that (its interface went away, say): the first one must show some life.
bool Swarm::is_kept(const PeerLink& link, const std::string& peer_id) {
    const auto at = std::find_if(links_.begin(), links_.end(), [&](const auto& entry) {
        return entry.second->is_live && entry.second->peer_id == peer_id;
    });
    if (at == links_.end()) return true;
    PeerLink& other = *at->second;
    const bool began_here = !link.is_incoming();
    if (link.is_incoming() == other.is_incoming()) {
        if (network_.now() - other.last_heard() < sign_of_life) return false;
    } else if (began_here != (torrent_.peer_id < peer_id)) {
        return false;
    }
    drop(other, false);
    return true;
}

bool Swarm::greeted(PeerLink& link, const PeerHandshake& handshake) {
    if (handshake.torrent != torrent_.info_hash) return false;
    if (handshake.peer_id == torrent_.peer_id) {
        if (!link.is_incoming()) candidates_.ban(link.address());  // this side itself
        return false;
    }
    if (!is_kept(link, handshake.peer_id)) return false;
    if (link.is_incoming()) link.send(own_handshake().bytes());  // the one that called has said its own first
    link.is_live = true;
    link.peer_id = handshake.peer_id;
    link.speaks_fast = handshake.fast;
    const PieceSet& have = picker_.have();
    if (handshake.fast && (have.is_all() || have.count() == 0)) {
        link.send({.kind = have.is_all() ? MessageKind::have_all : MessageKind::have_none});
    } else if (have.count() > 0) {
        link.send({.kind = MessageKind::bitfield, .data = have.wire()});
    }
    if (handshake.dht && options_.node_port != 0)
        link.send({.kind = MessageKind::port, .port = options_.node_port});
    link.speaks_extensions = handshake.extensions;
    if (handshake.extensions) greet_by_extension(link);
    return true;
}

void Swarm::greet_by_extension(PeerLink& link) const {
    link.send(build_extension_handshake(static_cast<std::uint32_t>(torrent_.info.size()), options_.port,
                                        options_.version, options_.exchanges, wants_nothing_,
                                        options_.punches));
}

// Says that nothing more is wanted, or something again. While files are being chosen nothing may be wanted
// for a moment.
void Swarm::tell_wishes() {
    const bool is_done = picker_.is_done();
    const bool lasts = std::exchange(was_done_, is_done) == is_done;
    if (!lasts || wants_nothing_ == is_done) return;
    wants_nothing_ = is_done;
    if (picker_.have().is_all()) return;  // they know
    for (auto& [number, link] : links_) {
        if (link->is_live && link->speaks_extensions) greet_by_extension(*link);
    }
}

// Takes everything back that the peer was asked for, and out of the swarm.
void Swarm::forget(PeerLink& link) {
    picker_.lost_all(link.number());
    if (link.is_seed) {
        picker_.remove_seed();
    } else {
        picker_.remove_peer(link.has);
    }
    const auto at = links_.find(link.number());
    if (at == links_.end()) return;
    gone_.push_back(std::move(at->second));
    links_.erase(at);
    count_links();
}

void Swarm::ended(PeerLink& link, const Result& why) {
    link.close();
    if (link.is_live && why.code == Code::unsupported) candidates_.broke_rules(link.address());
    if (const auto form = link.next_call(); form && runs_) {
        const SocketAddress address = link.address();
        forget(link);
        return call(address, *form);
    }
    if (!link.is_incoming()) {
        const bool brought = link.received > 0 || link.given > 0;
        if (link.is_live && brought) {
            candidates_.ended(link.address(), network_.now());
        } else {
            candidates_.refused(link.address(), network_.now());
        }
    }
    const bool was_unreachable = !link.is_incoming() && !link.is_live;
    const SocketAddress address = link.address();
    forget(link);
    if (was_unreachable) ask_for_introduction(address);
    if (!runs_) return;
    // Others may be asked at once for the blocks that it owed.
    for (auto& [number, other] : links_) fill(*other);
}

void Swarm::drop(PeerLink& link, bool for_good) {
    if (for_good) candidates_.ban(link.address());
    ended(link, Code::transient);
}

bool Swarm::may_receive() {
    if (!disk_.is_full()) return true;
    if (!awaits_room_) {
        awaits_room_ = true;
        disk_.when_room([this] { room_again(); });
    }
    return false;
}

void Swarm::room_again() {
    awaits_room_ = false;
    for (auto& [number, link] : links_) {
        link->window.listened_not(network_.now());
        link->go_on();
    }
}

void Swarm::tick() {
    gone_.clear();
    const Clock::time_point now = network_.now();
    std::vector<std::uint32_t> numbers;
    for (const auto& [number, link] : links_) numbers.push_back(number);
    for (const std::uint32_t number : numbers) {
        if (const auto at = links_.find(number); at != links_.end()) look_after(*at->second, now);
    }
    tell_wishes();
    choke_and_unchoke();
    exchange_some(now);
    connect_some();
    ticks_.start(now + tick_time, [this] { tick(); });
}

void Swarm::look_after(PeerLink& link, Clock::time_point now) {
    const bool is_silent = now - link.last_heard() > silence;
    const bool is_late = !link.is_live && now - link.came > greeting_time;
    // Two that want nothing have nothing to say to each other.
    const bool is_needless = wants_nothing_ && (link.has.is_all() || link.wants_nothing);
    if (is_silent || is_late || is_needless) return drop(link, false);
    if (!link.is_live) return;
    if (now - link.last_sent() > keep_alive_after) link.send({.kind = MessageKind::keep_alive});
    link.give_rate += (static_cast<double>(link.given - link.given_before) - link.give_rate) / 5;
    link.given_before = link.given;
    // While the disk is behind nobody is listened to.
    if (!awaits_room_ && link.window.is_snubbed(now)) {
        // Others may be asked for what it does not send; what comes late after all is taken.
        const bool is_given_up = link.window.is_given_up(now);
        while (link.owes.size() > (is_given_up ? 0U : 1U)) {
            picker_.lost(link.number(), link.owes.back());
            cancel(link, link.owes.back());
            link.owes.pop_back();
        }
        if (is_given_up) {
            link.window.take_back();
            // The others come first.
            for (auto& [number, other] : links_) {
                if (other.get() != &link) fill(*other);
            }
        }
    }
    fill(link);
}

void Swarm::choke_and_unchoke() {
    std::vector<Choker::Peer> peers;
    const bool gives = picker_.is_done();
    for (const auto& [number, link] : links_) {
        if (!link->is_live) continue;
        peers.push_back({.peer = number,
                         .is_interested = link->is_interested,
                         .is_snubbed = !awaits_room_ && link->window.is_snubbed(network_.now()),
                         .is_unchoked = !link->choked_by_us,
                         .rate = gives ? link->give_rate : link->window.rate(),
                         .came = link->came});
    }
    const auto chosen = choker_.choose(peers, options_.upload_slots, network_.now());
    for (const Choker::Peer& peer : peers) {
        PeerLink& link = *links_.at(peer.peer);
        const bool unchoke = std::find(chosen.begin(), chosen.end(), peer.peer) != chosen.end();
        if (unchoke == !link.choked_by_us) continue;
        link.choked_by_us = !unchoke;
        link.send({.kind = unchoke ? MessageKind::unchoke : MessageKind::choke});
        if (unchoke) continue;
        for (const PieceBlock& block : std::exchange(link.wants, {})) refuse(link, block);
    }
}

}  // namespace vantlow
