// The contents of a torrent as they are fetched: its files, its pieces, its rules.
#pragma once

#include <string>
#include <vector>

#include "base/result.h"
#include "bt/file_tree.h"
#include "bt/hash_tree.h"
#include "bt/metainfo.h"
#include "storage/file_list.h"

namespace vantlow {

/// A file of the second version that has bytes: its pieces are its own.
struct TreeOfFile {
    MerkleRoot root{};
    std::int64_t first_piece = 0;
    std::int64_t length = 0;  ///< bytes
};

/// The facts of an "info" value that a download needs. Each file of a torrent of the second version begins
/// with a piece: between them stand files of padding that no document names. A plain record.
struct TorrentContent {
    std::u16string name;     ///< of the file or of the folder, as the document has it, in one part; not safe
    bool is_folder = false;  ///< the files stand in a folder of that name
    std::vector<NamedFile> files;  ///< all of them chosen; their paths are as the document has them
    std::int64_t total = 0;        ///< bytes of all files, padding included
    std::int64_t piece_length = 0;
    std::string pieces;  ///< the digests of the pieces, 20 bytes each, as many as the total has pieces
    std::vector<TreeOfFile> trees;  ///< of the second version, in the order of the files; it has no `pieces`
    bool is_second_version = false;
    std::string info;  ///< the raw bytes of the value
    InfoHash info_hash{};
    std::optional<MerkleRoot>
        second_hash;          ///< the SHA-256 digest of a torrent of both versions, or the second
    bool is_private = false;  ///< its peers come from its trackers alone (BEP 27)

    [[nodiscard]] std::int64_t piece_count() const noexcept {
        return (total + piece_length - 1) / piece_length;
    }
    /// The pieces in which the files of the second version end, ascending: peers give no padding there.
    [[nodiscard]] std::vector<ShorterPiece> shorter_pieces() const;
};

/// The facts of a document that its "info" value does not hold. A plain record.
struct DocumentFacts {
    std::string comment;       ///< UTF-8, 4 KiB at most; empty: there is none
    std::string created_by;    ///< the program that made it, likewise
    std::int64_t created = 0;  ///< seconds since 1970; 0: unsaid
};
DocumentFacts facts_of_document(std::span<const std::byte> document);

/// Reads an "info" value. Of the two versions of a hybrid torrent (BEP 52) the first one counts, unless it is
/// `known_by` the hash of the second. `unsupported`, with a sentence, for sizes, pieces and lengths that
/// contradict each other. Padding (BEP 47) is marked as such.
Outcome<TorrentContent> read_torrent_content(std::string_view info,
                                             const std::optional<InfoHash>& known_by = {});

/// The "info" value of a document; empty where it has none.
std::string info_of_document(std::span<const std::byte> document);

/// The addresses of servers that have the files, as a document names them (BEP 19): the first 50.
std::vector<std::string> web_seeds_of_document(std::span<const std::byte> document);

/// The addresses of scripts at servers that give the pieces, likewise (BEP 17).
std::vector<std::string> http_seeds_of_document(std::span<const std::byte> document);

/// A name from a torrent as one part of a path: what would divide it becomes "_".
std::u16string in_one_part(std::u16string name);

}  // namespace vantlow
