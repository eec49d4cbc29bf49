// The digests of the pieces of files (BEP 52, "piece layers"): believed, asked for and given.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "bt/hash_tree.h"
#include "bt/torrent_content.h"

namespace vantlow {

/// The digests of each file that has more than one piece, by the file's root; all of them lead there.
using PieceLayers = std::map<MerkleRoot, std::vector<MerkleRoot>>;

/// The layers that a document has for the files of a torrent. Those that are of the wrong size, that do not
/// lead to the file's root or belong to no file are left out.
PieceLayers layers_of_document(std::span<const std::byte> document, const TorrentContent& content);

/// The number of files whose digests are not there.
std::size_t missing_layers(const TorrentContent& content, const PieceLayers& layers);

/// The document with these layers in place of its own; every other value as it was, that of "info" byte for
/// byte.
std::string with_layers(std::span<const std::byte> document, const PieceLayers& layers);

/// The hashes of a torrent's pieces: SHA-1 digests (BEP 3), or the roots of trees (BEP 52).
class TorrentHashes final : public PieceHashSource {
  public:
    /// The layers are those of a torrent of the second version.
    explicit TorrentHashes(const TorrentContent& content, PieceLayers layers = {});
    /// Of a piece that the document does not count, or whose layer is missing, nothing is known, and so it is
    /// never good.
    [[nodiscard]] PieceHash hash_of(std::int64_t piece) const override;
    [[nodiscard]] std::int64_t padding_of(std::int64_t piece) const override;
    [[nodiscard]] const PieceLayers& layers() const noexcept { return layers_; }

  private:
    [[nodiscard]] const TreeOfFile* tree_of(std::int64_t piece) const;

    const std::string pieces_;
    const std::vector<TreeOfFile> trees_;
    const std::int64_t piece_length_;
    const std::int64_t piece_count_;
    const PieceLayers layers_;
};

/// The answers to peers that lack digests. One thread.
class HashAnswers {
  public:
    /// Both outlive the object.
    HashAnswers(const TorrentContent& content, const PieceLayers& layers)
        : piece_length_(content.piece_length), layers_(layers) {}
    /// None: no such digests are here, or nobody may ask for them so.
    [[nodiscard]] std::optional<std::string> answer(const HashRange& range);

  private:
    const std::int64_t piece_length_;
    const PieceLayers& layers_;
    /// Of the files that were asked about: as many nodes as the layers have.
    std::map<MerkleRoot, HashTree> trees_;
};

/// The layers that are still missing, divided into requests to peers. A plain object.
class LayerBook {
  public:
    LayerBook(const TorrentContent& content, PieceLayers known);
    [[nodiscard]] bool is_done() const noexcept { return begun_.empty(); }
    /// A range that nobody is asked for, which is asked for from now on; none where there is none.
    std::optional<HashRange> next();
    /// The answer to a range that next() gave. False where it does not lead to the root: whoever gave it
    /// lied, and the range is asked for again.
    bool take(const HashRange& range, std::string_view bytes);
    /// There is no answer to it.
    void lost(const HashRange& range) { waiting_.push_front(range); }
    /// All layers, once it is done; but for those of files whose length the digests contradict.
    [[nodiscard]] const PieceLayers& layers() const noexcept { return layers_; }

  private:
    struct Begun {
        std::vector<MerkleRoot> nodes;
        std::size_t left;  ///< ranges that did not come yet
        unsigned top;
    };
    PieceLayers layers_;
    std::map<MerkleRoot, Begun> begun_;
    std::deque<HashRange> waiting_;
};

}  // namespace vantlow
