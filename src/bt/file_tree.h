// The files of a torrent's second version (BEP 52, "file tree").
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "bt/bencode_value.h"
#include "storage/piece_map.h"

namespace vantlow {

/// A file as the tree has it.
struct TreeFile {
    std::string path;         ///< UTF-8, "\a\b.txt": each part behind a backslash; not safe
    std::int64_t length = 0;  ///< bytes
    MerkleRoot root{};        ///< over its blocks; zeros for a file without bytes
};

/// The files in the order of their bytes, which is that of the document. None where the "info" value has no
/// such tree, or where that contradicts itself: a file within a file, a length below zero, no digest of a
/// file that has bytes; also for more than a million files, folders more than 64 deep and names of more than
/// 256 MiB together.
std::optional<std::vector<TreeFile>> read_file_tree(const CBEDictionary& info);

/// True where the "info" value is of the second version: "meta version" is 2 and there is a tree.
bool has_second_version(const CBEDictionary& info) noexcept;

/// The same, and it has nothing of the first one.
bool is_second_version_alone(const CBEDictionary& info) noexcept;

/// True where the tree is one file of the torrent's own name, and no folder.
bool is_single_file(const CBEDictionary& info) noexcept;

}  // namespace vantlow
