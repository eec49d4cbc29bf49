// Who owns a data folder: one process at a time, whichever session of the user it runs in.
#pragma once

#include <string>
#include <string_view>

#include "platform/file.h"

namespace vantlow {

/// The lock of a data folder: the file ".lock" in it, held by its owner until the object or the process ends.
/// In it stands how the owner can be reached, where it can be.
class DataFolderLock {
  public:
    enum class Claim {
        mine,
        taken,    ///< by another process
        no_disk,  ///< the folder cannot be written: nobody can own it, reading is all that can be done
        failed,
    };
    /// One attempt; makes the folder where it is missing.
    Claim claim(const std::u16string& folder, FileError& error);
    [[nodiscard]] bool is_mine() const noexcept { return file_.is_open(); }
    /// Writes how this owner is reached; replaces what an earlier owner left.
    FileError publish(std::string_view where) noexcept;
    void release() noexcept;

    /// What the owner wrote; empty when there is nothing. Stale when nobody holds the lock.
    static std::string read(const std::u16string& folder);

  private:
    File file_;
};

}  // namespace vantlow
