#include "bt/peer/piece_set.h"

#include <bit>

namespace vantlow {

std::optional<PieceSet> PieceSet::from_wire(std::string_view bytes, std::uint32_t size) {
    PieceSet set(size);
    if (bytes.size() != set.bytes_.size()) return std::nullopt;
    set.bytes_ = bytes;
    for (const char byte : bytes)
        set.count_ += static_cast<std::uint32_t>(std::popcount(static_cast<unsigned char>(byte)));
    std::uint32_t inside = 0;
    for (std::uint32_t piece = size - size % 8; piece < size; ++piece) inside += set.has(piece) ? 1U : 0U;
    const unsigned last = size % 8 == 0 ? 0U : static_cast<unsigned char>(bytes.back());
    if (static_cast<std::uint32_t>(std::popcount(last)) != inside) return std::nullopt;
    return set;
}

bool PieceSet::add(std::uint32_t piece) noexcept {
    if (has(piece)) return false;
    bytes_[piece / 8] = static_cast<char>(static_cast<unsigned char>(bytes_[piece / 8]) | bit_of(piece));
    ++count_;
    return true;
}

bool PieceSet::remove(std::uint32_t piece) noexcept {
    if (!has(piece)) return false;
    bytes_[piece / 8] = static_cast<char>(static_cast<unsigned char>(bytes_[piece / 8]) & ~bit_of(piece));
    --count_;
    return true;
}

void PieceSet::add_all() noexcept {
    for (std::uint32_t piece = 0; piece < size_; ++piece) add(piece);
}

}  // namespace vantlow
