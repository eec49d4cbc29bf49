// The contents of a folder; folders that are made and removed.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/file.h"

namespace vantlow {

struct FolderEntry {
    std::u16string name;
    PathKind kind = PathKind::other;  ///< of what a link leads to
    bool is_link = false;             ///< symbolic link or junction
    std::int64_t size = 0;            ///< bytes, of files
};

/// Lists everything in a folder except the folder itself and its parent, in no order.
FileError list_folder(const std::u16string& folder, std::vector<FolderEntry>& entries);

/// Makes a new folder, `within` another one, that only this user may look into. Where `within` is empty it is
/// made where the system keeps temporary files: on Windows the user's own place, elsewhere the folder named
/// by the environment's TMPDIR, or /var/tmp, which is on a disk.
FileError make_temporary_folder(const std::u16string& within, std::u16string& path);

/// Removes an empty folder.
FileError remove_folder(const std::u16string& path) noexcept;

}  // namespace vantlow
