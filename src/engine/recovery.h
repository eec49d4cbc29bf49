// What a record takes over from a session and from the disk.
#pragma once

#include <map>
#include <string>

#include "store/job.h"
#include "transfer/job/resume_state.h"

namespace vantlow {

/// Gives a record the positions of a twin, and what belongs to them: validators, size, path, the map of
/// pieces. What a person says of the job stays as it is in the record.
void take_positions(CJobNode& record, CJobNode& from);
/// Gives a record the end of its session: positions, state, result, time.
void take_end(CJobNode& record, CJobNode& from);

/// Brings records that are about to be run again to what is on the disk. One thread.
class Recovery {
  public:
    /// The state beside the partial file is newer than what the database knew. `interrupted`: the job ran, or
    /// waited, when the last process ended without a word. False when its file turns out to be complete: the
    /// record then has the end of its run, but its state is left to the store.
    bool catch_up(CJobNode& record, bool interrupted);
    /// No further job was interrupted: what was read for them is forgotten.
    void end() { left_behind_.clear(); }

  private:
    void adopt_state(CJobNode& job, bool interrupted);

    /// The states in the folders of jobs that the last process left, read once.
    std::map<std::u16string, ResumeIndex> left_behind_;
};

/// The job begins anew as one that was never run; its file is left where it is.
void forget_run(CJobNode& record);

}  // namespace vantlow
