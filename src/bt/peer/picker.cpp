#include "bt/peer/picker.h"

#include <algorithm>

#include "bt/peer/peer_wire.h"

namespace vantlow {
namespace {

// So many pieces are taken at random before rarity counts.
constexpr std::uint32_t taken_at_random = 4;

}  // namespace

Picker::Picker(std::int64_t total, std::uint32_t piece_length, std::uint32_t seed,
               std::vector<ShorterPiece> shorter)
    : total_(total), piece_length_(piece_length), shorter_(std::move(shorter)), random_(seed), order_(seed) {
    const auto pieces = static_cast<std::uint32_t>((total + piece_length - 1) / piece_length);
    have_ = wanted_ = PieceSet(pieces);
    wanted_.add_all();
    facts_.resize(pieces);
    set_sequential(false);
}

std::uint32_t Picker::length_of(std::uint32_t piece) const noexcept {
    const auto at = std::ranges::lower_bound(shorter_, piece, {}, &ShorterPiece::piece);
    if (at != shorter_.end() && at->piece == piece) return at->length;
    const std::int64_t begin = std::int64_t{piece} * piece_length_;
    return static_cast<std::uint32_t>(std::min<std::int64_t>(piece_length_, total_ - begin));
}

std::uint32_t Picker::blocks_of(std::uint32_t piece) const noexcept {
    return (length_of(piece) + block_size - 1) / block_size;
}

PieceBlock Picker::block_at(std::uint32_t piece, std::uint32_t number) const noexcept {
    const std::uint32_t begin = number * block_size;
    return {piece, begin, std::min(block_size, length_of(piece) - begin)};
}

std::uint32_t Picker::rank_of(std::uint32_t piece) const noexcept {
    const Facts& facts = facts_[piece];
    const auto level =
        static_cast<std::uint32_t>(PiecePriority::first) - static_cast<std::uint32_t>(facts.priority);
    return is_sequential_ ? level << 16U : level << 16U | facts.availability;
}

// Changes what decides about a piece's place in the order of choice.
template <class Change>
void Picker::rerank(std::uint32_t piece, const Change& change) {
    if (is_wanted(piece) && !facts_[piece].is_begun) order_.remove(piece, rank_of(piece));
    change(facts_[piece]);
    if (is_wanted(piece) && !facts_[piece].is_begun) order_.add(piece, rank_of(piece));
}

void Picker::set_priority(std::uint32_t piece, PiecePriority priority) {
    rerank(piece, [&](Facts& facts) {
        facts.priority = priority;
        if (priority == PiecePriority::skip || have_.has(piece))
            wanted_.remove(piece);
        else
            wanted_.add(piece);
    });
}

void Picker::set_sequential(bool sequential) {
    is_sequential_ = sequential;
    order_.begin_anew(pieces(), sequential);
    for (std::uint32_t piece = 0; piece < pieces(); ++piece) {
        if (is_wanted(piece) && !facts_[piece].is_begun) order_.add(piece, rank_of(piece));
    }
}

void Picker::add_have(std::uint32_t piece) {
    if (have_.has(piece)) return;
    rerank(piece, [&](Facts& facts) {
        have_.add(piece);
        wanted_.remove(piece);
        facts.is_begun = false;
    });
    begun_.erase(piece);
}

void Picker::add_one(std::uint32_t piece) {
    rerank(piece, [](Facts& facts) {
        if (facts.availability < UINT16_MAX) ++facts.availability;
    });
}

void Picker::add_peer(const PieceSet& its) {
    for (std::uint32_t piece = 0; piece < its.size(); ++piece) {
        if (its.has(piece)) add_one(piece);
    }
}

void Picker::remove_peer(const PieceSet& its) {
    for (std::uint32_t piece = 0; piece < its.size(); ++piece) {
        if (!its.has(piece)) continue;
        rerank(piece, [](Facts& facts) {
            if (facts.availability > 0) --facts.availability;
        });
    }
}

bool Picker::is_interesting(const PieceSet& its) const noexcept {
    return wanted_.next_common(its, 0).has_value();
}

bool Picker::may_take(const Asker& asker, std::uint32_t piece) noexcept {
    if (!asker.has.has(piece)) return false;
    return !asker.only || std::find(asker.only->begin(), asker.only->end(), piece) != asker.only->end();
}

std::vector<PieceBlock> Picker::pick(const Asker& asker, std::size_t most) {
    std::vector<PieceBlock> out;
    if (most == 0) return out;
    take_begun(asker, most, false, out);
    if (out.size() < most) begin_some(asker, most, out);
    if (out.size() < most) take_begun(asker, most, true, out);
    if (out.empty() && asker.is_idle) take_owed(asker, out);
    return out;
}

// Blocks of begun pieces that nobody is asked for; of those that a fast peer takes whole only when `foreign`.
void Picker::take_begun(const Asker& asker, std::size_t most, bool foreign, std::vector<PieceBlock>& out) {
    std::vector<std::pair<std::uint32_t, Begun*>> able;
    for (auto& [piece, begun] : begun_) {
        const bool is_foreign = begun.owner != 0 && begun.owner != asker.peer;
        if (begun.free == 0 || is_foreign != foreign || !is_wanted(piece) || !may_take(asker, piece))
            continue;
        if (is_foreign && begun.is_alone) continue;
        able.emplace_back(piece, &begun);
    }
    std::sort(able.begin(), able.end(), [&](const auto& a, const auto& b) {
        const auto key = [&](const auto& one) {
            const bool is_own = one.second->owner == asker.peer;
            return std::tuple(!is_own, -static_cast<int>(facts_[one.first].priority), one.second->free,
                              one.first);
        };
        return key(a) < key(b);
    });
    for (const auto& [piece, begun] : able) {
        if (out.size() >= most) return;
        take_free(asker, piece, *begun, most, out);
    }
}

void Picker::take_free(const Asker& asker, std::uint32_t piece, Begun& begun, std::size_t most,
                       std::vector<PieceBlock>& out) {
    if (begun.is_alone && begun.owner == 0) begun.owner = asker.peer;
    for (std::uint32_t& number = begun.first_free;
         number < begun.blocks.size() && out.size() < most && begun.free > 0; ++number) {
        Owed& block = begun.blocks[number];
        if (block.is_there || block.by[0] != 0) continue;
        block.by[0] = asker.peer;
        --begun.free;
        out.push_back(block_at(piece, number));
    }
}

void Picker::begin(const Asker& asker, std::uint32_t piece, std::size_t most, std::vector<PieceBlock>& out) {
    rerank(piece, [](Facts& facts) { facts.is_begun = true; });
    Begun& begun = begun_[piece];
    begun.blocks.resize(blocks_of(piece));
    begun.free = static_cast<std::uint32_t>(begun.blocks.size());
    if (asker.is_fast) begun.owner = asker.peer;
    take_free(asker, piece, begun, most, out);
}

void Picker::begin_some(const Asker& asker, std::size_t most, std::vector<PieceBlock>& out) {
    for (const std::uint32_t piece : asker.rather) {
        if (out.size() >= most) return;
        const bool is_fresh = piece < pieces() && is_wanted(piece) && !facts_[piece].is_begun;
        if (is_fresh && may_take(asker, piece)) begin(asker, piece, most, out);
    }
    const bool at_random = !is_sequential_ && have_.count() + begun_.size() < taken_at_random;
    if (at_random && pieces() > taken_at_random) begin_at_random(asker, most, out);
    while (out.size() < most) {
        const auto piece = order_.first(asker.has, [&](std::uint32_t each) { return may_take(asker, each); });
        if (!piece) return;
        begin(asker, *piece, most, out);  // it leaves the order with that
    }
}

// Only among those of the highest priority that the peer has: the first in the order says which that is.
void Picker::begin_at_random(const Asker& asker, std::size_t most, std::vector<PieceBlock>& out) {
    const auto best = order_.first(asker.has, [&](std::uint32_t piece) { return may_take(asker, piece); });
    if (!best) return;
    const PiecePriority priority = facts_[*best].priority;
    const auto start = static_cast<std::uint32_t>(random_() % pieces());
    for (std::uint32_t i = 0; i < pieces() && out.size() < most; ++i) {
        const std::uint32_t piece = (start + i) % pieces();
        if (facts_[piece].is_begun || !is_wanted(piece) || facts_[piece].priority != priority) continue;
        if (!may_take(asker, piece)) continue;
        begin(asker, piece, most, out);
        if (have_.count() + begun_.size() >= taken_at_random) return;
    }
}

// One block that another peer owes: the last blocks of a torrent need not wait for the slowest peer.
void Picker::take_owed(const Asker& asker, std::vector<PieceBlock>& out) {
    for (auto& [piece, begun] : begun_) {
        if (!is_wanted(piece) || begun.is_alone || !may_take(asker, piece)) continue;
        for (std::uint32_t number = 0; number < begun.blocks.size(); ++number) {
            Owed& block = begun.blocks[number];
            if (block.is_there || block.by[0] == asker.peer || block.by[1] != 0) continue;
            block.by[1] = asker.peer;
            out.push_back(block_at(piece, number));
            return;
        }
    }
}

Picker::Owed* Picker::find(const PieceBlock& block, Begun*& begun) {
    const auto at = begun_.find(block.piece);
    if (at == begun_.end() || block.begin % block_size != 0) return nullptr;
    const std::uint32_t number = block.begin / block_size;
    if (number >= at->second.blocks.size() || block_at(block.piece, number) != block) return nullptr;
    begun = &at->second;
    return &at->second.blocks[number];
}

Picker::Arrival Picker::arrived(Peer peer, const PieceBlock& block) {
    Begun* begun = nullptr;
    Owed* const owed = find(block, begun);
    if (owed == nullptr || owed->is_there || (owed->by[0] != peer && owed->by[1] != peer)) return {};
    Arrival arrival;
    arrival.is_new = true;
    const Peer other = owed->by[0] == peer ? owed->by[1] : owed->by[0];
    if (other != 0) arrival.other = other;
    owed->is_there = true;
    owed->by = {peer, 0};
    arrival.completes = ++begun->there == begun->blocks.size();
    return arrival;
}

void Picker::lost(Peer peer, const PieceBlock& block) {
    Begun* begun = nullptr;
    Owed* const owed = find(block, begun);
    if (owed == nullptr || owed->is_there) return;
    if (owed->by[0] == peer)
        owed->by[0] = std::exchange(owed->by[1], 0);
    else if (owed->by[1] == peer)
        owed->by[1] = 0;
    else
        return;
    if (owed->by[0] == 0) {
        ++begun->free;
        begun->first_free = std::min(begun->first_free, block.begin / block_size);
    }
    // Another peer gives the rest of a piece that one peer alone was to give: who gave which block is known.
    if (begun->owner == peer) begun->owner = 0;
    // A piece of which nothing is there or owed may as well be begun by another one later.
    if (begun->free == begun->blocks.size() && !begun->is_alone) {
        rerank(block.piece, [](Facts& facts) { facts.is_begun = false; });
        begun_.erase(block.piece);
    }
}

void Picker::lost_all(Peer peer) {
    std::vector<PieceBlock> owed;
    for (auto& [piece, begun] : begun_) {
        if (begun.owner == peer) begun.owner = 0;
        for (std::uint32_t number = 0; number < begun.blocks.size(); ++number) {
            const Owed& block = begun.blocks[number];
            if (!block.is_there && (block.by[0] == peer || block.by[1] == peer))
                owed.push_back(block_at(piece, number));
        }
    }
    for (const PieceBlock& block : owed) lost(peer, block);
}

std::vector<Picker::Peer> Picker::failed(std::uint32_t piece) {
    std::vector<Peer> givers;
    const auto at = begun_.find(piece);
    if (at == begun_.end()) return givers;
    Begun& begun = at->second;
    for (Owed& block : begun.blocks) {
        givers.push_back(block.by[0]);
        block = {};
    }
    begun.there = begun.first_free = 0;
    begun.free = static_cast<std::uint32_t>(begun.blocks.size());
    begun.owner = 0;
    begun.is_alone = true;
    return givers;
}

void Picker::forget(std::uint32_t piece) {
    rerank(piece, [](Facts& facts) { facts.is_begun = false; });
    begun_.erase(piece);
}

}  // namespace vantlow
