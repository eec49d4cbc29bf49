// The lines that a terminal shows while jobs run.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "transfer/job/progress.h"

namespace vantlow {

/// One running job.
struct JobLine {
    std::string name;  ///< UTF-8, as it came: what a terminal must not get is replaced
    JobProgress progress;
    double speed = 0;  ///< bytes a second
};

/// All jobs together.
struct Totals {
    std::size_t running = 0;
    std::size_t waiting = 0;
    std::size_t done = 0;
    std::size_t failed = 0;
    std::int64_t received = 0;  ///< body bytes taken from the network
    double speed = 0;           ///< bytes a second
};

/// More jobs than these have no line of their own, but one together.
inline constexpr std::size_t most_job_lines = 20;

/// A line a job and one for the whole, none of them longer than `width` columns. A job's line has as many of
/// name, percentage, size, speed, time left and the picture of its segments as there is room for: `#` there,
/// `>` a connection works from here on, `.` missing. With `colour` the states are coloured: green what is
/// there, cyan what is received, yellow a job that is held up, red failures.
std::vector<std::string> render_progress(const std::vector<JobLine>& jobs, const Totals& totals, int width,
                                         bool colour);

}  // namespace vantlow
