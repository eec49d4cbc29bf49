// Who owns a data folder: one process at a time, whichever session of the user it runs in.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/file.h"

namespace vantlow {

inline constexpr std::u16string_view lock_file_name = u".lock";

/// The lock of a data folder: the file ".lock" in it, held by its owner until the object or the process ends.
/// The file says how the owner can be reached, where it can be.
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
    /// False when the lock file in the folder is not the one that is held: somebody removed or replaced the
    /// folder, and others may own the one that is there now. Any thread, but not while claim_again() runs.
    [[nodiscard]] bool is_in_place() const noexcept;
    /// Takes the lock of the folder that is there now, and writes the published text into it; for use after
    /// is_in_place() was false. Where this fails the old lock is kept.
    Claim claim_again(FileError& error);
    /// Writes how this owner is reached; replaces what an earlier owner left.
    FileError publish(std::string_view where);
    void release() noexcept;

    /// The text that the owner wrote; empty when there is none. It is stale when nobody holds the lock.
    static std::string read(const std::u16string& folder);

  private:
    File file_;
    std::u16string path_;
    std::uint64_t identity_ = 0;  ///< of the file that is held; 0: not known
    std::string published_;
};

}  // namespace vantlow
