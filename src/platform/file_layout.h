// Where a file really has bytes on its disk, and which disk that is.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/file.h"

namespace vantlow {

/// A range of a file, in bytes.
struct ByteRange {
    std::int64_t begin = 0;
    std::int64_t end = 0;
    bool operator==(const ByteRange&) const = default;
};

/// The ranges of a file that are on the disk, ascending; what lies between them and reads as zeros was never
/// written. All of the file where the system does not tell, or where there are more than 100,000 ranges.
FileError list_data(const std::u16string& path, std::vector<ByteRange>& ranges);

/// Lets the file keep holes in what is never written. Only Windows wants to be told; a file system that has
/// no holes goes on without.
void allow_holes(const std::u16string& path) noexcept;

/// Takes the file out of the sight of people who list a folder, where a dot in front of its name does not.
void hide_file(const std::u16string& path) noexcept;

/// Whether a rename failed because its two sides are on different disks.
bool is_other_disk(const FileError& error) noexcept;

/// The number by which `is_other_disk` knows that failure: for tests.
int other_disk_number() noexcept;

}  // namespace vantlow
