// The jobs that wait and those that run.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "store/job_log.h"
#include "transfer/job/main_thread.h"

namespace vantlow {

/// Runs jobs in the order in which they were added, at most so many at once. Driven by one thread, which
/// calls every operation. The services' stop ends the running ones. `on_end` is called from a job's own
/// thread when it ended, so that who drives the queue need not wait in wait(); it must return soon.
class CJobQueue {
  public:
    explicit CJobQueue(const TransferServices& services, std::function<void()> on_end = {})
        : services_(services), on_end_(std::move(on_end)) {}
    ~CJobQueue();
    CJobQueue(const CJobQueue&) = delete;
    CJobQueue& operator=(const CJobQueue&) = delete;

    using Id = std::size_t;

    /// Files a job behind those that wait. `log_listener` gets the lines of its log while it runs; may be
    /// empty.
    Id add(std::unique_ptr<CJobNode> job, RunOptions options, CJobLog::Listener log_listener = {});
    /// The id that the next job gets.
    [[nodiscard]] Id next_id() const noexcept { return next_id_; }
    /// An id for a job that somebody else runs.
    Id take_id() noexcept { return next_id_++; }

    /// Starts waiting jobs up to "MaxJobs" of the settings; returns the ids of those that it started.
    std::vector<Id> start_waiting();
    /// Waits until a job ends or the time is over; the jobs that ended, in the order of their ends.
    struct Ended {
        Id id = 0;
        std::unique_ptr<CJobNode> job;
        JobOutcome outcome;
    };
    std::vector<Ended> wait(std::chrono::milliseconds at_most);

    /// Asks a running job to end; wait() tells when it did.
    void stop(Id id) { running_.at(id)->thread->stop(); }
    /// The running job as it may be saved: see CTransferMainThread::safe_copy.
    [[nodiscard]] std::unique_ptr<CJobNode> safe_copy(Id id) { return running_.at(id)->thread->safe_copy(); }

    /// Takes the jobs that were never started back out.
    std::vector<Ended> drop_waiting();
    [[nodiscard]] std::size_t waiting() const noexcept { return waiting_.size(); }
    [[nodiscard]] std::size_t running() const noexcept { return running_.size(); }
    [[nodiscard]] std::vector<Id> running_ids() const;
    [[nodiscard]] const CJobNode& job(Id id) const { return *running_.at(id)->job; }
    [[nodiscard]] JobProgress progress(Id id) { return running_.at(id)->thread->progress(); }

  private:
    struct Waiting {
        Id id = 0;
        std::unique_ptr<CJobNode> job;
        RunOptions options;
        CJobLog::Listener listener;
    };
    struct Running {
        std::unique_ptr<CJobNode> job;
        std::unique_ptr<CJobLog> log;
        CQueueThreadNode node;
        std::unique_ptr<CTransferMainThread> thread;  // last: it uses all of the above
    };

    TransferServices services_;
    std::function<void()> on_end_;
    Id next_id_ = 0;
    std::deque<Waiting> waiting_;
    std::map<Id, std::unique_ptr<Running>> running_;
    std::mutex mutex_;
    std::condition_variable_any changed_;
    std::vector<Id> ended_;  ///< guarded by mutex_: their threads are about to end
};

}  // namespace vantlow
