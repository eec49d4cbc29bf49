// The job database: one binary file that holds the category tree and its jobs. These functions turn bytes
// into records and back; database_files and store_writer read and write the file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "base/mem_file.h"
#include "store/category.h"

namespace vantlow {

inline constexpr int database_version = 59;
inline constexpr std::size_t database_growth_step = 262144;

/// The result of loading.
struct DatabaseLoad {
    enum class Status : std::uint32_t {
        nothing = 0,          ///< too short, or no category in it
        loaded = 1,           ///< at least one category
        newer = 0xFFFFFFFFU,  ///< written by a newer version: nothing was read
    };
    Status status = Status::nothing;
    bool complete = false;  ///< the whole file was read: no record was cut short or damaged
    std::size_t categories = 0;
    std::size_t jobs = 0;
};

/// Reads a database from its bytes. Categories are inserted as they are read, at `place` under their parent;
/// records before a damaged one stay. Memory is bounded by a small multiple of the input, whatever its counts
/// claim.
DatabaseLoad load_database(std::span<const std::byte> bytes, CategoryTree& tree,
                           CategoryTree::Place place = CategoryTree::Place::last);

/// Writes the whole tree; a tree without a root gives only the header.
void save_database(const CategoryTree& tree, CQoMemFile& file);

/// Writes a database of one category (the root, zero GUID) with this one job, for the state beside a partial
/// file.
void save_single_job(const CJobNode& job, CQoMemFile& file);

}  // namespace vantlow
