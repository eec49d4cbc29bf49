// The lines that a terminal shows while jobs run.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "transfer/job/progress.h"

namespace vantlow {

/// One running job.
struct JobLine {
    std::string name;  ///< UTF-8, as it came: what a terminal must not get is replaced
    JobProgress progress;
    double speed = 0;     ///< bytes a second
    std::string waits{};  ///< what wait_text() says of it
};

/// What a job waits for that tries again after a failure: "retry 7 in 0:12: HTTP/1.1 503 Busy"; empty while
/// it does not.
std::string wait_text(const JobProgress& progress, Clock::time_point now);

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

/// A line a job and one for the whole, none of them longer than `width` columns and all of them no more than
/// `height`: those jobs that have no line are counted in one. A job's line has as many of name, percentage,
/// size, speed, time left and the picture of its segments as there is room for: `#` there, `>` a connection
/// works from here on, `.` missing; or, behind the percentage, what the job waits for. With `colour` the
/// states are coloured: green what is there, cyan what is received, yellow a job that is held up, red
/// failures.
std::vector<std::string> render_progress(const std::vector<JobLine>& jobs, const Totals& totals, int width,
                                         bool colour, int height = std::numeric_limits<int>::max());

}  // namespace vantlow
