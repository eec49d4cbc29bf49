// The jobs of one `vantlow get`, from its links to the last of them that ends.
#pragma once

#include <chrono>
#include <deque>
#include <map>
#include <memory>
#include <string>

#include "app/exit.h"
#include "app/get_options.h"
#include "app/get_output.h"
#include "app/job_factory.h"
#include "app/list_memory.h"
#include "app/output_pipe.h"
#include "app/torrent_desk.h"
#include "transfer/job/queue.h"

namespace vantlow {

/// The status of all jobs together: that of the only failure, or the one that all failures share.
class StatusOfAll {
  public:
    void add(const Result& result) {
        const Exit status = exit_of(result);
        if (status == Exit::done) return;
        status_ = failed_ && status != status_ ? Exit::failed : status;
        failed_ = true;
    }
    [[nodiscard]] Exit status() const noexcept { return status_; }

  private:
    bool failed_ = false;
    Exit status_ = Exit::done;
};

/// The torrents of one `get`: their trackers are asked, their peers told; then they end, as nobody can fetch
/// from peers yet.
class TorrentsOfGet {
  public:
    TorrentsOfGet(const AnnounceServices& services, StopSource& stop, ProxyPlan proxy, bool json,
                  GetOutput& output, StatusOfAll& all)
        : desk_(services, stop), proxy_(std::move(proxy)), json_(json), output_(output), all_(all) {}

    void add(CJobQueue::Id id, std::unique_ptr<CJobNode> job, CJobLog::Listener listener) {
        waiting_.push_back({id, std::move(job), std::move(listener)});
    }
    [[nodiscard]] bool has_work() const noexcept { return !waiting_.empty() || !asked_.empty(); }
    void look();

  private:
    struct Torrent {
        CJobQueue::Id id = 0;
        std::unique_ptr<CJobNode> job;
        CJobLog::Listener listener;
    };
    TorrentDesk desk_;
    const ProxyPlan proxy_;
    const bool json_;
    GetOutput& output_;
    StatusOfAll& all_;
    std::deque<Torrent> waiting_;
    std::map<Guid, Torrent> asked_;
};

/// Which jobs have tried for too long: those that got no byte for all that time, and know why. Waiting for a
/// place at a server that others fetch from is no trying.
class Patience {
  public:
    /// 0: without end.
    explicit Patience(std::chrono::seconds at_most) : at_most_(at_most) {}
    /// The moment of a running job; true when it is to be given up.
    bool is_over(CJobQueue::Id id, const JobProgress& progress, Clock::time_point now);
    void forget(CJobQueue::Id id) { seen_.erase(id); }

  private:
    struct Seen {
        std::int64_t received = -1;
        Clock::time_point since{};
    };
    std::chrono::seconds at_most_;
    std::map<CJobQueue::Id, Seen> seen_;
};

/// Used from one thread, which drives the queue. All that it is given outlives it.
class GetRun {
  public:
    GetRun(const TransferServices& services, const GlobalOptions& global, const GetOptions& options,
           const RunOptions& run, GetOutput& output);
    /// Records what was finished until everything is.
    void remember(std::unique_ptr<ListMemory> memory) { memory_ = std::move(memory); }
    /// The file of the only job goes there, as soon as it cannot change any more; a document is not followed.
    void write_to(OutputPipe& pipe) { pipe_ = &pipe; }

    /// Files the jobs of one link or document. What the memory knows as finished is told so, once all are
    /// filed.
    void add(const std::string& link) { file(factory_.make(link)); }
    /// Until every job has ended, those included that fetched documents name; after a stop, until the running
    /// ones have. `tick` is called about once a second.
    void drive(const std::function<void()>& tick);
    [[nodiscard]] Exit status() const noexcept { return all_.status(); }

  private:
    void file(MadeJobs made);
    bool skip(JobRequest& request);
    void ended(CJobQueue::Ended& job);
    void give_up(CJobQueue::Id id, Result why);
    void look_for_hopeless();
    void feed_pipe();

    const bool verbose_;
    const RunOptions& run_;
    StopSource& stop_;
    GetOutput& output_;
    StatusOfAll all_;
    CJobQueue queue_;
    JobFactory factory_;
    TorrentsOfGet torrents_;
    Patience patience_;
    std::map<CJobQueue::Id, Result> given_up_;  ///< why they are stopped
    OutputPipe* pipe_ = nullptr;
    std::unique_ptr<ListMemory> memory_;  ///< null: nothing is remembered
    std::size_t filed_ = 0;               ///< jobs
};

}  // namespace vantlow
