// How the program ends.
#pragma once

#include "base/result.h"

namespace vantlow {

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

}  // namespace vantlow
