// What is in a folder.
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

}  // namespace vantlow
