// The session of a torrent: a TorrentRun.
#include <algorithm>
#include <atomic>
#include <charconv>
#include <cmath>
#include <ctime>

#include "base/safe_name.h"
#include "base/text.h"
#include "bt/torrent_settings.h"
#include "engine/session.h"
#include "engine/torrent_run.h"

namespace vantlow {
namespace {

// The setting "SeedRatio"; that of its default where it is no number.
double set_ratio(const Settings& settings) {
    const std::string text = to_utf8(settings.text(setting::seed_ratio));
    double ratio = 1;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), ratio);
    const bool is_number = error == std::errc() && end == text.data() + text.size() && std::isfinite(ratio);
    return is_number ? ratio : 1;
}

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
    [[nodiscard]] std::optional<Result> settled() const override {
        return settles_ && run_ && run_->progress().shares ? std::optional(Result()) : std::nullopt;
    }
    [[nodiscard]] std::vector<SessionConnection> connections() override { return run_->connections(); }
    bool report(unsigned parts, TorrentReport& report) override { return run_->report(parts, report); }
    void take_rules(const std::shared_ptr<const JobRules>& rules) override { run_->take_rules(rules); }
    void take_trackers(const std::vector<std::string>& trackers) override { run_->take_trackers(trackers); }
    [[nodiscard]] bool owes_choice() const override {
        return ended_ ? run_->has_late_choice() : run_->owes_choice();
    }

  private:
    std::unique_ptr<CJobNode> job_;
    LogSink& log_;
    const bool settles_;
    TorrentShelf none_{{}};  ///< where the plan has no shelf
    std::function<void()> on_end_;
    std::optional<Result> unstarted_;
    std::atomic<bool> ended_{false};
    std::unique_ptr<TorrentRun> run_;  // last: it uses the above
};

TorrentSession::TorrentSession(SessionPlan plan, const TransferServices& services)
    : job_(std::move(plan.job)),
      log_(plan.log),
      settles_(plan.sharing.settles),
      on_end_([this, tell = std::move(plan.on_end)] {
          ended_ = true;
          if (tell) tell();
      }) {
    TorrentShelf& shelf = plan.torrents != nullptr ? *plan.torrents : none_;
    run_ = std::make_unique<TorrentRun>(*job_, services, std::move(plan.options), shelf, plan.sharing,
                                        plan.torrent_services, log_, on_end_);
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

TorrentSharing sharing_of(const CJobNode& job, const Settings& settings) {
    const double ratio = job.rules && job.rules->share_ratio ? *job.rules->share_ratio : set_ratio(settings);
    TorrentSharing sharing;
    sharing.goes_on = sharing.settles = ratio != 0;
    sharing.ratio = std::max(ratio, 0.0);
    sharing.time = std::chrono::seconds(
        job.rules && job.rules->share_time ? *job.rules->share_time : settings.number(setting::seed_time));
    return sharing;
}

std::unique_ptr<JobSession> make_torrent_session(SessionPlan plan, const TransferServices& services) {
    return std::make_unique<TorrentSession>(std::move(plan), services);
}

}  // namespace vantlow
