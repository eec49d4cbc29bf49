// The progress and the ends of running jobs, as lines for a person, as events for a program, or redrawn on a
// terminal.
#pragma once

#include <atomic>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "app/cli/command.h"
#include "app/terminal/progress_view.h"
#include "base/mutex.h"
#include "engine/engine.h"
#include "platform/console.h"
#include "platform/socket.h"
#include "store/job_log.h"

namespace vantlow {

/// Reports the jobs that this process runs. Used from the thread that drives them, but for ask() and
/// log_line().
class JobOutput {
  public:
    explicit JobOutput(const GlobalOptions& global);

    /// Takes a line of a job's log, which is shown with -v. Any thread.
    void log_line(std::size_t number, const CLogNode& line);
    /// Shows the running jobs: redraws the terminal ten times a second and reports progress twice a second,
    /// however often it is called.
    void show(const Engine& engine);
    /// Reports the end of a job. `number` is that of RunningJob.
    void ended(std::size_t number, const CJobNode& job, const JobOutcome& outcome);
    /// True where a person at a terminal can be asked.
    [[nodiscard]] bool can_ask() const;
    /// Asks the person at the terminal and returns the line that was typed; the display stands still
    /// meanwhile. None without a terminal, and when a stop is requested. Any thread.
    std::optional<std::string> ask(const std::string& question, const StopSource& stop);
    /// Reports a complaint that belongs to no job.
    void complain(const std::string& text);
    /// Writes what is left of the log, and takes the progress display away.
    void close();
    /// Prints no more paths of files: from now on the standard output takes the file itself.
    void keep_off_output() noexcept { results_elsewhere_ = true; }
    /// The longest time between two calls of show().
    [[nodiscard]] std::chrono::milliseconds interval() const noexcept;

  private:
    struct Shown {
        std::string address;
        bool start_reported = false;
        Clock::time_point reported{};
        std::string notice;
        Clock::time_point notice_reported{};
        int attempts = 0;  ///< reported ones
        int restarts = 0;
        SpeedMeter speed;
    };
    [[nodiscard]] std::string shown_address(const CJobNode& job) const;
    void report_start(Shown& shown, const std::u16string& path, std::int64_t size);
    void report_progress(Shown& shown, const JobProgress& progress, double speed);
    void report_trouble(Shown& shown, const JobProgress& progress);
    void report_restarts(Shown& shown, int restarts);
    void report_retry(Shown& shown, const JobProgress& progress);
    void write_line(Stream stream, const std::string& text);
    void flush_log();

    GlobalOptions global_;
    bool results_elsewhere_ = false;
    ProgressView view_;
    std::map<std::size_t, Shown> shown_;  ///< by the number of RunningJob
    SpeedMeter total_speed_;
    std::int64_t finished_bytes_ = 0;
    Totals totals_;
    Clock::time_point drawn_{};
    std::atomic<bool> asking_{false};
    Mutex mutex_;
    std::vector<std::string> log_lines_ VANTLOW_GUARDED_BY(mutex_);
};

}  // namespace vantlow
