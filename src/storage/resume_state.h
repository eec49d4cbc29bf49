// The state of an unfinished job beside its partial file: a job database with that one job.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "storage/local_file.h"
#include "store/job.h"

namespace vantlow {

/// Writes the job's state to `path`, for this user alone: everything but its user name, password and cookies,
/// which are also taken out of the address. The bytes up to the positions in it must be on the disk.
FileError save_resume_state(const CJobNode& job, const std::u16string& path);

/// The job of a state file; null when there is none, it is damaged, its segments contradict each other, it is
/// another user's, or it does not say what its partial file is known by.
std::unique_ptr<CJobNode> load_resume_state(const std::u16string& path);
/// The same of this job, whose identity nobody else knows: also where the disk names another owner, as
/// network drives do. Null for another job's.
std::unique_ptr<CJobNode> load_own_state(const std::u16string& path, const Guid& job);

/// The end of the last byte that a job's segments say is written: what its partial file must hold.
std::int64_t written_end(const CJobNode& job);

/// Marks up to `bytes` at the end of what is written as missing again; the file may then be cut off at the
/// returned offset.
std::int64_t give_back_tail(CJobNode& job, std::int64_t bytes);

/// The mark by which a later run knows the open partial file: its first block that the snapshot's segments
/// say is there. Not set where that could not be read.
PartialMark mark_of(CLocalFile& file, const CJobNode& snapshot);

/// The same of a whole file that is to be checked as the partial file of the snapshot.
PartialMark mark_of(const std::u16string& path, const CJobNode& snapshot);

/// Whether the open partial file is the one that the job's positions are about. False without a mark.
bool bears_mark(CLocalFile& file, const PartialMark& mark);

/// The unfinished jobs of a folder.
class ResumeIndex {
  public:
    /// Reads the states in the folder (at most 10,000).
    explicit ResumeIndex(const std::u16string& folder);

    /// Takes the job that fetches this address (without credentials) into this folder out of the index: the
    /// one with the most bytes. With a name, only a job with that target. Null when there is none.
    std::unique_ptr<CJobNode> take(const std::u16string& address, const std::u16string& name);

    /// Takes the job of this identity out; null when there is none.
    std::unique_ptr<CJobNode> take(const Guid& identity);

  private:
    std::vector<std::unique_ptr<CJobNode>> jobs_;
};

}  // namespace vantlow
