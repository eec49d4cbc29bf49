// The torrent jobs of a process: announced while they wait for somebody who can fetch from peers.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "base/guid.h"
#include "engine/torrent_run.h"
#include "transfer/job/main_thread.h"

namespace vantlow {

/// The one proxy that a torrent's trackers and peers are reached through, as far as `run` has any.
ProxyPlan torrent_proxy(const RunOptions& run);

/// Looks after torrent jobs, each under its identity. Used from one thread.
class TorrentDesk {
  public:
    /// Each has a thread for every tracker: more torrents than these have to wait.
    static constexpr std::size_t most_at_once = 20;

    TorrentDesk(const AnnounceServices& services, StopSource& parent)
        : services_(services), parent_(parent) {}
    ~TorrentDesk() { end_all(); }
    TorrentDesk(const TorrentDesk&) = delete;
    TorrentDesk& operator=(const TorrentDesk&) = delete;

    [[nodiscard]] bool has(const Guid& identity) const { return runs_.contains(identity); }
    [[nodiscard]] bool is_full() const noexcept { return runs_.size() >= most_at_once; }
    /// True while trackers are being asked for the first time.
    [[nodiscard]] bool is_asking() const noexcept;

    /// Begins to announce. The listener gets the lines of its log, from any thread. What is no torrent's
    /// address is told by the next look().
    void begin(const CJobNode& job, const ProxyPlan& proxy, CJobLog::Listener listener);
    /// Call now and then. `asked` is called once for each job when all of its trackers were asked, with a
    /// sentence for the person.
    void look(const std::function<void(const Guid& identity, const std::string& summary)>& asked);
    /// Says goodbye to the trackers: 2 s at most, for all of them together.
    void end(const Guid& identity) { runs_.erase(identity); }
    void end_all();

  private:
    struct Entry {
        std::unique_ptr<TorrentRun> run;  ///< null: the address is no torrent's
        std::string failure;
        bool told = false;
    };
    AnnounceServices services_;
    StopSource& parent_;
    std::map<Guid, Entry> runs_;
};

}  // namespace vantlow
