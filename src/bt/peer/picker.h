// Which blocks of a torrent a peer is asked for: a plain object without threads, sockets or time.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <random>
#include <span>
#include <vector>

#include "bt/hash_tree.h"
#include "bt/peer/piece_order.h"
#include "bt/peer/piece_set.h"

namespace vantlow {

/// How much a piece is wanted: the highest of the files that it is part of; `first` comes before all of them.
enum class PiecePriority : std::uint8_t { skip, low, normal, high, first };

/// A part of a piece as peers are asked for it.
struct PieceBlock {
    std::uint32_t piece = 0;
    std::uint32_t begin = 0;  ///< bytes into the piece
    std::uint32_t length = 0;

    friend auto operator<=>(const PieceBlock&, const PieceBlock&) = default;
};

/// Knows which pieces are there, begun, wanted and rare, and hands their blocks out. The order: pieces that
/// are nearest to complete, then by priority, rarity and chance. The first pieces are taken at random, since
/// the rarest come slowly and others want something soon. A peer that is fast gets whole pieces. At the end,
/// when every missing block is owed already, an idle peer is asked for one that another one owes: each by two
/// peers at most.
class Picker {
  public:
    /// A number for a peer that its owner gives; 0 is none.
    using Peer = std::uint32_t;

    /// `piece_length` above 0; `total`: bytes of all pieces, of which the last may be shorter; at most 2^32 -
    /// 1 pieces. `seed` decides about chance. `shorter`: ascending. All pieces are missing and of normal
    /// priority.
    Picker(std::int64_t total, std::uint32_t piece_length, std::uint32_t seed,
           std::vector<ShorterPiece> shorter = {});

    [[nodiscard]] std::uint32_t pieces() const noexcept { return static_cast<std::uint32_t>(facts_.size()); }
    [[nodiscard]] std::uint32_t length_of(std::uint32_t piece) const noexcept;
    [[nodiscard]] const PieceSet& have() const noexcept { return have_; }
    /// Every wanted piece is there.
    [[nodiscard]] bool is_done() const noexcept { return wanted_.count() == 0; }
    /// Wanted pieces that are missing.
    [[nodiscard]] std::uint32_t missing() const noexcept { return wanted_.count(); }

    void set_priority(std::uint32_t piece, PiecePriority priority);
    [[nodiscard]] PiecePriority priority(std::uint32_t piece) const noexcept {
        return facts_[piece].priority;
    }
    /// True: pieces in their order instead of by rarity, so that a film can be looked at early.
    void set_sequential(bool sequential);
    /// The piece is on the disk, and right.
    void add_have(std::uint32_t piece);

    // How many peers have a piece. What is added is taken back in the same form.
    void add_peer(const PieceSet& its);
    void remove_peer(const PieceSet& its);
    /// A peer that has everything costs one number instead of one for each piece.
    void add_seed() noexcept { ++seeds_; }
    void remove_seed() noexcept { --seeds_; }
    void add_one(std::uint32_t piece);
    [[nodiscard]] std::uint32_t availability(std::uint32_t piece) const noexcept {
        return facts_[piece].availability + seeds_;
    }
    /// Whether a peer with these has a piece that is wanted and missing.
    [[nodiscard]] bool is_interesting(const PieceSet& its) const noexcept;
    /// The piece is wanted and missing.
    [[nodiscard]] bool is_wanted(std::uint32_t piece) const noexcept { return wanted_.has(piece); }

    /// Who asks.
    struct Asker {
        Peer peer = 0;
        const PieceSet& has;
        bool is_fast = false;  ///< it gets whole pieces
        bool is_idle = false;  ///< it owes nothing: at the end it may be asked for what others owe
        std::optional<std::span<const std::uint32_t>> only{};  ///< of these alone (BEP 6, allowed fast)
        std::span<const std::uint32_t> rather{};               ///< of these first (BEP 6, suggest)
    };
    /// Up to `most` blocks, which the peer owes from now on.
    std::vector<PieceBlock> pick(const Asker& asker, std::size_t most);

    struct Arrival {
        bool is_new = false;          ///< false: nobody asked for it, or it is there: the bytes are dropped
        bool completes = false;       ///< the piece has all its blocks now and can be checked
        std::optional<Peer> other{};  ///< who owes the same block, and need not send it any more
    };
    /// A block came from a peer.
    Arrival arrived(Peer peer, const PieceBlock& block);
    /// The peer does not send it: it refused, choked, was too slow or left.
    void lost(Peer peer, const PieceBlock& block);
    /// The same for all that it owes; what it was alone with is free for others.
    void lost_all(Peer peer);
    /// The check failed: all blocks are missing again, and one peer alone is asked for them, so that it shows
    /// who gave the wrong one. Returns who gave which block, by number.
    std::vector<Peer> failed(std::uint32_t piece);
    /// Its blocks are missing again, and nobody is to blame: they could not be kept.
    void forget(std::uint32_t piece);
    [[nodiscard]] std::size_t begun() const noexcept { return begun_.size(); }
    /// Blocks of it are there or owed, and it is not whole yet.
    [[nodiscard]] bool is_begun(std::uint32_t piece) const noexcept { return facts_[piece].is_begun; }

  private:
    struct Facts {
        std::uint16_t availability = 0;
        PiecePriority priority = PiecePriority::normal;
        bool is_begun = false;
    };
    struct Owed {
        bool is_there = false;
        std::array<Peer, 2> by{};  ///< who was asked for it; of one that is there, the first gave it
    };
    struct Begun {
        std::vector<Owed> blocks;
        std::uint32_t there = 0;
        std::uint32_t free = 0;        ///< nobody is asked for them
        std::uint32_t first_free = 0;  ///< none of those before it is
        Peer owner = 0;                ///< a fast peer, which takes it whole
        bool is_alone = false;         ///< nobody but the owner is asked
    };
    [[nodiscard]] std::uint32_t rank_of(std::uint32_t piece) const noexcept;
    template <class Change>
    void rerank(std::uint32_t piece, const Change& change);
    [[nodiscard]] PieceBlock block_at(std::uint32_t piece, std::uint32_t number) const noexcept;
    [[nodiscard]] std::uint32_t blocks_of(std::uint32_t piece) const noexcept;
    Owed* find(const PieceBlock& block, Begun*& begun);
    static bool may_take(const Asker& asker, std::uint32_t piece) noexcept;
    void take_begun(const Asker& asker, std::size_t most, bool foreign, std::vector<PieceBlock>& out);
    void take_free(const Asker& asker, std::uint32_t piece, Begun& begun, std::size_t most,
                   std::vector<PieceBlock>& out);
    void begin(const Asker& asker, std::uint32_t piece, std::size_t most, std::vector<PieceBlock>& out);
    void begin_some(const Asker& asker, std::size_t most, std::vector<PieceBlock>& out);
    void begin_at_random(const Asker& asker, std::size_t most, std::vector<PieceBlock>& out);
    void take_owed(const Asker& asker, std::vector<PieceBlock>& out);

    std::int64_t total_;
    std::uint32_t piece_length_;
    const std::vector<ShorterPiece> shorter_;
    std::minstd_rand random_;
    PieceSet have_;
    std::vector<Facts> facts_;
    PieceSet wanted_;   ///< and missing
    PieceOrder order_;  ///< of those that are wanted, missing and not begun
    std::map<std::uint32_t, Begun> begun_;
    std::uint32_t seeds_ = 0;
    bool is_sequential_ = false;
};

}  // namespace vantlow
