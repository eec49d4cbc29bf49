// The messages of peers to a swarm, and its answers.
#include <algorithm>
#include <utility>

#include "base/text.h"
#include "bt/extension.h"
#include "bt/swarm/swarm.h"

namespace vantlow {
namespace {

using MessageKind = PeerMessage::Kind;

// Requests of one peer that may wait (the "reqq" of BEP 10 that others assume).
constexpr std::size_t most_wanted = 500;
constexpr int most_read_at_once = 4;
// Neighbours are read together: each reading costs the way to the disk's threads and back.
constexpr std::uint32_t most_read_together = 4 * block_size;
// Blocks that nobody asked for, beside those that a cancel came too late for.
constexpr int most_useless = 200;
constexpr std::size_t most_hints = 64;
// Output that a peer does not take: the blocks that it is given, and a megabyte of everything else.
constexpr std::size_t most_unsent = 2 * 1024 * 1024;
constexpr std::size_t metadata_part = 16 * 1024;
constexpr std::size_t longest_version = 256;
// A peer that sends a piece in so many seconds gets whole ones.
constexpr double fast_piece_seconds = 10;

/// Messages that move something on, or are counted by who takes them.
bool moves_on(MessageKind kind) {
    switch (kind) {
        case MessageKind::have:
        case MessageKind::bitfield:
        case MessageKind::have_all:
        case MessageKind::have_none:
        case MessageKind::request:
        case MessageKind::piece:
        case MessageKind::cancel:
        case MessageKind::reject:
        case MessageKind::extended:
        case MessageKind::hash_request:
            return true;
        default:
            return false;
    }
}

}  // namespace

bool Swarm::is_block(const PeerMessage& message) const noexcept {
    if (message.piece >= picker_.pieces() || message.length == 0) return false;
    const std::uint32_t length = picker_.length_of(message.piece);
    // Where files begin with pieces, some peers ask for whole blocks behind a file's end as well.
    const std::uint32_t reach = torrent_.hashes != nullptr ? torrent_.piece_length : length;
    return message.begin < length && message.length <= reach - message.begin;
}

// A peer is left that breaks the rules, that floods, or that asks and does not take the answers.
bool Swarm::heard(PeerLink& link, const PeerMessage& message) {
    if (!moves_on(message.kind) && !link.patience.take(network_.now())) return false;
    return understand(link, message) && link.unsent() <= most_unsent;
}

bool Swarm::understand(PeerLink& link, const PeerMessage& message) {
    const PieceBlock block{message.piece, message.begin, message.length};
    switch (message.kind) {
        case MessageKind::choke:
            if (!link.chokes_us) take_choke(link);
            return true;
        case MessageKind::unchoke:
            if (std::exchange(link.chokes_us, false)) fill(link);
            return true;
        case MessageKind::interested:
        case MessageKind::not_interested:
            if (link.is_interested == (message.kind == MessageKind::interested)) return true;
            link.is_interested = !link.is_interested;
            choke_and_unchoke();
            return true;
        case MessageKind::have:
            return take_have(link, message.piece);
        case MessageKind::bitfield:
        case MessageKind::have_all:
        case MessageKind::have_none:
            return take_pieces(link, message);
        case MessageKind::request:
            return take_request(link, message);
        case MessageKind::piece:
            return take_block(link, message);
        case MessageKind::cancel:
            take_cancel(link, block);
            return true;
        case MessageKind::reject:
            return take_reject(link, block);
        case MessageKind::allowed_fast:
        case MessageKind::suggest:
            take_hint(link, message);
            return true;
        case MessageKind::extended:
            return take_extended(link, message);
        case MessageKind::port:
            take_node_port(link, message.port);
            return true;
        case MessageKind::hash_request:
            return take_hash_request(link, message.range);
        case MessageKind::hashes:
        case MessageKind::hash_reject:
        case MessageKind::keep_alive:
        case MessageKind::unknown:
            return true;
    }
    return true;
}

// All that the peer has, which it says once and before anything else of the kind.
bool Swarm::take_pieces(PeerLink& link, const PeerMessage& message) {
    if (link.told_pieces) return false;
    if (message.kind != MessageKind::bitfield && !link.speaks_fast) return false;
    link.told_pieces = true;
    if (message.kind == MessageKind::bitfield) {
        auto has = PieceSet::from_wire(message.data, picker_.pieces());
        if (!has) return false;
        link.has = *std::move(has);
    } else if (message.kind == MessageKind::have_all) {
        link.has.add_all();
    }
    link.is_seed = link.has.is_all();
    if (link.is_seed) {
        picker_.add_seed();
    } else {
        picker_.add_peer(link.has);
    }
    update_interest(link);
    return true;
}

bool Swarm::take_have(PeerLink& link, std::uint32_t piece) {
    if (piece >= picker_.pieces()) return false;
    link.told_pieces = true;
    if (!link.has.add(piece)) return link.patience.take(network_.now());
    picker_.add_one(piece);
    if (!link.we_are_interested && picker_.is_wanted(piece)) update_interest(link);
    return true;
}

// Pieces that the peer would rather give, or gives even while it chokes us (BEP 6).
void Swarm::take_hint(PeerLink& link, const PeerMessage& message) {
    const bool is_allowed = message.kind == MessageKind::allowed_fast;
    auto& hints = is_allowed ? link.allowed : link.suggested;
    const bool is_known = std::find(hints.begin(), hints.end(), message.piece) != hints.end();
    if (message.piece >= picker_.pieces() || is_known) return;
    if (hints.size() == most_hints) hints.erase(hints.begin());
    hints.push_back(message.piece);
    if (is_allowed && link.chokes_us) fill(link);
}

void Swarm::update_interest(PeerLink& link) {
    const bool wants = picker_.is_interesting(link.has);
    if (wants != link.we_are_interested) {
        link.we_are_interested = wants;
        link.send({.kind = wants ? MessageKind::interested : MessageKind::not_interested});
    }
    fill(link);
}

void Swarm::take_choke(PeerLink& link) {
    link.chokes_us = true;
    if (link.speaks_fast) return;  // it refuses one by one
    picker_.lost_all(link.number());
    link.owes.clear();
    link.window.dropped();
}

// Asks the peer for as much as it may owe.
void Swarm::fill(PeerLink& link) {
    if (!link.is_live || !link.we_are_interested || !runs_) return;
    if (link.chokes_us && (!link.speaks_fast || link.allowed.empty())) return;
    const Clock::time_point now = network_.now();
    const std::uint32_t depth = link.window.depth(now);
    if (link.owes.size() >= depth) return;
    Picker::Asker asker{.peer = link.number(), .has = link.has};
    asker.is_fast = link.window.rate() * fast_piece_seconds > torrent_.piece_length;
    asker.is_idle = link.owes.empty();
    if (link.chokes_us) asker.only = link.allowed;
    asker.rather = link.suggested;
    const auto blocks = picker_.pick(asker, depth - link.owes.size());
    for (const PieceBlock& block : blocks) {
        link.owes.push_back(block);
        link.send({.kind = MessageKind::request,
                   .piece = block.piece,
                   .begin = block.begin,
                   .length = block.length});
    }
    if (!blocks.empty()) link.window.asked(now);
}

bool Swarm::take_block(PeerLink& link, const PeerMessage& message) {
    const PieceBlock block{message.piece, message.begin, message.length};
    const auto at = std::find(link.owes.begin(), link.owes.end(), block);
    if (at == link.owes.end()) {
        wasted_ += message.length;
        return ++link.useless < most_useless;
    }
    link.owes.erase(at);
    link.window.came(block.length, static_cast<std::uint32_t>(link.owes.size()), network_.now());
    link.received += block.length;
    const Picker::Arrival arrival = picker_.arrived(link.number(), block);
    if (arrival.is_new) {
        downloaded_ += block.length;
        disk_.write(block, std::as_bytes(std::span(message.data)),
                    [this, piece = block.piece](const Result& why) { not_kept(piece, why); });
    } else {
        wasted_ += block.length;
    }
    if (arrival.other) {
        if (const auto other = links_.find(*arrival.other); other != links_.end()) {
            std::erase(other->second->owes, block);
            if (other->second->owes.empty()) other->second->window.dropped();
            cancel(*other->second, block);
            fill(*other->second);
        }
    }
    if (arrival.completes) check(block.piece);
    fill(link);
    return true;
}

void Swarm::check(std::uint32_t piece) {
    disk_.check(piece, blames_.awaits(piece),
                [this, piece](const SwarmDisk::Check& result) { checked(piece, result); });
}

void Swarm::checked(std::uint32_t piece, const SwarmDisk::Check& check) {
    if (!runs_) return;
    if (!check.result.ok()) return not_kept(piece, check.result);
    if (!check.is_good) {
        const auto givers = picker_.failed(piece);
        for (const Picker::Peer giver : givers) {
            if (const auto at = links_.find(giver); at != links_.end())
                givers_.insert_or_assign(giver, at->second->address());
        }
        blame(blames_.wrong(piece, givers, check.blocks));
        for (auto& [number, link] : links_) fill(*link);
        return;
    }
    for (const Picker::Peer guilty : blames_.right(piece, check.blocks)) blame(guilty);
    picker_.add_have(piece);
    for (auto& [number, link] : links_) {
        if (!link->is_live) continue;
        link->send({.kind = MessageKind::have, .piece = piece});
        if (link->we_are_interested) update_interest(*link);
    }
    listener_.piece_came(piece);
    if (runs_ && picker_.is_done()) listener_.completed();
}

// A piece may have come whose files are not chosen any more.
void Swarm::not_kept(std::uint32_t piece, const Result& why) {
    if (why.code != Code::unsupported) return fail(why);
    picker_.forget(piece);
}

void Swarm::blame(Picker::Peer peer) {
    const auto giver = givers_.find(peer);
    if (peer == 0 || giver == givers_.end()) return;
    const SocketAddress address = giver->second;
    if (candidates_.is_banned(address)) return;  // for another piece
    candidates_.ban(address);
    candidates_.broke_rules(address);
    if (const auto at = links_.find(peer); at != links_.end()) drop(*at->second, true);
    listener_.banned(address);
}

void Swarm::fail(const Result& why) {
    if (!runs_) return;
    stop();
    listener_.failed(why);
}

bool Swarm::take_reject(PeerLink& link, const PieceBlock& block) {
    const auto at = std::find(link.owes.begin(), link.owes.end(), block);
    if (at == link.owes.end()) return link.patience.take(network_.now());
    link.owes.erase(at);
    if (link.owes.empty()) link.window.dropped();
    picker_.lost(link.number(), block);
    std::erase(link.allowed, block.piece);  // it is not asked for the same again
    if (!link.chokes_us) return true;
    for (auto& [number, other] : links_) {
        if (other.get() != &link) fill(*other);
    }
    return true;
}

bool Swarm::take_request(PeerLink& link, const PeerMessage& message) {
    if (!is_block(message) || message.length > PeerReader::longest_block) return false;
    const PieceBlock block{message.piece, message.begin, message.length};
    const bool is_given =
        !link.choked_by_us && picker_.have().has(block.piece) && link.wants.size() < most_wanted;
    if (!is_given) {
        refuse(link, block);
        return link.patience.take(network_.now());
    }
    link.wants.push_back(block);
    give(link);
    return true;
}

void Swarm::refuse(PeerLink& link, const PieceBlock& block) {
    if (!link.speaks_fast) return;
    link.send(
        {.kind = MessageKind::reject, .piece = block.piece, .begin = block.begin, .length = block.length});
}

void Swarm::cancel(PeerLink& link, const PieceBlock& block) {
    link.send(
        {.kind = MessageKind::cancel, .piece = block.piece, .begin = block.begin, .length = block.length});
    --link.useless;  // the block may be on its way
}

void Swarm::take_cancel(PeerLink& link, const PieceBlock& block) {
    const auto at = std::find(link.wants.begin(), link.wants.end(), block);
    if (at == link.wants.end()) return;
    link.wants.erase(at);
    refuse(link, block);
}

void Swarm::drained(PeerLink& link) {
    give(link);
}

// Reads blocks for the peer while there is room for them on their way out.
void Swarm::give(PeerLink& link) {
    while (!link.wants.empty() && link.reading < most_read_at_once &&
           link.unsent() < PeerLink::enough_unsent) {
        PieceBlock run{link.wants.front().piece, link.wants.front().begin, 0};
        std::vector<PieceBlock> blocks;
        while (!link.wants.empty()) {
            const PieceBlock& next = link.wants.front();
            if (next.piece != run.piece || next.begin != run.begin + run.length) break;
            if (!blocks.empty() && run.length + next.length > most_read_together) break;
            run.length += next.length;
            blocks.push_back(next);
            link.wants.pop_front();
        }
        ++link.reading;
        run.length = std::min(run.length, picker_.length_of(run.piece) - run.begin);
        disk_.read(run, [this, number = link.number(), blocks = std::move(blocks)](const auto& bytes) {
            gave(number, blocks, bytes);
        });
    }
}

void Swarm::gave(std::uint32_t number, const std::vector<PieceBlock>& blocks,
                 const Outcome<std::string>& bytes) {
    const auto at = links_.find(number);
    if (!runs_ || at == links_.end()) return;
    if (!bytes) return fail(bytes.failure());
    PeerLink& link = *at->second;
    --link.reading;
    // Behind a file's end there are zeros.
    std::size_t asked = 0;
    for (const PieceBlock& block : blocks) asked += block.length;
    const std::string filled = asked > bytes->size() ? *bytes + std::string(asked - bytes->size(), '\0') : "";
    std::string_view rest = filled.empty() ? *bytes : filled;
    for (const PieceBlock& block : blocks) {
        link.send_block(block, rest.substr(0, block.length));
        rest.remove_prefix(block.length);
        link.given += block.length;
        uploaded_ += block.length;
    }
    give(link);
}

bool Swarm::take_extended(PeerLink& link, const PeerMessage& message) {
    if (message.extended != own_metadata_number && !link.patience.take(network_.now())) return false;
    if (message.extended == 0) {
        const auto handshake = parse_extension_handshake(message.data);
        if (!handshake) return false;
        // A later handshake may say only what is new.
        const auto take_number = [](std::uint8_t& number, const std::optional<std::int64_t>& said) {
            if (said) number = *said > 0 && *said < 256 ? static_cast<std::uint8_t>(*said) : std::uint8_t{0};
        };
        take_number(link.metadata_number, handshake->metadata_number);
        take_number(link.exchange_number, handshake->exchange_number);
        take_number(link.holepunch_number, handshake->holepunch_number);
        const std::int64_t port = handshake->port.value_or(0);
        if (port > 0 && port < 65536) link.listens_at = static_cast<std::uint16_t>(port);
        link.wants_nothing = handshake->upload_only;
        if (!handshake->version.empty())
            link.version = to_utf8(handshake->version).substr(0, longest_version);
        return true;
    }
    if (message.extended == own_exchange_number && options_.exchanges) {
        take_exchange(link, message.data);
        return true;
    }
    if (message.extended == own_holepunch_number) return take_holepunch(link, message.data);
    if (message.extended != own_metadata_number) return true;
    const auto request = parse_metadata_message(message.data);
    if (!request) return false;
    const bool is_request = request->type == static_cast<std::int64_t>(MetadataType::request);
    return (is_request && give_metadata(link, request->piece)) || link.patience.take(network_.now());
}

// Digests of pieces (BEP 52). Likewise: what a peer does not take away is refused.
bool Swarm::take_hash_request(PeerLink& link, const HashRange& range) {
    const bool has_room = torrent_.hashes != nullptr && link.unsent() <= PeerLink::enough_unsent;
    const auto hashes = has_room ? torrent_.hashes->answer(range) : std::nullopt;
    if (hashes) {
        link.send({.kind = MessageKind::hashes, .range = range, .data = *hashes});
        return true;
    }
    link.send({.kind = MessageKind::hash_reject, .range = range});
    return link.patience.take(network_.now());
}

// A part of the torrent's "info" value (BEP 9). What a peer does not take away is refused, so that it cannot
// make this side hold many times its size. False: it is not given.
bool Swarm::give_metadata(PeerLink& link, std::int64_t part) {
    if (link.metadata_number == 0) return false;
    const auto parts = static_cast<std::int64_t>((torrent_.info.size() + metadata_part - 1) / metadata_part);
    MetadataMessage answer;
    answer.piece = part;
    const bool is_given = part >= 0 && part < parts && link.unsent() <= PeerLink::enough_unsent;
    if (!is_given) {
        answer.type = static_cast<std::int64_t>(MetadataType::reject);
    } else {
        answer.type = static_cast<std::int64_t>(MetadataType::data);
        answer.total_size = static_cast<std::int64_t>(torrent_.info.size());
        answer.data = torrent_.info.substr(static_cast<std::size_t>(part) * metadata_part, metadata_part);
    }
    link.send(build_metadata_message(link.metadata_number, answer));
    return is_given;
}

}  // namespace vantlow
