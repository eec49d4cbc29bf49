// The session of a torrent: a TorrentRun.
#include <atomic>
#include <ctime>

#include "base/safe_name.h"
#include "engine/session.h"
#include "engine/torrent_run.h"

namespace vantlow {
namespace {

class TorrentSession : public JobSession {
  public:
    TorrentSession(SessionPlan plan, const TransferServices& services);

    Result start() override { return run_->start(); }
    void fail(const Result& why) override;
    void stop() noexcept override {
        if (run_) run_->stop();  // null behind take_end()
    }
    [[nodiscard]] bool has_ended() const noexcept override { return ended_; }
    SessionEnd take_end() override;
    [[nodiscard]] const CJobNode& job() const noexcept override { return *job_; }
    [[nodiscard]] JobProgress progress() override { return run_->progress(); }
    [[nodiscard]] std::unique_ptr<CJobNode> safe_copy() override;
    [[nodiscard]] std::vector<SessionConnection> connections() override { return run_->connections(); }
    bool report(unsigned parts, TorrentReport& report) override { return run_->report(parts, report); }
    void set_speed_limit(std::int64_t limit) override { run_->set_speed_limit(limit); }

  private:
    std::unique_ptr<CJobNode> job_;
    LogSink& log_;
    TorrentShelf none_{{}};  ///< where the plan has no shelf
    std::function<void()> on_end_;
    std::optional<Result> unstarted_;
    std::atomic<bool> ended_{false};
    std::unique_ptr<TorrentRun> run_;  // last: it uses the above
};

TorrentSession::TorrentSession(SessionPlan plan, const TransferServices& services)
    : job_(std::move(plan.job)), log_(plan.log), on_end_([this, tell = std::move(plan.on_end)] {
          ended_ = true;
          if (tell) tell();
      }) {
    TorrentShelf& shelf = plan.torrents != nullptr ? *plan.torrents : none_;
    run_ = std::make_unique<TorrentRun>(*job_, services, std::move(plan.options), shelf, plan.sharing,
                                        plan.hash_table, log_, on_end_);
}

void TorrentSession::fail(const Result& why) {
    log_.line(Direction::error, why.message());
    unstarted_ = why;
    on_end_();
}

// The files are found by their names after a crash; which of their pieces are good stands beside them.
std::unique_ptr<CJobNode> TorrentSession::safe_copy() {
    const JobProgress progress = run_->progress();
    if (name_of(progress.path).empty()) return nullptr;
    auto copy = job_->twin();
    copy->path = progress.path;
    copy->file_size = progress.size;
    copy->tally = std::make_shared<const TorrentTally>(run_->tally());
    return copy;
}

SessionEnd TorrentSession::take_end() {
    run_->join();
    SessionEnd end;
    end.outcome = run_->outcome();
    const TorrentTally tally = run_->tally();
    if (tally != TorrentTally()) job_->tally = std::make_shared<const TorrentTally>(tally);
    run_.reset();
    if (unstarted_) end.outcome.result = *unstarted_;
    const Result& result = end.outcome.result;
    const bool is_stopped = result.kind() == Kind::stopped;
    job_->result = result.code;
    job_->error = result.ok() || is_stopped ? std::string() : result.message();
    job_->state = result.ok() ? JobState::finished : is_stopped ? JobState::stopped : JobState::failed;
    if (result.ok()) job_->finished = static_cast<std::int64_t>(std::time(nullptr));
    if (!end.outcome.path.empty()) job_->path = end.outcome.path;
    if (end.outcome.size >= 0) job_->file_size = end.outcome.size;
    end.job = std::move(job_);
    return end;
}

}  // namespace

std::unique_ptr<JobSession> make_torrent_session(SessionPlan plan, const TransferServices& services) {
    return std::make_unique<TorrentSession>(std::move(plan), services);
}

}  // namespace vantlow
