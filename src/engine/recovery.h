// The facts that a record takes over from a session and from the disk.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "platform/file.h"
#include "storage/resume_state.h"
#include "store/job.h"

namespace vantlow {

/// Gives a record the positions of a twin, with everything that belongs to them: validators, size, path, the
/// map of pieces. Values that a person gave stay as they are in the record.
void take_positions(CJobNode& record, CJobNode& from);
/// Gives a record the end of its session: positions, state, result, time.
void take_end(CJobNode& record, CJobNode& from);

/// Whether the file, or the partial file, under the name of a job that does not run is not the job's own:
/// people move and remove files, and other downloads get the names that are free then. False where there is
/// none, and for a torrent's folder.
bool is_anothers_file(const CJobNode& job);

/// Whether a file was written to after its job had ended then (seconds since 1970; 0: unknown), as far as
/// clocks can tell: those of network drives are not this machine's, and FAT keeps the local time, which jumps
/// twice a year.
bool was_written_since(const FileStamp& stamp, std::int64_t finished) noexcept;

/// Whether the finished torrent of a record is shared, or was when the program ended.
bool is_to_be_shared(const CJobNode& record) noexcept;
void set_to_be_shared(CJobNode& record, bool shares);

/// Brings records that are about to be run again up to date with the disk. One thread.
class Recovery {
  public:
    /// Takes over the state beside the partial file where it is newer than the database. `interrupted`: the
    /// job ran, or waited, when the last process ended without a word. False when its file turns out to be
    /// complete: the record then has the end of its run, but its state is left to the store.
    bool catch_up(CJobNode& record, bool interrupted);
    /// Ends the recovery: the states that were read for interrupted jobs are dropped.
    void end() { left_behind_.clear(); }

  private:
    void adopt_state(CJobNode& job, bool interrupted);

    /// The states in the folders of jobs that the last process left, read once.
    std::map<std::u16string, ResumeIndex> left_behind_;
};

/// Resets the job to one that was never run; its file stays where it is.
void forget_run(CJobNode& record);

}  // namespace vantlow
