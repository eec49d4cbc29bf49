// The order in which a torrent's pieces are begun.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <random>

#include "bt/peer/piece_set.h"

namespace vantlow {

/// Pieces by a rank that their owner gives, the lowest first, and by chance among those of one rank, or else
/// by their numbers. A torrent may have millions of pieces, every peer that comes or goes changes the ranks
/// of those that it has, and the lowest are often pieces that the next peer lacks: so each rank has a set,
/// which is changed by a bit and searched many pieces at a time.
class PieceOrder {
  public:
    /// `seed` decides about chance.
    explicit PieceOrder(std::uint32_t seed) : random_(seed) {}

    /// Empty again, for pieces of numbers below `pieces`. `by_number`: no chance.
    void begin_anew(std::uint32_t pieces, bool by_number);
    void add(std::uint32_t piece, std::uint32_t rank);
    /// The piece is there, with this rank.
    void remove(std::uint32_t piece, std::uint32_t rank);

    /// The first of these that is taken; none where none is.
    template <class Takes>
    [[nodiscard]] std::optional<std::uint32_t> first(const PieceSet& of, const Takes& takes) {
        for (const auto& [rank, set] : ranks_) {
            const std::uint32_t start = by_number_ ? 0 : static_cast<std::uint32_t>(random_() % pieces_);
            for (auto piece = set.next_common(of, start); piece; piece = set.next_common(of, *piece + 1)) {
                if (takes(*piece)) return piece;
            }
            for (auto piece = set.next_common(of, 0); piece && *piece < start;
                 piece = set.next_common(of, *piece + 1)) {
                if (takes(*piece)) return piece;
            }
        }
        return std::nullopt;
    }

  private:
    std::minstd_rand random_;
    std::uint32_t pieces_ = 0;
    bool by_number_ = false;
    std::map<std::uint32_t, PieceSet> ranks_;  ///< none of them empty
};

}  // namespace vantlow
