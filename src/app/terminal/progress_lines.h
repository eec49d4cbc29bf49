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

/// The facts of one running job that its line shows.
struct JobLine {
    std::string name;  ///< UTF-8, as it came: render_progress() makes it harmless
    JobProgress progress;
    double speed = 0;     ///< bytes a second
    std::string waits{};  ///< the text of wait_text()
};

/// Says why a job waits that tries again after a failure: "retry 7 in 0:12: HTTP/1.1 503 Busy"; empty while
/// it does not wait.
std::string wait_text(const JobProgress& progress, Clock::time_point now);

/// The counts and the speed of all jobs together.
struct Totals {
    std::size_t running = 0;
    std::size_t waiting = 0;
    std::size_t done = 0;
    std::size_t failed = 0;
    std::int64_t received = 0;  ///< body bytes taken from the network
    double speed = 0;           ///< bytes a second
};

/// At most so many jobs have a line of their own; the others have one together.
inline constexpr std::size_t most_job_lines = 20;

/// Returns a line for each job and one for the whole, none longer than `width` columns and together no more
/// than `height`; jobs without a line are counted in one. A job's line has as many of name, percentage, size,
/// speed, time left and the picture of its segments as there is room for: `#` downloaded, `>` a connection
/// works from here on, `.` missing; or, behind the percentage, the text of wait_text(). With `colour` the
/// states are coloured: green downloaded, cyan received, yellow held up, red failed.
std::vector<std::string> render_progress(const std::vector<JobLine>& jobs, const Totals& totals, int width,
                                         bool colour, int height = std::numeric_limits<int>::max());

}  // namespace vantlow
