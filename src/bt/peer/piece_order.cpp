#include "bt/peer/piece_order.h"

namespace vantlow {

void PieceOrder::begin_anew(std::uint32_t pieces, bool by_number) {
    pieces_ = pieces;
    by_number_ = by_number;
    ranks_.clear();
}

void PieceOrder::add(std::uint32_t piece, std::uint32_t rank) {
    ranks_.try_emplace(rank, pieces_).first->second.add(piece);
}

void PieceOrder::remove(std::uint32_t piece, std::uint32_t rank) {
    const auto at = ranks_.find(rank);
    at->second.remove(piece);
    if (at->second.count() == 0) ranks_.erase(at);
}

}  // namespace vantlow
