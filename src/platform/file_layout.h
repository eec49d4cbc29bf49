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

/// Puts all of a disk's files on it at once, where the system can do that: for those who wrote thousands. One
/// thread at a time.
class WholeDisk {
  public:
    WholeDisk() = default;
    WholeDisk(const WholeDisk&) = delete;
    WholeDisk& operator=(const WholeDisk&) = delete;
    ~WholeDisk() { close(); }

    /// Begins to watch the disk that the folder is on: sync() tells the failures of writes from here on.
    /// Where the system has no such thing nothing is covered.
    void open(const std::u16string& folder) noexcept;
    void close() noexcept;
    /// Whether sync() puts what is in this folder, which exists, on the disk.
    [[nodiscard]] bool covers(const std::u16string& folder) const noexcept;
    /// Returns when everything that was written to the disk is on it.
    FileError sync() noexcept;

  private:
    std::u16string path_;
    std::intptr_t native_ = -1;
    std::uint64_t device_ = 0;
};

/// Whether a rename failed because its two sides are on different disks.
bool is_other_disk(const FileError& error) noexcept;

/// The number by which `is_other_disk` knows that failure: for tests.
int other_disk_number() noexcept;

}  // namespace vantlow
