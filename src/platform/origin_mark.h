// Where a file came from, told to the system: Windows asks before it runs a program that the network brought.
#pragma once

#include <string>

#include "platform/file.h"

namespace vantlow {

/// Addresses as UTF-8, without credentials. An empty one, or one with control characters, is not told.
struct FileOrigin {
    std::string address;
    std::string referrer;
};

/// The bytes of a file's stream "Zone.Identifier": the zone of the internet, and the addresses.
std::string zone_identifier(const FileOrigin& origin);

/// Marks the file; open or not, the mark stays with it under all its later names. Where the file system has
/// no place for the mark (FAT, Wine's drives) nothing is done, nor on other systems than Windows: what was
/// fetched from where concerns nobody who is given the file.
FileError mark_origin(const std::u16string& path, const FileOrigin& origin);

/// Whether a file at this path, which must be there, can bear the mark.
bool can_bear_mark(const std::u16string& path) noexcept;

}  // namespace vantlow
