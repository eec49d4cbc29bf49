#include "bt/peer/piece_set.h"

#include <bit>
#include <cstring>

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
    bytes_.assign(bytes_.size(), '\xFF');
    if (size_ % 8 != 0) bytes_.back() = static_cast<char>(0xFF00U >> (size_ % 8));
    count_ = size_;
}

// Eight bytes at a time: a torrent may have millions of pieces.
std::optional<std::uint32_t> PieceSet::next_common(const PieceSet& other, std::uint32_t from) const noexcept {
    for (; from < size_ && from % 8 != 0; ++from) {
        if (has(from) && other.has(from)) return from;
    }
    if (from >= size_) return std::nullopt;  // within the last byte, perhaps, which is searched
    std::size_t at = from / 8;
    for (; at + sizeof(std::uint64_t) <= bytes_.size(); at += sizeof(std::uint64_t)) {
        std::uint64_t mine = 0;
        std::uint64_t its = 0;
        std::memcpy(&mine, bytes_.data() + at, sizeof mine);
        std::memcpy(&its, other.bytes_.data() + at, sizeof its);
        if ((mine & its) != 0) break;
    }
    for (; at < bytes_.size(); ++at) {
        const auto common = static_cast<unsigned char>(static_cast<unsigned char>(bytes_[at]) &
                                                       static_cast<unsigned char>(other.bytes_[at]));
        if (common != 0)
            return static_cast<std::uint32_t>(at * 8) + static_cast<std::uint32_t>(std::countl_zero(common));
    }
    return std::nullopt;
}

}  // namespace vantlow
