// A set of a torrent's pieces.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vantlow {

/// Pieces by their numbers, from 0 to size() - 1; in memory as on the wire (BEP 3, "bitfield"): eight a byte,
/// the first in the highest bit.
class PieceSet {
  public:
    PieceSet() = default;
    explicit PieceSet(std::uint32_t size) : size_(size), bytes_((std::size_t{size} + 7) / 8, '\0') {}

    /// None where the length is not that of `size` pieces, or a bit behind the last piece is set.
    static std::optional<PieceSet> from_wire(std::string_view bytes, std::uint32_t size);
    [[nodiscard]] const std::string& wire() const noexcept { return bytes_; }

    [[nodiscard]] std::uint32_t size() const noexcept { return size_; }
    [[nodiscard]] std::uint32_t count() const noexcept { return count_; }
    [[nodiscard]] bool is_all() const noexcept { return count_ == size_; }
    /// `piece` is below size() here and in what follows.
    [[nodiscard]] bool has(std::uint32_t piece) const noexcept {
        return (static_cast<unsigned char>(bytes_[piece / 8]) & bit_of(piece)) != 0;
    }
    /// Returns whether it was not in the set before.
    bool add(std::uint32_t piece) noexcept;
    /// Returns whether it was in the set.
    bool remove(std::uint32_t piece) noexcept;
    void add_all() noexcept;
    /// The first piece from this number on that both have; none where none is. The other is of the same size.
    [[nodiscard]] std::optional<std::uint32_t> next_common(const PieceSet& other,
                                                           std::uint32_t from) const noexcept;

    friend bool operator==(const PieceSet&, const PieceSet&) = default;

  private:
    static constexpr unsigned char bit_of(std::uint32_t piece) noexcept {
        return static_cast<unsigned char>(0x80U >> (piece % 8));
    }

    std::uint32_t size_ = 0;
    std::uint32_t count_ = 0;
    std::string bytes_;
};

}  // namespace vantlow
