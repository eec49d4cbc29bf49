// What a record takes over from a session and from the disk.
#pragma once

#include "store/job.h"

namespace vantlow {

/// Gives a record the positions of a twin, and what belongs to them: validators, size, path, the map of
/// pieces. What a person says of the job stays as it is in the record.
void take_positions(CJobNode& record, CJobNode& from);
/// Gives a record the end of its session: positions, state, result, time.
void take_end(CJobNode& record, CJobNode& from);

/// A record that is about to be run again is brought up to what is on the disk: the state beside the partial
/// file is newer than what the database knew. `interrupted`: the job ran when the database was saved last,
/// and nobody ended it. False when its file turns out to be complete: the record then says finished, but its
/// state is left to the store.
bool catch_up_with_disk(CJobNode& record, bool interrupted);

/// The job begins anew as one that was never run; its file is left where it is.
void forget_run(CJobNode& record);

}  // namespace vantlow
