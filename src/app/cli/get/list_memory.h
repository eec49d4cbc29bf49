// The files that a `get` of several links has finished. The same list again, after it was cut off or in part
// failed, does not fetch them once more.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "base/mutex.h"
#include "engine/name_keeper.h"
#include "platform/file.h"
#include "store/job.h"

namespace vantlow {

/// A file in the folder that the list is fetched into, with a line for each link that is finished: written
/// behind one another, so that a kill costs nothing, and gone once all are. It holds digests of the
/// addresses, which may have secrets in them. One run of a list at a time has it: another of the same list
/// remembers nothing. Used from one thread, but for naming(), which any
/// thread may call.
class ListMemory {
  public:
    struct Finished {
        std::u16string path;
        std::int64_t size = 0;
    };

    /// A list by what names it.
    struct List {
        std::string file;                ///< that has the links; empty: they came otherwise
        std::vector<std::string> links;  ///< all of them
        bool may_be_rest = true;         ///< of a longer list without a file, whose other links failed
    };

    /// Reads what an earlier run has left of this list. A list without a file may also be what is left of a
    /// longer one, without the links that failed: what that one has finished counts.
    ListMemory(const std::u16string& folder, const List& list);

    /// Returns the file that an earlier run has fetched for this job, where it is still there with its size.
    /// Each is returned only once, since a list may name an address twice.
    std::optional<Finished> take(const CJobNode& job);
    /// Records the name that a job's file gets next. From then on a kill leaves either the partial file,
    /// which shows that the job is not through, or a file that take() finds. A later call with another name
    /// replaces it. The line survives a kill at once, a power cut after save().
    void naming(const NameKeeper::Naming& naming);
    /// Records a job that has ended well, where naming() was not called for it.
    void add(const CJobNode& job, const Finished& file);
    /// Puts the new lines on the disk. Call about once a second.
    void save();
    /// Ends the record: the list is through, or is left to the next run. Returns the first failure of all
    /// writing.
    FileError close(bool is_through);
    /// Forgets all that earlier runs have finished.
    void forget();

    [[nodiscard]] const std::u16string& path() const noexcept { return path_; }

  private:
    struct Line;
    using Lines = std::multimap<std::string, Line>;  ///< by the job's key

    void read() VANTLOW_REQUIRES(mutex_);
    void read_line(std::string_view text, Lines& lines) const;
    void read_longer(const std::vector<std::string>& digests) VANTLOW_REQUIRES(mutex_);
    [[nodiscard]] std::string line_of(const std::string& key, const Finished& file,
                                      const std::u16string& partial) const;
    void write(const std::string& line) VANTLOW_REQUIRES(mutex_);
    [[nodiscard]] std::optional<std::u16string> below_folder(const std::u16string& path) const;

    std::u16string folder_;
    std::u16string path_;
    Mutex mutex_;  ///< held across the file, whose lines must stand whole: jobs name their files one by one
    File file_ VANTLOW_GUARDED_BY(mutex_);
    bool others_ VANTLOW_GUARDED_BY(mutex_) = false;   ///< another process holds the file
    bool unsaved_ VANTLOW_GUARDED_BY(mutex_) = false;  ///< lines that may not be on the disk
    std::int64_t end_ VANTLOW_GUARDED_BY(mutex_) = 0;  ///< the place of the next line
    FileError failure_ VANTLOW_GUARDED_BY(mutex_);     ///< the first one; nothing is written behind it
    /// A line: a file, and the partial one that is there until it has its name.
    struct Line : Finished {
        std::u16string partial{};  ///< empty: the file had its name
    };
    std::string first_line_;  ///< of a list without a file: the digests of its links
    Lines finished_ VANTLOW_GUARDED_BY(mutex_);
    /// Of jobs whose files were named in this run.
    std::unordered_map<Guid, std::u16string, GuidHash> partial_files_ VANTLOW_GUARDED_BY(mutex_);
};

}  // namespace vantlow
