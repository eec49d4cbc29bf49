// The pieces of a row of bytes, and the digests that they must have.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "base/digest.h"

namespace vantlow {

/// The root of a tree of SHA-256 digests over blocks of 16 KiB (BEP 52).
using MerkleRoot = std::array<std::byte, 32>;

/// The SHA-256 digest of these bytes: of a block, a leaf of such a tree.
MerkleRoot sha256_of(std::span<const std::byte> bytes);

/// The node above two neighbours.
MerkleRoot parent_of(const MerkleRoot& left, const MerkleRoot& right);

/// The root over so many bytes that are zero: a whole number of blocks, of which there is a power of two.
MerkleRoot root_of_zeros(std::int64_t bytes);

/// The known digests of one piece. A piece is good when every digest that is known matches.
struct PieceHash {
    std::vector<std::byte> sha1;  ///< of all of its bytes (BEP 3); empty: not known
    /// The root over the bytes that belong to a file, of which the piece begins with the first `merkle_bytes`
    /// (what follows is padding); the tree has `merkle_leaves` leaves, a power of two, those without bytes
    /// zero.
    std::optional<MerkleRoot> merkle;
    std::int64_t merkle_bytes = 0;
    std::int64_t merkle_leaves = 0;
};

/// Tells the hash of each piece; it must not change while a storage is checked against it. Called from any
/// thread.
class PieceHashSource {
  public:
    PieceHashSource() = default;
    PieceHashSource(const PieceHashSource&) = delete;
    PieceHashSource& operator=(const PieceHashSource&) = delete;
    virtual ~PieceHashSource() = default;
    [[nodiscard]] virtual PieceHash hash_of(std::int64_t piece) const = 0;
    /// Bytes that fill the piece up at its end: they are in no digest, and are neither fetched nor written.
    [[nodiscard]] virtual std::int64_t padding_of(std::int64_t piece) const {
        static_cast<void>(piece);
        return 0;
    }
    /// Where the piece's own bytes end among all bytes of the files.
    [[nodiscard]] std::int64_t end_of(std::int64_t piece, std::int64_t piece_length,
                                      std::int64_t total) const {
        return std::min((piece + 1) * piece_length - padding_of(piece), total);
    }
};

/// The digests of a piece, made as its bytes come, in their order. One thread at a time.
class PieceDigest {
  public:
    explicit PieceDigest(PieceHash wanted);
    void update(std::span<const std::byte> bytes);
    /// Whether what was given is what is wanted. Nothing may be added afterwards. False where nothing is
    /// known of the piece.
    [[nodiscard]] bool matches();
    /// Bytes that were given.
    [[nodiscard]] std::int64_t bytes() const noexcept { return bytes_; }

  private:
    void update_tree(std::span<const std::byte> bytes);
    void end_leaf();
    void add_node(MerkleRoot node, std::size_t level);

    PieceHash wanted_;
    std::int64_t bytes_ = 0;
    std::optional<Digest> sha1_;
    std::optional<Digest> leaf_;
    std::int64_t leaf_bytes_ = 0;
    std::int64_t leaves_ = 0;
    std::vector<std::optional<MerkleRoot>> left_;  ///< one a level: a node that waits for its right neighbour
};

}  // namespace vantlow
