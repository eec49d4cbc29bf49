// Places in the queue of the jobs that wait.
#pragma once

#include <vector>

#include "engine/engine.h"

namespace vantlow {

/// Has a job that waits take a place among all that wait, from 0 on; the last one where there are fewer.
/// not_waiting: it does not wait. Costs a step for each job between its two places, or between the new one
/// and the nearer end of the queue.
Done move_in_queue(Engine& engine, const Guid& job, std::size_t place);

/// Has those of the jobs that wait stand in front of `next`, in the order in which they wait; zero: behind
/// all. not_waiting: none of them waits, or `next` does not.
Done move_before(Engine& engine, const std::vector<Guid>& jobs, const Guid& next);

}  // namespace vantlow
