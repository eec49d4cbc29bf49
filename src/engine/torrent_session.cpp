// The session of a torrent: it asks the trackers and keeps the peers. Fetching from peers is not possible
// yet, so the session settles once every tracker was asked, and its record goes on waiting.
#include <algorithm>

#include "base/text.h"
#include "bt/announce_thread.h"
#include "bt/magnet.h"
#include "bt/torrent_settings.h"
#include "engine/run_options.h"
#include "engine/session.h"
#include "platform/process.h"
#include "store/job_store.h"

namespace vantlow {
namespace {

// The bytes left are unknown; a number above zero makes trackers return seeders too.
constexpr std::int64_t left_unknown = 16384;
// The log of a job is for reading, so it shows only the first peers of a swarm.
constexpr std::size_t most_logged = 100;

class TorrentSession : public JobSession {
  public:
    TorrentSession(SessionPlan plan, const TransferServices& services);

    Result start() override;
    void fail(const Result& why) override;
    void stop() noexcept override;
    [[nodiscard]] bool has_ended() const noexcept override;
    SessionEnd take_end() override;
    [[nodiscard]] const CJobNode& job() const noexcept override { return *job_; }
    [[nodiscard]] JobProgress progress() override;
    [[nodiscard]] std::unique_ptr<CJobNode> safe_copy() override { return nullptr; }
    [[nodiscard]] std::vector<SessionConnection> connections() override;
    void look() override;
    [[nodiscard]] std::optional<Result> settled() const override { return settled_; }

  private:
    [[nodiscard]] std::string summary() const;

    std::unique_ptr<CJobNode> job_;
    LogSink& log_;
    std::vector<std::string> trackers_;
    TorrentIdentity identity_;
    std::size_t logged_ = 0;  ///< peers that stand in the log
    std::optional<Result> settled_;
    bool stopping_ = false;
    CBTAnnounceService announces_;  // last: it uses the above
};

TorrentSession::TorrentSession(SessionPlan plan, const TransferServices& services)
    : job_(std::move(plan.job)),
      log_(plan.log),
      announces_({services.connections, services.libraries, services.settings}, identity_, log_,
                 services.stop) {
    const auto magnet = parse_magnet(to_utf8(job_->address), default_magnet_trackers(services.settings));
    if (!magnet) {
        settled_ = Result(Code::invalid_url,
                          "This kind of torrent address cannot be used: " + to_utf8(job_->address));
        return;
    }
    identity_.info_hash = magnet->info_hash;
    identity_.peer_id = make_peer_id(new_guid());
    identity_.proxy = torrent_proxy(plan.options);
    identity_.left = job_->file_size > 0 ? job_->file_size : left_unknown;
    for (const std::string& tracker : magnet->trackers) trackers_.push_back(tracker_from_magnet(tracker));
}

Result TorrentSession::start() {
    announces_.start(trackers_);
    return {};
}

void TorrentSession::fail(const Result& why) {
    settled_ = why;
    stop();
}

void TorrentSession::stop() noexcept {
    if (std::exchange(stopping_, true)) return;
    announces_.ask_to_stop();  // has_ended() then looks whether the trackers have answered
}

bool TorrentSession::has_ended() const noexcept {
    return stopping_ && announces_.has_said_goodbye();
}

SessionEnd TorrentSession::take_end() {
    announces_.stop();
    SessionEnd end;
    end.outcome.result = settled_ ? *settled_ : Result(Code::stopped);
    end.job = std::move(job_);
    return end;
}

JobProgress TorrentSession::progress() {
    JobProgress progress;
    progress.size = job_->file_size > 0 ? job_->file_size : -1;
    return progress;
}

std::vector<SessionConnection> TorrentSession::connections() {
    std::vector<SessionConnection> connections;
    for (const auto& thread : announces_.threads()) {
        SessionConnection connection;
        connection.peer = without_keys(thread->tracker());
        connection.works = !thread->has_ended();
        connection.trouble = thread->report().failure;
        connections.push_back(std::move(connection));
    }
    return connections;
}

void TorrentSession::look() {
    if (stopping_) return;
    if (logged_ < std::min(identity_.peers.size(), most_logged)) {
        const std::vector<SocketAddress> known = identity_.peers.peers();
        for (; logged_ < std::min(known.size(), most_logged); ++logged_) {
            log_.line(Direction::note, "Peer: " + peer_text(known[logged_]));
        }
    }
    if (!settled_ && announces_.has_asked_all()) {
        settled_ = Result(Code::unsupported, summary());
        log_.line(Direction::error, settled_->message());
    }
    announces_.revive();
}

std::string TorrentSession::summary() const {
    return "Downloading from the BitTorrent network is not possible yet: the trackers were asked, " +
           std::to_string(identity_.peers.size()) + " peers are known, and the job waits.";
}

}  // namespace

std::unique_ptr<JobSession> make_torrent_session(SessionPlan plan, const TransferServices& services) {
    return std::make_unique<TorrentSession>(std::move(plan), services);
}

}  // namespace vantlow
