// Announcing a torrent job to one tracker, again and again.
#pragma once

#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "base/busy_lock.h"
#include "base/log.h"
#include "base/mutex.h"
#include "bt/announce.h"
#include "bt/tracker_answer.h"
#include "runtime/tables.h"
#include "store/settings.h"

namespace vantlow {

/// Services that all announces share. They outlive the announces.
struct AnnounceServices {
    ConnectionServices& connections;
    const LibraryTables& libraries;
    const Settings& settings;
    std::chrono::seconds udp_timeout{60};  ///< for each answer of a UDP tracker
    std::function<void()> on_peers{};      ///< the job has new peers; on the thread of the announce
};

/// The outcome of an announce.
struct AnnounceReport {
    bool ok = false;            ///< a valid answer without a failure
    bool is_last = false;       ///< the tracker wants no further announce
    std::int64_t interval = 0;  ///< seconds until the next announce
    Clock::time_point made{};   ///< when the announce ended
    std::vector<SocketAddress> peers;
    std::optional<SwarmCounts> counts;
    std::string failure;  ///< the tracker's reason, one line, its bytes as sent; or a sentence of our own
    std::string warning;  ///< the tracker's, likewise
};

/// One thread for one tracker: it makes the initial announce, further ones at the tracker's interval, and
/// "stopped" at the end. Members are used by that thread only, except where they say otherwise.
class CBTAnnounceThread {
  public:
    /// `job` and `log` outlive the thread; a stop of `parent` counts as stop().
    CBTAnnounceThread(const AnnounceServices& services, TorrentIdentity& job, std::string tracker,
                      AnnounceEvent initial, LogSink& log, StopSource& parent);
    ~CBTAnnounceThread();
    CBTAnnounceThread(const CBTAnnounceThread&) = delete;
    CBTAnnounceThread& operator=(const CBTAnnounceThread&) = delete;

    void start();
    /// Ends the repetition; one last announce says "stopped". Any thread.
    void stop() noexcept { stop_.request(); }
    /// Has the tracker told that the torrent is complete: at once, or with the last announce. Any thread.
    void complete() noexcept;
    /// Ends everything at once, the last announce too. Any thread.
    void abandon() noexcept;
    void join();
    /// True once an announce has ended, whatever its outcome. Any thread.
    [[nodiscard]] bool has_announced() const noexcept { return announced_; }
    /// True once the thread has nothing more to do. Any thread.
    [[nodiscard]] bool has_ended() const noexcept { return ended_; }

    /// Makes one request and reads its answer; true when the answer was valid. Peers go to the job; this
    /// object keeps the interval. Returns false at once while another announce of this object runs.
    bool announce(std::string_view tracker, AnnounceEvent event);
    /// Asks how many peers there are, and announces nothing (BEP 48, BEP 15).
    Outcome<SwarmCounts> scrape();
    /// The last announce. Any thread.
    [[nodiscard]] AnnounceReport report() const;
    [[nodiscard]] const std::string& tracker() const noexcept { return tracker_; }

  private:
    void run();
    bool announce_now(const std::string& url, AnnounceEvent event);
    void ask_for_counts(const StopSource& stop);
    // Over HTTP (http_announce.cpp).
    Outcome<CBETrackerRespond> ask_http(const std::string& url, AnnounceEvent event);
    Outcome<SwarmCounts> scrape_http(const std::string& url, const StopSource& stop);
    Result fetch(const std::string& url, bool second_attempt, const StopSource& stop, std::string& body);
    void prefer_ipv6(ConnectPlan& plan);
    void resolve_named(CBETrackerRespond& respond);
    void learn_own_address(const std::string& url);
    // Over UDP (udp_announce.cpp).
    Outcome<CBETrackerRespond> ask_udp(const std::string& url, AnnounceEvent event);
    Outcome<SwarmCounts> scrape_udp(const std::string& url);
    Result udp_open(class UdpChannel& channel, const std::string& url);
    Result udp_connect(class UdpChannel& channel);
    Outcome<std::string> receive_fresh(class UdpChannel& channel, std::size_t most, Clock::time_point until);
    Outcome<std::string> udp_exchange(class UdpChannel& channel, const std::string& request,
                                      std::size_t wanted, int receives);
    void make_transaction();

