// A torrent job while it is looked after: its trackers are asked, its peers kept.
#pragma once

#include <memory>
#include <string>

#include "bt/announce_thread.h"
#include "store/job.h"
#include "store/job_log.h"

namespace vantlow {

/// Announces one torrent job. What peers have cannot be fetched yet: it says so, in the log and in summary().
/// Belongs to one thread, which calls every operation.
class TorrentRun {
  public:
    /// `services` outlive the run; a stop of `parent` ends it. Null, with the reason in `error`, when the
    /// job's address is no torrent's.
    static std::unique_ptr<TorrentRun> begin(const CJobNode& job, const AnnounceServices& services,
                                             const ProxyPlan& proxy, CJobLog::Listener listener,
                                             StopSource& parent, std::string& error);
    TorrentRun(const TorrentRun&) = delete;
    TorrentRun& operator=(const TorrentRun&) = delete;

    /// Call now and then: logs new peers, and begins again with trackers that failed.
    void look();
    /// True once every tracker answered or failed.
    [[nodiscard]] bool has_asked_all() const noexcept { return announces_.has_asked_all(); }
    /// Begins to say goodbye to the trackers; the destructor waits for their answers, until 2 s after this.
    void ask_to_end() { announces_.ask_to_stop(); }
    /// A sentence for the person: what is known, and that nothing can be fetched yet.
    [[nodiscard]] std::string summary() const;
    [[nodiscard]] std::size_t peers() const { return identity_.peers.size(); }

  private:
    TorrentRun(const AnnounceServices& services, CJobLog::Listener listener, StopSource& parent)
        : log_(std::move(listener)), announces_(services, identity_, log_, parent) {}

    CJobLog log_;
    TorrentIdentity identity_;
    std::size_t logged_ = 0;        ///< peers that stand in the log
    bool told_ = false;             ///< the summary stands in the log
    CBTAnnounceService announces_;  // last: it uses the above
};

}  // namespace vantlow
