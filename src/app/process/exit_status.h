// How the program ends.
#pragma once

#include <functional>

#include "base/result.h"

namespace vantlow {

class Resolver;

/// Exit statuses of the program.
enum class Exit : int {
    done = 0,
    failed = 1,
    usage = 2,
    local_file = 3,
    network = 4,
    credentials = 5,
    not_trusted = 6,
    hash = 7,
    interrupted = 130,
};

/// The status that a job's result stands for.
Exit exit_of(const Result& result) noexcept;

/// What the process ends with: this status, unless output was lost, which is told here and is no success.
Exit final_status(Exit status);

/// The end of a command that looked names up. One that the system is still looking up cannot be called back:
/// the process ends here then, after `last`, with final_status(), so that everything must be saved before.
Exit leave(Resolver& resolver, Exit status, const std::function<void()>& last = {});

/// For an InterruptWatch whose context is a StopSource: requests the stop; from the second time on the
/// process ends at once, with Exit::interrupted.
void stop_at_interrupt(void* stop_source, int count);

}  // namespace vantlow
