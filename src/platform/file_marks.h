// Facts that the system keeps beside a file's bytes: its stamp, its owner, the place where it came from.
#pragma once

#include <cstdint>
#include <string>

#include "platform/file.h"

namespace vantlow {

/// The marks by which a file is recognised as still the one that was read.
struct FileStamp {
    bool there = false;
    std::int64_t modified = 0;  ///< nanoseconds since 1970
    std::int64_t size = 0;
    std::uint64_t identity = 0;  ///< inode or file index
    bool operator==(const FileStamp&) const = default;
};

/// The stamp of a file or folder; `there` is false where nothing has this path or it cannot be looked at.
FileStamp file_stamp(const std::u16string& path) noexcept;

/// Whether the file is this user's own. True where the file system keeps no owners, false where there is no
/// such file.
bool belongs_to_user(const std::u16string& path) noexcept;

/// The addresses that a file came from, UTF-8, without credentials. One that is empty or has control
/// characters is left out of the mark.
struct FileOrigin {
    std::string address;
    std::string referrer;
};

/// The bytes of a file's stream "Zone.Identifier": the internet zone, and the addresses.
std::string zone_identifier(const FileOrigin& origin);

/// Marks the file as fetched from the internet, so that Windows asks before it runs it. The file may be open;
/// the mark stays with it under all its later names. Does nothing where the file system has no place for the
/// mark (FAT, Wine's drives), and nothing on other systems, where the address is nobody else's business.
FileError mark_origin(const std::u16string& path, const FileOrigin& origin);

/// Whether the file at this path, which must exist, can bear the mark.
bool can_bear_mark(const std::u16string& path) noexcept;

}  // namespace vantlow
