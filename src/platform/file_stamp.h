// What tells whether a file is still the one that was read.
#pragma once

#include <cstdint>
#include <string>

namespace vantlow {

struct FileStamp {
    bool there = false;
    std::int64_t modified = 0;  ///< nanoseconds since 1970
    std::int64_t size = 0;
    std::uint64_t identity = 0;  ///< inode or file index
    bool operator==(const FileStamp&) const = default;
};

FileStamp file_stamp(const std::u16string& path) noexcept;

/// Whether the file is this user's own. True where the file system keeps no owners, false where there is no
/// such file.
bool belongs_to_user(const std::u16string& path) noexcept;

}  // namespace vantlow
