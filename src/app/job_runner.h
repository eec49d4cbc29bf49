// Runs the jobs of the store: the queue, and what becomes of jobs that end.
#pragma once

#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "app/application.h"
#include "app/torrent_desk.h"
#include "store/job_log_file.h"
#include "store/job_store.h"
#include "transfer/job/queue.h"
#include "transfer/job/resume_state.h"

namespace vantlow {

/// The running jobs of one process that owns its data folder. Used from the thread that owns the store.
///
/// A running job works on a twin of its record; the record is brought up to date before each save, with
/// positions whose bytes are on the disk, and when the job ends. That a job begins, what its file is called
/// and that it ends is made safe when it happens; its file does not get its name before the store knows it.
class JobRunner {
  public:
    struct Events {
        std::function<void()> wake;  ///< any thread: a job ended, pump() has something to do
        std::function<void(const CJobQueue::Ended&)> ended;
        std::function<void(CJobQueue::Id, const CLogNode&)> log_line;  ///< any thread
    };
    JobRunner(CFerrywellApp& app, JobStore& store, ConnectionServices& connections, ThreadPool& threads,
              Events events);
    ~JobRunner();
    JobRunner(const JobRunner&) = delete;
    JobRunner& operator=(const JobRunner&) = delete;

    /// From now on only jobs that start() names are run; without it every job that waits is.
    void only_named() noexcept { only_named_ = true; }
    /// The job waits for its turn, behind the others, or is left alone where it waits or runs already. Also
    /// finished jobs start anew.
    void start(CJobNode& job);
    /// Stops a job that runs or waits; others stay as they are. A running one ends soon: see end_of().
    void stop(CJobNode& job);
    /// Waits until the job does not run (any more); at most some tenths of a second after stop().
    void wait_for_end(const CJobNode& job);

    /// Takes in the jobs that ended and starts those whose turn it is. Waits up to `at_most` for an end.
    void pump(std::chrono::milliseconds at_most = std::chrono::milliseconds(0));
    /// Once a second: logs to the disk, the settings looked at again, the store saved where something
    /// changed that is worth it.
    void tick();
    /// The save that the timer asks for, in the background. A failure is complained about.
    void save();
    /// Tells when what a command changed is safe, or why it cannot be made so; what it added is taken back
    /// then.
    void settle(JobStore::Settled settled);
    /// Ends all running jobs, which will wait for their turn when they are run again, and saves.
    bool close(std::string& error);

    [[nodiscard]] std::optional<JobProgress> progress(const CJobNode& job);
    [[nodiscard]] bool is_running(const CJobNode& job) const { return running_.contains(job.identity); }
    [[nodiscard]] std::size_t running() const noexcept { return running_.size(); }
    /// True while a job runs or one that may start waits.
    [[nodiscard]] bool has_work();
    void write_logs();
    [[nodiscard]] CJobQueue& queue() noexcept { return queue_; }

  private:
    struct Running {
        CJobQueue::Id id = 0;
        bool stop_asked = false;
        std::unique_ptr<JobLogFile> log;
        std::u16string path;  ///< as it was saved last
    };
    bool start_next();
    bool prepare(CJobNode& job);
    bool launch(CJobNode& job);
    void take_end(CJobQueue::Ended ended);
    bool follow(CJobNode& job, const JobOutcome& outcome);
    void refresh_records();
    void commit();
    void tell(const std::string& failure);
    void tell_notes();
    void record_name(const Guid& identity, const std::u16string& path, std::int64_t size);
    void take_names();
    void serve_while_ending();
    void adopt_state(CJobNode& job, bool interrupted);
    CJobNode* next_waiting();
    [[nodiscard]] bool may_run(const CJobNode& job) const {
        return !only_named_ || named_.contains(job.identity);
    }
    void look_for_torrents();
    void look_at_torrents();
    void begin_torrent(CJobNode& job);
    void end_torrent(const Guid& identity);

    CFerrywellApp& app_;
    JobStore& store_;
    Events events_;
    StopSource stop_;  ///< of all jobs that run here
    CJobQueue queue_;
    std::unordered_map<Guid, Running, GuidHash> running_;
    std::unordered_set<Guid, GuidHash> named_;
    bool only_named_ = false;
    int pause_ = 0;               ///< ticks until what failed is tried again
    std::string told_;            ///< the failure that was told last
    std::size_t notes_told_ = 0;  ///< of the store's
    /// The states in the folders of jobs that the last process left, read once.
    std::map<std::u16string, ResumeIndex> left_behind_;

    /// A file that is whole and waits for its name.
    struct Naming {
        Guid identity;
        std::u16string path;
        std::int64_t size = 0;
        bool done = false;
    };
    std::mutex names_mutex_;
    std::condition_variable names_changed_;
    std::vector<std::shared_ptr<Naming>> names_;  ///< guarded by names_mutex_, and so is each one's `done`

    // Torrents stay among the jobs that wait; who can fetch from peers takes them from there one day.
    struct Torrent {
        CJobQueue::Id id = 0;
        std::unique_ptr<JobLogFile> log;
    };
    std::unordered_map<Guid, Torrent, GuidHash> torrents_;
    bool new_torrents_ = true;  ///< some may wait that nobody looks after
    TorrentDesk desk_;          // after the logs that it writes
};

}  // namespace vantlow
