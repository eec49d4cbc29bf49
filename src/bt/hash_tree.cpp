#include "bt/hash_tree.h"

#include <algorithm>
#include <array>
#include <bit>

namespace vantlow {
namespace {

constexpr unsigned most_height = 64;

std::array<MerkleRoot, most_height> make_zero_roots() {
    std::array<MerkleRoot, most_height> roots{};
    for (std::size_t i = 1; i < roots.size(); ++i) roots[i] = parent_of(roots[i - 1], roots[i - 1]);
    return roots;
}

bool is_askable(const HashRange& range) noexcept {
    return std::has_single_bit(range.length) && range.length >= 2 && range.length <= HashRange::most &&
           range.index % range.length == 0;
}

// The first level of which a node is given that does not follow from the asked ones.
unsigned first_uncle(const HashRange& range) noexcept {
    return range.level + static_cast<unsigned>(std::countr_zero(range.length));
}

}  // namespace

std::string_view node_bytes(const MerkleRoot& node) noexcept {
    return {reinterpret_cast<const char*>(node.data()), node.size()};
}

MerkleRoot node_of(std::string_view bytes) noexcept {
    MerkleRoot node{};
    std::ranges::copy(std::as_bytes(std::span(bytes.substr(0, node.size()))), node.begin());
    return node;
}

std::vector<MerkleRoot> nodes_of(std::string_view bytes) {
    std::vector<MerkleRoot> nodes(bytes.size() / sizeof(MerkleRoot));
    for (std::size_t i = 0; i < nodes.size(); ++i) nodes[i] = node_of(bytes.substr(i * sizeof(MerkleRoot)));
    return nodes;
}

const MerkleRoot& zero_root(unsigned height) {
    static const auto roots = make_zero_roots();
    return roots[std::min(height, most_height - 1)];
}

HashTree::HashTree(std::vector<MerkleRoot> row, unsigned level) : level_(level) {
    rows_.push_back(std::move(row));
    while (rows_.back().size() > 1) {
        const std::vector<MerkleRoot>& below = rows_.back();
        std::vector<MerkleRoot> above((below.size() + 1) / 2);
        for (std::size_t i = 0; i < above.size(); ++i) {
            const bool has_right = 2 * i + 1 < below.size();
            above[i] = parent_of(below[2 * i], has_right ? below[2 * i + 1] : zero_root(top()));
        }
        rows_.push_back(std::move(above));
    }
}

const MerkleRoot& HashTree::at(unsigned level, std::uint64_t index) const noexcept {
    const std::vector<MerkleRoot>& row = rows_[level - level_];
    return index < row.size() ? row[static_cast<std::size_t>(index)] : zero_root(level);
}

std::optional<std::string> give_hashes(const HashTree& tree, const HashRange& range) {
    if (!is_askable(range) || range.level < tree.lowest() || range.level > tree.top()) return std::nullopt;
    const std::uint64_t width = std::uint64_t{1} << (tree.top() - range.level);
    if (std::uint64_t{range.index} + range.length > width) return std::nullopt;
    std::string bytes;
    for (std::uint32_t i = 0; i < range.length; ++i)
        bytes += node_bytes(tree.at(range.level, range.index + i));
    for (unsigned level = first_uncle(range);
         level < tree.top() && level <= std::uint64_t{range.level} + range.proof; ++level)
        bytes += node_bytes(tree.at(level, (range.index >> (level - range.level)) ^ 1U));
    return bytes;
}

std::optional<std::vector<MerkleRoot>> take_hashes(const HashRange& range, unsigned top,
                                                   std::string_view bytes) {
    if (!is_askable(range) || first_uncle(range) > top) return std::nullopt;
    const std::size_t uncles = top - first_uncle(range);
    if (bytes.size() != (range.length + uncles) * sizeof(MerkleRoot)) return std::nullopt;
    const std::vector<MerkleRoot> nodes = nodes_of(bytes);
    std::vector<MerkleRoot> row(nodes.begin(), nodes.begin() + range.length);
    MerkleRoot node = HashTree(row, range.level).root();
    std::uint32_t at = range.index / range.length;
    for (std::size_t i = 0; i < uncles; ++i, at /= 2) {
        const MerkleRoot& uncle = nodes[range.length + i];
        node = at % 2 == 0 ? parent_of(node, uncle) : parent_of(uncle, node);
    }
    if (at != 0 || node != range.root) return std::nullopt;
    return row;
}

HashRange range_with_proof(const MerkleRoot& root, unsigned level, std::uint32_t index, std::uint32_t length,
                           unsigned top) {
    HashRange range{root, level, index, length, 0};
    if (first_uncle(range) < top) range.proof = top - 1 - level;
    return range;
}

}  // namespace vantlow
