#include "bt/piece_layers.h"

#include <algorithm>
#include <bit>
#include <utility>

namespace vantlow {
namespace {

constexpr std::int64_t leaf_size = 16 * 1024;

unsigned level_of_pieces(std::int64_t piece_length) noexcept {
    return static_cast<unsigned>(std::countr_zero(static_cast<std::uint64_t>(piece_length / leaf_size)));
}

std::size_t pieces_of(const TreeOfFile& tree, std::int64_t piece_length) noexcept {
    return static_cast<std::size_t>((tree.length + piece_length - 1) / piece_length);
}

std::string encoded(const CBEObject* value) {
    CBEncode writer;
    writer.write(value);
    return std::string(writer.output());
}

}  // namespace

PieceLayers layers_of_document(std::span<const std::byte> document, const TorrentContent& content) {
    PieceLayers layers;
    if (content.trees.empty()) return layers;
    CBEncode parser;
    const auto tree = parser.load_memory(document) ? parser.parse_document() : nullptr;
    const CBEDictionary* const own = tree ? tree->find_dictionary("piece layers") : nullptr;
    if (own == nullptr) return layers;
    std::map<std::string_view, std::string_view> named;
    for (std::size_t i = 0; i < own->keys.size(); ++i) {
        if (const CBEString* const bytes = as_string(own->values[i].get()))
            named.emplace(own->keys[i]->data, bytes->data);
    }
    const unsigned level = level_of_pieces(content.piece_length);
    for (const TreeOfFile& file : content.trees) {
        const std::size_t pieces = pieces_of(file, content.piece_length);
        const auto at = named.find(node_bytes(file.root));
        if (pieces < 2 || at == named.end() || at->second.size() != pieces * sizeof(MerkleRoot)) continue;
        if (layers.contains(file.root)) continue;
        std::vector<MerkleRoot> nodes = nodes_of(at->second);
        if (HashTree(nodes, level).root() == file.root) layers.emplace(file.root, std::move(nodes));
    }
    return layers;
}

std::size_t missing_layers(const TorrentContent& content, const PieceLayers& layers) {
    return static_cast<std::size_t>(std::ranges::count_if(content.trees, [&](const TreeOfFile& tree) {
        const std::size_t pieces = pieces_of(tree, content.piece_length);
        if (pieces < 2) return false;
        const auto at = layers.find(tree.root);
        return at == layers.end() || at->second.size() != pieces;
    }));
}

std::string with_layers(std::span<const std::byte> document, const PieceLayers& layers) {
    CBEncode parser;
    const auto tree = parser.load_memory(document) ? parser.parse_document() : nullptr;
    if (!tree) return {};
    std::map<std::string, std::string> values;
    for (std::size_t i = 0; i < tree->keys.size(); ++i)
        values.emplace(tree->keys[i]->data, encoded(tree->values[i].get()));
    values["info"] = parser.info_copy();
    CBEDictionary own;
    for (const auto& [root, nodes] : layers) {
        std::string bytes;
        bytes.reserve(nodes.size() * sizeof(MerkleRoot));
        for (const MerkleRoot& node : nodes) bytes += node_bytes(node);
        own.add(std::string(node_bytes(root)), std::move(bytes));
    }
    values["piece layers"] = encoded(&own);
    std::string out = "d";
    for (const auto& [key, value] : values)
        out.append(std::to_string(key.size())).append(":").append(key).append(value);
    return out + "e";
}

TorrentHashes::TorrentHashes(const TorrentContent& content, PieceLayers layers)
    : pieces_(content.pieces),
      trees_(content.trees),
      piece_length_(content.piece_length),
      piece_count_(content.piece_count()),
      layers_(std::move(layers)) {}

const TreeOfFile* TorrentHashes::tree_of(std::int64_t piece) const {
    if (piece < 0 || piece >= piece_count_) return nullptr;
    const auto behind = std::ranges::upper_bound(trees_, piece, {}, &TreeOfFile::first_piece);
    return behind == trees_.begin() ? nullptr : &*std::prev(behind);
}

PieceHash TorrentHashes::hash_of(std::int64_t piece) const {
    PieceHash hash;
    if (trees_.empty()) {
        const auto all = std::as_bytes(std::span(pieces_));
        const auto at = static_cast<std::size_t>(std::max<std::int64_t>(piece, 0)) * sizeof(InfoHash);
        if (piece < 0 || at + sizeof(InfoHash) > all.size()) return hash;
        const auto own = all.subspan(at, sizeof(InfoHash));
        hash.sha1.assign(own.begin(), own.end());
        return hash;
    }
    const TreeOfFile* const tree = tree_of(piece);
    if (tree == nullptr) return hash;
    hash.merkle_bytes = piece_length_ - padding_of(piece);
    if (tree->length <= piece_length_) {
        const auto blocks = static_cast<std::uint64_t>((tree->length + leaf_size - 1) / leaf_size);
        hash.merkle = tree->root;
        hash.merkle_leaves = static_cast<std::int64_t>(std::bit_ceil(blocks));
        return hash;
    }
    const auto at = layers_.find(tree->root);
    const auto number = static_cast<std::size_t>(piece - tree->first_piece);
    if (at == layers_.end() || number >= at->second.size()) return hash;
    hash.merkle = at->second[number];
    hash.merkle_leaves = piece_length_ / leaf_size;
    return hash;
}

std::int64_t TorrentHashes::padding_of(std::int64_t piece) const {
    const TreeOfFile* const tree = tree_of(piece);
    if (tree == nullptr) return 0;
    const std::int64_t left = tree->length - (piece - tree->first_piece) * piece_length_;
    return std::max<std::int64_t>(piece_length_ - left, 0);
}

std::optional<std::string> HashAnswers::answer(const HashRange& range) {
    const auto layer = layers_.find(range.root);
    if (layer == layers_.end()) return std::nullopt;
    const auto at = trees_.find(range.root);
    if (at != trees_.end()) return give_hashes(at->second, range);
    HashTree tree(layer->second, level_of_pieces(piece_length_));
    return give_hashes(trees_.emplace(range.root, std::move(tree)).first->second, range);
}

LayerBook::LayerBook(const TorrentContent& content, PieceLayers known) : layers_(std::move(known)) {
    const unsigned level = level_of_pieces(content.piece_length);
    for (const TreeOfFile& tree : content.trees) {
        const std::size_t pieces = pieces_of(tree, content.piece_length);
        if (pieces < 2 || layers_.contains(tree.root) || begun_.contains(tree.root)) continue;
        const std::size_t width = std::bit_ceil(pieces);
        const unsigned top = level + static_cast<unsigned>(std::countr_zero(width));
        const std::size_t length = std::min<std::size_t>(width, HashRange::most);
        Begun& begun = begun_[tree.root];
        begun = {std::vector<MerkleRoot>(pieces), 0, top};
        for (std::size_t at = 0; at < pieces; at += length, ++begun.left) {
            waiting_.push_back(range_with_proof(tree.root, level, static_cast<std::uint32_t>(at),
                                                static_cast<std::uint32_t>(length), top));
        }
    }
}

std::optional<HashRange> LayerBook::next() {
    if (waiting_.empty()) return std::nullopt;
    const HashRange range = waiting_.front();
    waiting_.pop_front();
    return range;
}

bool LayerBook::take(const HashRange& range, std::string_view bytes) {
    const auto at = begun_.find(range.root);
    if (at == begun_.end()) return false;
    Begun& begun = at->second;
    const auto nodes = take_hashes(range, begun.top, bytes);
    if (!nodes) {
        lost(range);
        return false;
    }
    const std::size_t own = std::min(nodes->size(), begun.nodes.size() - range.index);
    std::copy_n(nodes->begin(), own, begun.nodes.begin() + range.index);
    if (--begun.left > 0) return true;
    // Digests of more pieces than the file has would lead to the root as well: then its length is a lie.
    if (HashTree(begun.nodes, range.level).root() == range.root) layers_[range.root] = std::move(begun.nodes);
    begun_.erase(at);
    return true;
}

}  // namespace vantlow
