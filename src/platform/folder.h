// What is in a folder; folders that come and go.
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

/// Everything in a folder but itself and the one above, in no order.
FileError list_folder(const std::u16string& folder, std::vector<FolderEntry>& entries);

/// Makes a new folder that only this user may look into, `within` another one. Where that is empty: where the
/// system keeps temporary files, on Windows the user's own place, else the one that the environment's TMPDIR
/// names, or /var/tmp, which is on a disk.
FileError make_temporary_folder(const std::u16string& within, std::u16string& path);

/// Removes an empty folder.
FileError remove_folder(const std::u16string& path) noexcept;

}  // namespace vantlow
