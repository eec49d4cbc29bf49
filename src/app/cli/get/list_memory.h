// What a `get` of several links has finished: the same list again, after it was cut off or in part failed,
// does not fetch that once more.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "platform/file.h"
#include "store/job.h"

namespace vantlow {

/// A file in the folder that the list is fetched into, with a line for each link that is finished: written
/// behind one another, so that a kill costs nothing, and gone once all are. It holds digests of the
/// addresses, which may have secrets in them. One run of a list at a time has it: another of the same list
/// remembers nothing. Used from one thread.
class ListMemory {
  public:
    struct Finished {
        std::u16string path;
        std::int64_t size = 0;
    };

    /// `list` names the list: its file, or all of its links. Reads what an earlier run has left.
    ListMemory(const std::u16string& folder, std::string_view list);

    /// What an earlier run has fetched for this job, where that file is still there with its size; each only
    /// once, since a list may name an address twice.
    std::optional<Finished> take(const CJobNode& job);
    /// The job has ended well. The line survives a kill at once, a power cut after save().
    void add(const CJobNode& job, const Finished& file);
    /// Call about once a second.
    void save();
    /// The list is through, or is left to the next run. The first failure of all that was written.
    FileError close(bool is_through);
    /// Forgets what earlier runs have finished.
    void forget();

    [[nodiscard]] const std::u16string& path() const noexcept { return path_; }

  private:
    void read();

    std::u16string folder_;
    std::u16string path_;
    File file_;
    bool others_ = false;                            ///< another process has it
    bool unsaved_ = false;                           ///< lines that may not be on the disk
    std::int64_t end_ = 0;                           ///< where the next line goes
    FileError failure_;                              ///< the first one; nothing is written behind it
    std::multimap<std::string, Finished> finished_;  ///< by the job's key
};

}  // namespace vantlow
