// The files of a job as one row of bytes: which file holds a position, and what it is called on this machine.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "base/result.h"

namespace vantlow {

/// A file as a document names it. The path is whatever somebody else wrote: parts between "/" or "\".
struct NamedFile {
    std::u16string path;
    std::int64_t length = 0;  ///< bytes
    bool chosen = true;
    bool padding = false;  ///< zeros that fill up a piece (BEP 47): neither read nor written
};

/// A file at its place.
struct ListedFile {
    std::u16string path;      ///< below the job's folder, safe, with this system's separators
    std::int64_t offset = 0;  ///< of its first byte in the row
    std::int64_t length = 0;
    bool padding = false;
};

/// The part of a range that lies in one file.
struct FileSpan {
    std::size_t file = 0;
    std::int64_t offset = 0;  ///< in the file
    std::int64_t length = 0;
};

/// The files in the order of their bytes, which begin at 0 and have no gaps. A plain record once it is made;
/// any thread may read it. The same document always gives the same names.
class FileList {
  public:
    FileList() = default;
    /// Every part of a path becomes a safe name, so that no file leaves the folder; at most 64 parts. Of two
    /// names that one of our systems would take for the same the later one gets "(N)", and a file never has
    /// the name of another's folder. Fails for no files, more than a million, a negative length, or more than
    /// 2^62 bytes.
    static Outcome<FileList> make(std::span<const NamedFile> named);

    [[nodiscard]] std::size_t count() const noexcept { return files_.size(); }
    [[nodiscard]] const ListedFile& at(std::size_t file) const noexcept { return files_[file]; }
    [[nodiscard]] std::int64_t size() const noexcept { return size_; }
    /// The file that holds the byte at a position in [0, size()).
    [[nodiscard]] std::size_t file_at(std::int64_t position) const noexcept;
    /// The files that a range within [0, size()) lies in, in order; files without bytes are left out.
    [[nodiscard]] std::vector<FileSpan> spans(std::int64_t position, std::int64_t length) const;

  private:
    std::vector<ListedFile> files_;
    std::int64_t size_ = 0;
};

}  // namespace vantlow
