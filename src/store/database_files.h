// The job database on the disk: ".database" in the data folder, its ".copy", and the dated backups.
#pragma once

#include <string>
#include <vector>

#include "platform/file.h"
#include "store/database.h"

namespace vantlow {

inline constexpr std::u16string_view database_name = u".database";
inline constexpr std::u16string_view copy_suffix = u".copy";

/// The contents of a data folder.
struct StoredDatabase {
    CategoryTree tree;  ///< without a root when nothing was found
    DatabaseLoad::Status status = DatabaseLoad::Status::nothing;
    FileError error;       ///< a file is there but may not be read: nothing is known, nothing may be written
    bool damaged = false;  ///< ".database" is there but not whole: keep_damaged() before it is written over
    bool from_copy = false;     ///< the copy held more and was taken
    bool from_journal = false;  ///< changes that the database does not hold were taken from its journal
    /// The journal, where database and copy are empty: its changes are to be made in the tree that begins
    /// anew.
    std::vector<std::byte> left_journal{};
    /// Sentences, UTF-8, for a person.
    std::vector<std::string> notes;
};

/// Reads the database of the folder, and makes the changes that the journal holds since that database was
/// written. Where the database is missing, cut short or damaged and the copy holds more (more jobs, more
/// categories, or as many of them whole), the copy is taken. Neither file is changed. When either file that
/// would be read is of a newer version the status is `newer` and nothing was taken.
StoredDatabase load_database_files(const std::u16string& folder);

/// Renames a damaged database to ".database.damaged-TIME" (TIME as yyyymmdd-hhmmss, UTC), with a number
/// behind it where that is taken; gives the new path.
FileError keep_damaged_database(const std::u16string& folder, std::u16string& kept_as);

/// The path of today's backup: the date with "-" for every "/", then ".database", in `folder`, which may end
/// with a separator. Other characters that no file name may hold become "-" too.
std::u16string backup_path(const std::u16string& folder, std::u16string date);

/// ".database" in the folder.
std::u16string database_path(const std::u16string& folder);

}  // namespace vantlow