    bool accept(CBETrackerRespond respond);
    void refuse(const Result& result);
    void note_own_address(const SocketAddress& local);
    [[nodiscard]] StopSource& active_stop() noexcept { return stopping_ ? last_stop_ : stop_; }
    [[nodiscard]] std::uint32_t numwant() const;

    AnnounceServices services_;
    TorrentIdentity& job_;
    const std::string tracker_;
    const AnnounceEvent initial_;
    LogSink& log_;
    StopSource stop_;
    StopSource last_stop_;  ///< of the announces that stop_ leaves alone
    StopSource news_;       ///< a child of stop_: the torrent is complete, or stop_ was requested
    std::atomic<bool> is_complete_{false};
    BusyLock busy_;
    bool stopping_ = false;  ///< the announce being made is one of those that stop_ leaves alone
    std::int64_t interval_ = 0;
    std::uint32_t transaction_ = 0;  ///< 0: none is held
    std::string connection_;         ///< the 8 bytes of a UDP tracker
    std::string answered_;           ///< the beginning of its answer to the connect request

    mutable Mutex mutex_;
    AnnounceReport report_ VANTLOW_GUARDED_BY(mutex_);
    std::atomic<bool> announced_{false};
    std::atomic<bool> ended_{false};
    std::thread thread_;  ///< last
};

/// The threads of one torrent job, one a tracker. Belongs to one thread.
class CBTAnnounceService {
  public:
    CBTAnnounceService(const AnnounceServices& services, TorrentIdentity& job, LogSink& log,
                       StopSource& parent)
        : services_(services), job_(job), log_(log), parent_(parent) {}
    ~CBTAnnounceService() { stop(); }
    CBTAnnounceService(const CBTAnnounceService&) = delete;
    CBTAnnounceService& operator=(const CBTAnnounceService&) = delete;

    /// Starts a thread for each tracker in the list, once each.
    void start(const std::vector<std::string>& trackers, AnnounceEvent initial = AnnounceEvent::started);
    /// From now on these trackers are told and no others, and the threads stand in their order: those that
    /// are new hear "started", those that are not among them any more "stopped", for which nobody waits.
    void follow(const std::vector<std::string>& trackers);
    /// Tells every tracker that the torrent is complete, those too that are stopped right afterwards.
    void complete();
    /// Begins to send "stopped" to every tracker; has_said_goodbye() tells when that is over. stop() waits
    /// for it.
    void ask_to_stop();
    /// True once every tracker has heard "stopped", or 2 s after ask_to_stop(); stop() then waits no longer.
    [[nodiscard]] bool has_said_goodbye() const noexcept {
        return goodbye_until_ && (!is_running() || Clock::now() >= *goodbye_until_);
    }
    /// Sends "stopped" to every tracker and waits for the answers until 2 s after the first request to stop;
    /// then ends all that remain.
    void stop();
    /// Starts trackers again that could not be reached, each after a pause that doubles from one minute to
    /// half an hour. A tracker that refused is left alone. To be called now and then.
    void revive();
    [[nodiscard]] bool is_running() const noexcept;
    /// True once every tracker has answered, or failed, for the first time.
    [[nodiscard]] bool has_asked_all() const noexcept;
    [[nodiscard]] const std::vector<std::unique_ptr<CBTAnnounceThread>>& threads() const noexcept {
        return threads_;
    }
    /// When the tracker of the thread at this index is asked again; none where it is not known.
    [[nodiscard]] std::optional<Clock::time_point> next_announce(std::size_t index) const;

  private:
    struct Pause {
        std::chrono::seconds length{60};  ///< of the next one
        Clock::time_point until{};        ///< epoch: not pausing
    };

    void add(const std::string& url, AnnounceEvent initial);

    AnnounceServices services_;
    TorrentIdentity& job_;
    LogSink& log_;
    StopSource& parent_;
    std::vector<std::unique_ptr<CBTAnnounceThread>> leaving_;  ///< they say "stopped" and go
    std::vector<std::unique_ptr<CBTAnnounceThread>> threads_;
    std::vector<Pause> pauses_;  ///< of the thread at the same index
    std::optional<Clock::time_point> goodbye_until_;
};

}  // namespace vantlow
