// Who owns a data folder: one process at a time, whichever session of the user it runs in.
#pragma once

#include <cstdint>
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
    /// False when the lock file in the folder is another one than the one that is held: somebody removed or
    /// replaced the folder, and others may own what stands there now. Any thread, but not while claim_again()
    /// runs.
    [[nodiscard]] bool is_in_place() const noexcept;
    /// After that: the lock of what stands there now, with what was published written into it. What was held
    /// before is held on where this fails.
    Claim claim_again(FileError& error);
    /// Writes how this owner is reached; replaces what an earlier owner left.
    FileError publish(std::string_view where);
    void release() noexcept;

    /// What the owner wrote; empty when there is nothing. Stale when nobody holds the lock.
    static std::string read(const std::u16string& folder);

  private:
    File file_;
    std::u16string path_;
    std::uint64_t identity_ = 0;  ///< of the file that is held; 0: not known
    std::string published_;
};

}  // namespace vantlow
