// The contents of a torrent document (BEP 3, BEP 12).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "bt/bencode.h"
#include "runtime/tables.h"
#include "storage/piece_map.h"

namespace vantlow {

/// 20 bytes, by which a torrent is known to peers and trackers: the SHA-1 digest of its "info" value, or, of
/// a torrent of the second version alone (BEP 52), the beginning of its SHA-256 digest.
using InfoHash = std::array<std::byte, 20>;

/// A node of the distributed hash table that a torrent names.
struct DhtNode {
    bool is_ipv6 = false;
    std::array<std::uint8_t, 16> address{};  ///< network order; IPv4 in the first four
    std::uint16_t port = 0;
};

/// One parsed torrent. Names and paths are as the document has them and must be made safe before they become
/// paths.
struct CBEMetaInfo {
    std::vector<std::string> trackers;  ///< URLs, in the document's encoding
    std::vector<std::string> paths_local;
    std::vector<std::string> paths_utf8;
    std::vector<std::uint64_t> sizes;  ///< bytes, one a file, in document order
    std::string name_local;            ///< filled where name_utf8 is not
    std::string name_utf8;
    std::int64_t piece_length = 0;  ///< bytes, as the document says
    std::string pieces;             ///< 20 bytes a piece; empty in a torrent of the second version alone
    std::string info;               ///< the raw bytes of the "info" value
    InfoHash info_hash{};
    std::optional<MerkleRoot> second_hash;  ///< the SHA-256 digest, where there is a second version (BEP 52)
    bool utf8 = false;                      ///< the document declares UTF-8
    bool is_multi_file = false;             ///< has a "files" list: its name is a folder's
    std::vector<DhtNode> nodes;
    std::vector<bool> path_is_utf8;  ///< for each file, in which of the two arrays its path stands

    /// A file as text: "\a\b.txt" in a torrent of several, the name in one of a single file.
    struct File {
        std::u16string path;
        std::uint64_t size = 0;
    };
    [[nodiscard]] std::vector<File> files() const;
    [[nodiscard]] std::u16string name() const;
    /// Bytes of all files; none when that is more than 2^63 - 1.
    [[nodiscard]] std::optional<std::int64_t> total_size() const noexcept;
};

/// The rules for reading a document.
struct MetaInfoRules {
    std::string_view default_tracker;  ///< of a torrent that names none in "announce"
    bool metadata_only = false;        ///< the dictionary is the "info" value itself
    bool utf8 = false;                 ///< with metadata_only: what the whole document would have declared
};

/// Fills `meta` from a document that `parser` has read; false when it is no torrent. With metadata_only it
/// ends, successfully, after names and sizes. After a failure the contents of `meta` mean nothing.
bool parse_meta_info(const CBEncode& parser, const CBEDictionary& document, const MetaInfoRules& rules,
                     CBEMetaInfo& meta);

/// Gives the torrent's nodes to the distributed hash table; does nothing where its library is not loaded.
void add_nodes(const CBEMetaInfo& meta, const BtdhtTable& table);

/// True for UTF-8 as torrents define it: forms of up to 6 bytes, none overlong, none cut off.
bool is_torrent_utf8(std::string_view bytes) noexcept;

/// The SHA-1 digest of these bytes.
InfoHash hash_of(std::string_view bytes);

/// The SHA-256 digest of these bytes.
MerkleRoot long_hash_of(std::string_view bytes);

/// The beginning of such a digest, as peers and trackers have it (BEP 52).
InfoHash short_hash_of(const MerkleRoot& hash) noexcept;

/// Whether a torrent is known by its second version: by the beginning of that digest. False where it has
/// none.
bool is_of_second(const InfoHash& hash, const std::optional<MerkleRoot>& second_hash) noexcept;

/// Whether an "info" value is the one that is known by this hash, in either version.
bool is_known_by(std::string_view info, const InfoHash& hash);

}  // namespace vantlow
