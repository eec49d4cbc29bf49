#include "bt/swarm/metadata_fetch.h"

#include <algorithm>
#include <utility>

#include "bt/extension.h"
#include "bt/peer_exchange.h"
#include "bt/peer_store.h"

namespace vantlow {
namespace {

using namespace std::chrono_literals;

constexpr Clock::duration tick_time = 1s;
constexpr Clock::duration greeting_time = 20s;  ///< until a peer has said what it has
constexpr Clock::duration part_time = 20s;      ///< between two parts
constexpr Clock::duration turn = 30s;           ///< of a slow peer, while others wait
constexpr std::int64_t slow = 2048;             ///< bytes a second
constexpr std::int64_t part_size = 16 * 1024;
constexpr std::int64_t most_owed = 8;   ///< parts that a peer is asked for ahead
constexpr std::size_t most_ranges = 8;  ///< of digests, likewise

std::int64_t length_of(std::int64_t size, std::int64_t part) {
    return std::min(part_size, size - part * part_size);
}

}  // namespace

MetadataFetch::MetadataFetch(net::Network& network, std::string peer_id, const LinkLimits& limits,
                             const LinkCrypto& crypto, Done done, const Options& options)
    : network_(network),
      crypto_(crypto),
      peer_id_(std::move(peer_id)),
      limits_(limits),
      options_(options),
      done_(std::move(done)),
      ticks_(network.timers()) {}

void MetadataFetch::start() {
    runs_ = true;
    ticks_.start(network_.now(), [this] { tick(); });
    if (!options_.info.empty()) take_info(options_.info);
}

void MetadataFetch::stop() noexcept {
    runs_ = false;
    ticks_.cancel();
    for (auto& [number, asked] : links_) {
        asked.link->close();
        gone_.push_back(std::move(asked.link));
    }
    links_.clear();
    held_ = 0;
}

void MetadataFetch::add_peers(std::span<const SocketAddress> addresses) {
    candidates_.add(addresses);
    if (runs_) connect_some();
}

void MetadataFetch::add_named(std::span<const SocketAddress> addresses) {
    candidates_.add_named(addresses);
    if (runs_) connect_some();
}

void MetadataFetch::set_filter(std::shared_ptr<const IpFilter> filter) {
    candidates_.set_filter(std::move(filter));
    std::vector<std::uint32_t> numbers;
    for (const auto& [number, asked] : links_) {
        if (!candidates_.is_blocked(asked.link->address())) continue;
        asked.link->do_not_call_again();
        numbers.push_back(number);
    }
    for (const std::uint32_t number : numbers) leave(number, false);
}

void MetadataFetch::connect_some() {
    while (links_.size() < most_peers) {
        const auto address = candidates_.take(network_.now());
        if (!address) return;
        call(*address, crypto_.first_call());
    }
}

MetadataFetch::Asked& MetadataFetch::add_link(const SocketAddress& address, bool is_incoming) {
    const std::uint32_t number = ++last_number_;
    LinkOwner& owner = *this;
    Asked& asked = links_[number];
    asked.link = std::make_unique<PeerLink>(number, address, is_incoming, network_, owner, limits_, crypto_);
    return asked;
}

void MetadataFetch::call(const SocketAddress& address, CallForm form) {
    add_link(address, false).link->call(own_handshake(), form);
}

void MetadataFetch::take_incoming(std::unique_ptr<net::Stream> stream) {
    const auto address = stream->peer_address();
    if (!runs_ || !address || links_.size() >= most_peers) return;
    if (candidates_.is_banned(*address) || candidates_.is_blocked(*address)) return;
    add_link(*address, true).link->take_call(std::move(stream));
}

PeerHandshake MetadataFetch::own_handshake() const {
    PeerHandshake own;
    own.torrent = crypto_.torrent;
    own.peer_id = peer_id_;
    own.extensions = true;
    own.second = options_.is_second;
    return own;
}

bool MetadataFetch::greeted(PeerLink& link, const PeerHandshake& handshake) {
    const bool is_self = handshake.peer_id == peer_id_;
    if (is_self && !link.is_incoming()) candidates_.ban(link.address());
    if (handshake.torrent != crypto_.torrent || is_self || !handshake.extensions) return false;
    link.is_live = true;
    if (link.is_incoming()) link.send(own_handshake().bytes());
    link.send(build_extension_handshake(0, options_.port, u"Vantlow", options_.exchanges));
    if (const auto at = links_.find(link.number()); book_ && at != links_.end()) {
        at->second.came = network_.now();
        ask_for_hashes(at->second);
    }
    return true;
}

// A peer that has no pieces to give may have the value: all of its other messages are read and mean nothing.
bool MetadataFetch::heard(PeerLink& link, const PeerMessage& message) {
    const auto at = links_.find(link.number());
    if (at == links_.end()) return true;
    const bool is_answer =
        message.kind == PeerMessage::Kind::hashes || message.kind == PeerMessage::Kind::hash_reject;
    if (book_ && is_answer) return take_hashes(at->second, message);
    if (message.kind != PeerMessage::Kind::extended) return true;
    if (message.extended == 0) return take_handshake(at->second, message.data);
    if (message.extended == own_exchange_number && options_.exchanges) take_exchange(link, message.data);
    if (message.extended != own_metadata_number) return true;
    if (take_metadata(at->second, message.data)) return true;
    leave(link.number(), true);
    return false;
}

bool MetadataFetch::take_handshake(Asked& asked, std::string_view payload) {
    const auto handshake = parse_extension_handshake(payload);
    if (!handshake) return false;
    const std::int64_t number = handshake->metadata_number.value_or(0);
    const std::int64_t size = handshake->metadata_size.value_or(0);
    if (book_) return true;
    // It may fetch the value itself and is asked again later.
    if (number <= 0 || number > 255 || size <= 0 || size > largest) return false;
    asked.link->metadata_number = static_cast<std::uint8_t>(number);
    if (asked.size == 0) asked.size = size;
    ask_some();
    return true;
}

// Those are called at the next tick: this is in the middle of a message.
void MetadataFetch::take_exchange(PeerLink& link, std::string_view payload) {
    if (!link.exchange.may_take(network_.now())) return;
    const auto peers = parse_exchange_message(payload);
    if (!peers) return;
    std::vector<SocketAddress> addresses;
    for (const ExchangedPeer& peer : peers->added) {
        if (may_know(link.address(), peer.address)) addresses.push_back(peer.address);
    }
    candidates_.add_named(addresses);
}

void MetadataFetch::ask_some() {
    if (book_) {
        for (auto& [number, asked] : links_) ask_for_hashes(asked);
        return;
    }
    const auto is_asked = [](const auto& entry) { return entry.second.is_asked; };
    auto count = static_cast<std::size_t>(std::count_if(links_.begin(), links_.end(), is_asked));
    for (auto& [number, asked] : links_) {
        if (count >= most_asked) return;
        if (asked.is_asked || asked.size == 0) continue;
        asked.is_asked = true;
        asked.began = asked.came = network_.now();
        ask_on(asked);
        ++count;
    }
}

void MetadataFetch::ask_on(Asked& asked) {
    while (asked.owed < most_owed && asked.next * part_size < asked.size) {
        MetadataMessage request;
        request.type = static_cast<std::int64_t>(MetadataType::request);
        request.piece = asked.next++;
        ++asked.owed;
        asked.link->send(build_metadata_message(asked.link->metadata_number, request));
    }
}

// False: the peer breaks the protocol, and is left for good.
bool MetadataFetch::take_metadata(Asked& asked, std::string_view payload) {
    auto message = parse_metadata_message(payload);
    if (!message) return false;
    switch (static_cast<MetadataType>(message->type)) {
        case MetadataType::request:
            refuse(*asked.link, message->piece);
            return true;
        case MetadataType::data:
            return take_part(asked, message->piece, std::move(message->data));
        case MetadataType::reject:
            leave(asked.link->number(), false);
            return true;
    }
    return true;
}

void MetadataFetch::refuse(PeerLink& link, std::int64_t part) {
    if (link.metadata_number == 0 || link.unsent() > PeerLink::enough_unsent) return;
    MetadataMessage answer;
    answer.type = static_cast<std::int64_t>(MetadataType::reject);
    answer.piece = part;
    link.send(build_metadata_message(link.metadata_number, answer));
}

bool MetadataFetch::take_part(Asked& asked, std::int64_t part, std::string data) {
    if (book_) return true;  // too late
    const bool was_asked = part >= 0 && part < asked.next && !asked.parts.contains(part);
    if (!was_asked || static_cast<std::int64_t>(data.size()) != length_of(asked.size, part)) return false;
    if (!make_room(asked)) return true;
    asked.held += static_cast<std::int64_t>(data.size());
    held_ += static_cast<std::int64_t>(data.size());
    asked.parts.emplace(part, std::move(data));
    asked.came = network_.now();
    --asked.owed;
    if (asked.held == asked.size) return complete(asked);
    ask_on(asked);
    return true;
}

// Room for one more part. The peer of which least is there makes it, and is asked again later. False: that is
// this one, which is left.
bool MetadataFetch::make_room(const Asked& asked) {
    const auto rank = [&](const Asked& of) {
        const bool gives_none = of.held == 0 && &of != &asked;
        return std::pair(gives_none, of.held);
    };
    const auto has_less = [&](const auto& a, const auto& b) { return rank(a.second) < rank(b.second); };
    while (held_ + part_size > largest && held_ > asked.held) {
        const auto least = std::min_element(links_.begin(), links_.end(), has_less);
        const bool is_this = &least->second == &asked;
        leave(least->first, false);
        if (is_this) return false;
    }
    return true;
}

bool MetadataFetch::complete(Asked& asked) {
    std::string info;
    info.reserve(static_cast<std::size_t>(asked.size));
    for (const auto& [part, bytes] : asked.parts) info += bytes;
    if (!is_known_by(info, crypto_.torrent)) return false;
    take_info(std::move(info));
    return true;
}

// The digests are asked for where the value tells of any: what is wrong with it otherwise its owner finds
// out.
void MetadataFetch::take_info(std::string info) {
    info_ = std::move(info);
    const auto content = read_torrent_content(info_, crypto_.torrent);
    if (content) book_.emplace(*content, options_.layers);
    if (!book_ || book_->is_done()) return finish();
    for (auto& [number, asked] : links_) {
        held_ -= std::exchange(asked.held, 0);
        asked.parts.clear();
        asked.came = network_.now();
        ask_for_hashes(asked);
    }
}

// Told from a timer, because a link may be in the middle of a call.
void MetadataFetch::finish() {
    stop();
    ticks_.start(network_.now(), [this] {
        const Done done = std::move(done_);
        done(std::move(info_), book_ ? book_->layers() : PieceLayers());
    });
}

void MetadataFetch::ask_for_hashes(Asked& asked) {
    while (asked.link->is_live && asked.ranges.size() < most_ranges) {
        const auto range = book_->next();
        if (!range) return;
        if (asked.ranges.empty()) asked.came = network_.now();
        asked.ranges.push_back(*range);
        asked.link->send({.kind = PeerMessage::Kind::hash_request, .range = *range});
    }
}

// False: the link has ended.
bool MetadataFetch::take_hashes(Asked& asked, const PeerMessage& message) {
    const std::uint32_t number = asked.link->number();
    const auto at = std::ranges::find(asked.ranges, message.range);
    if (at == asked.ranges.end() || message.kind == PeerMessage::Kind::hash_reject) {
        leave(number, false);
        return false;
    }
    const HashRange range = *at;
    asked.ranges.erase(at);
    asked.came = network_.now();
    if (!book_->take(range, message.data)) {
        leave(number, true);
        return false;
    }
    if (book_->is_done()) {
        finish();
        return true;
    }
    ask_for_hashes(asked);
    return true;
}

void MetadataFetch::leave(std::uint32_t number, bool for_good) {
    const auto at = links_.find(number);
    if (at == links_.end()) return;
    PeerLink& link = *at->second.link;
    if (for_good) {
        candidates_.ban(link.address());
        candidates_.broke_rules(link.address());
        ++liars_;
    }
    ended(link, Code::transient);
}

void MetadataFetch::ended(PeerLink& link, const Result&) {
    link.close();
    const auto at = links_.find(link.number());
    if (at == links_.end()) return;
    const auto form = runs_ ? link.next_call() : std::nullopt;
    const SocketAddress address = link.address();
    if (!form && !link.is_incoming()) candidates_.refused(link.address(), network_.now());
    held_ -= at->second.held;
    for (const HashRange& range : at->second.ranges) book_->lost(range);
    gone_.push_back(std::move(at->second.link));
    links_.erase(at);
    if (form) call(address, *form);
}

bool MetadataFetch::is_slow(const Asked& asked, bool others_wait) const {
    const Clock::time_point now = network_.now();
    // Of digests nothing but the peers' answers is waited for: who owes none makes room after the same time.
    if (book_) return now - (asked.link->is_live ? asked.came : asked.link->came) > part_time;
    if (!asked.is_asked) return asked.size == 0 && now - asked.link->came > greeting_time;
    if (now - asked.came > part_time) return true;
    const double seconds = std::chrono::duration<double>(now - asked.began).count();
    return others_wait && now - asked.began > turn && static_cast<double>(asked.held) < slow * seconds;
}

void MetadataFetch::tick() {
    gone_.clear();
    const bool others_wait = std::any_of(links_.begin(), links_.end(), [](const auto& entry) {
        return !entry.second.is_asked && entry.second.size > 0;
    });
    std::vector<std::uint32_t> slow_ones;
    for (const auto& [number, asked] : links_) {
        if (is_slow(asked, others_wait)) slow_ones.push_back(number);
    }
    for (const std::uint32_t number : slow_ones) leave(number, false);
    ask_some();
    connect_some();
    ticks_.start(network_.now() + tick_time, [this] { tick(); });
}

}  // namespace vantlow
