// Trees of SHA-256 digests over the blocks of a file, and parts of them as peers exchange them (BEP 52).
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "storage/piece_map.h"

namespace vantlow {

/// The bytes of a digest, which outlives them.
std::string_view node_bytes(const MerkleRoot& node) noexcept;

/// The digest that the first 32 bytes are; there are at least as many.
MerkleRoot node_of(std::string_view bytes) noexcept;

/// The digests that stand one behind the other; a rest is left out.
std::vector<MerkleRoot> nodes_of(std::string_view bytes);

/// A piece that is shorter than the others; the last one may be so anyway.
struct ShorterPiece {
    std::uint32_t piece = 0;
    std::uint32_t length = 0;  ///< bytes, above 0
};

/// The nodes of a tree from one level on up to its root. The row that it is made of is filled up to a power
/// of two with the roots of trees whose leaves are zero. A plain record once it is made.
class HashTree {
  public:
    /// `row` is not empty; `level`: of it, above the leaves.
    HashTree(std::vector<MerkleRoot> row, unsigned level);

    [[nodiscard]] unsigned lowest() const noexcept { return level_; }
    /// The level of the root.
    [[nodiscard]] unsigned top() const noexcept { return level_ + static_cast<unsigned>(rows_.size()) - 1; }
    [[nodiscard]] const MerkleRoot& root() const noexcept { return rows_.back().front(); }
    /// A node, also of those that fill up; `level` from lowest() to top().
    [[nodiscard]] const MerkleRoot& at(unsigned level, std::uint64_t index) const noexcept;

  private:
    unsigned level_;
    std::vector<std::vector<MerkleRoot>> rows_;
};

/// The root of a tree of that height whose leaves are all zero; at most 63.
const MerkleRoot& zero_root(unsigned height);

/// Part of a level of a file's tree, as a peer asks for it (BEP 52, "hash request").
struct HashRange {
    /// More are neither asked for nor given at once.
    static constexpr std::uint32_t most = 512;

    MerkleRoot root{};         ///< of the file
    std::uint32_t level = 0;   ///< of the nodes, above the leaves
    std::uint32_t index = 0;   ///< of the first one, a multiple of `length`
    std::uint32_t length = 0;  ///< how many: a power of two, at least 2
    /// Levels above that one of which the nodes are given that lead to the root; those that follow from the
    /// asked nodes themselves are left out.
    std::uint32_t proof = 0;

    friend bool operator==(const HashRange&, const HashRange&) = default;
};

/// The nodes, and behind them those that lead on towards the root: what the message "hashes" holds. None
/// where the tree does not have them, or no peer may ask so.
std::optional<std::string> give_hashes(const HashTree& tree, const HashRange& range);

/// The nodes that a peer gave for a range, where they lead to its root; none where they do not. `top`: the
/// level of the root.
std::optional<std::vector<MerkleRoot>> take_hashes(const HashRange& range, unsigned top,
                                                   std::string_view bytes);

/// The request for `length` nodes with all that leads to the root at level `top`.
HashRange range_with_proof(const MerkleRoot& root, unsigned level, std::uint32_t index, std::uint32_t length,
                           unsigned top);

}  // namespace vantlow
