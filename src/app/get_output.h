// What `vantlow get` tells: to a person, to a program, to a terminal.
#pragma once

#include <atomic>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "app/exit.h"
#include "app/global_options.h"
#include "app/progress_view.h"
#include "base/mutex.h"
#include "engine/engine.h"
#include "platform/console.h"
#include "platform/socket.h"
#include "store/job_log.h"

namespace vantlow {

/// Used from the thread that drives the jobs, but for ask() and log_line().
class GetOutput {
  public:
    explicit GetOutput(const GlobalOptions& global);

    /// A line of a job's log (any thread); shown with -v.
    void log_line(std::size_t number, const CLogNode& line);
    /// The running jobs, often: redraws the terminal ten times a second, reports progress twice a second.
    void show(const Engine& engine);
    /// `number` is that of RunningJob.
    void ended(std::size_t number, const CJobNode& job, const JobOutcome& outcome);
    /// True where somebody sits at the terminal who can be asked.
    [[nodiscard]] bool can_ask() const;
    /// Asks the person at the terminal (any thread; the display stands still meanwhile): the line that was
    /// typed. None without a terminal, and when a stop is requested.
    std::optional<std::string> ask(const std::string& question, const StopSource& stop);
    /// A complaint that belongs to no job.
    void complain(const std::string& text);
    /// Takes the progress display away.
    void close();
    /// From now on the standard output is somebody else's: nothing is printed where files are.
    void keep_off_output() noexcept { results_elsewhere_ = true; }
    /// How long show() may be kept waiting.
    [[nodiscard]] std::chrono::milliseconds interval() const noexcept;

  private:
    struct Shown {
        std::string address;
        bool start_told = false;
        Clock::time_point told{};
        std::string notice;
        Clock::time_point notice_told{};
        int attempts = 0;  ///< that were told
        int restarts = 0;
        SpeedMeter speed;
    };
    [[nodiscard]] std::string shown_address(const CJobNode& job) const;
    void tell_start(Shown& shown, const std::u16string& path, std::int64_t size);
    void tell_progress(Shown& shown, const JobProgress& progress, double speed);
    void tell_trouble(Shown& shown, const JobProgress& progress);
    void tell_restarts(Shown& shown, int restarts);
    void tell_retry(Shown& shown, const JobProgress& progress);
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
