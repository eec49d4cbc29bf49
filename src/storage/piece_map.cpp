#include "storage/piece_map.h"

#include <utility>

namespace vantlow {
namespace {

constexpr std::int64_t leaf_size = 16 * 1024;

MerkleRoot to_root(const std::vector<std::byte>& digest) {
    MerkleRoot root{};
    std::copy_n(digest.begin(), std::min(digest.size(), root.size()), root.begin());
    return root;
}

}  // namespace

MerkleRoot sha256_of(std::span<const std::byte> bytes) {
    Digest digest(DigestKind::sha256);
    digest.update(bytes);
    return to_root(digest.finish());
}

MerkleRoot parent_of(const MerkleRoot& left, const MerkleRoot& right) {
    Digest both(DigestKind::sha256);
    both.update(left);
    both.update(right);
    return to_root(both.finish());
}

MerkleRoot root_of_zeros(std::int64_t bytes) {
    MerkleRoot root = sha256_of(std::vector<std::byte>(static_cast<std::size_t>(leaf_size)));
    for (std::int64_t covered = leaf_size; covered < bytes; covered *= 2) root = parent_of(root, root);
    return root;
}

PieceDigest::PieceDigest(PieceHash wanted) : wanted_(std::move(wanted)) {
    if (!wanted_.sha1.empty()) sha1_.emplace(DigestKind::sha1);
}

void PieceDigest::update(std::span<const std::byte> bytes) {
    if (sha1_) sha1_->update(bytes);
    if (wanted_.merkle && bytes_ < wanted_.merkle_bytes) {
        const auto most = static_cast<std::uint64_t>(wanted_.merkle_bytes - bytes_);
        update_tree(bytes.first(static_cast<std::size_t>(std::min<std::uint64_t>(most, bytes.size()))));
    }
    bytes_ += static_cast<std::int64_t>(bytes.size());
}

void PieceDigest::update_tree(std::span<const std::byte> bytes) {
    while (!bytes.empty()) {
        if (!leaf_) leaf_.emplace(DigestKind::sha256);
        const auto room = static_cast<std::size_t>(leaf_size - leaf_bytes_);
        const auto part = bytes.first(std::min(room, bytes.size()));
        leaf_->update(part);
        leaf_bytes_ += static_cast<std::int64_t>(part.size());
        bytes = bytes.subspan(part.size());
        if (leaf_bytes_ == leaf_size) end_leaf();
    }
}

void PieceDigest::end_leaf() {
    const MerkleRoot node = to_root(leaf_->finish());
    leaf_.reset();
    leaf_bytes_ = 0;
    ++leaves_;
    add_node(node, 0);
}

// Two neighbours make the node above them.
void PieceDigest::add_node(MerkleRoot node, std::size_t level) {
    for (;; ++level) {
        if (left_.size() <= level) left_.resize(level + 1);
        if (!left_[level]) break;
        node = parent_of(*left_[level], node);
        left_[level].reset();
    }
    left_[level] = node;
}

bool PieceDigest::matches() {
    if (!sha1_ && !wanted_.merkle) return false;
    bool same = true;
    if (sha1_) same = std::ranges::equal(sha1_->finish(), wanted_.sha1);
    if (!wanted_.merkle || !same) return same;
    if (leaf_) end_leaf();
    for (; leaves_ < wanted_.merkle_leaves; ++leaves_) add_node(MerkleRoot{}, 0);
    return !left_.empty() && left_.back() && *left_.back() == *wanted_.merkle &&
           std::none_of(left_.begin(), left_.end() - 1, [](const auto& node) { return node.has_value(); });
}

}  // namespace vantlow
