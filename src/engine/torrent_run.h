// The thread of a running torrent: its trackers, its peers, its files.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "base/mutex.h"
#include "bt/announce_thread.h"
#include "bt/magnet.h"
#include "bt/swarm/metadata_fetch.h"
#include "bt/swarm/storage_disk.h"
#include "bt/swarm/swarm.h"
#include "bt/tracker_list_keeper.h"
#include "bt/web/web_seed.h"
#include "engine/peer_sources.h"
#include "engine/session.h"
#include "engine/torrent_files.h"
#include "engine/torrent_reach.h"
#include "engine/torrent_report.h"
#include "engine/torrent_shelf.h"
#include "net/loop.h"

namespace vantlow {

/// Runs one torrent from its info hash to its files: the description comes from the shelf or from peers, then
/// the files are opened and what is missing of them is fetched. Ends when every wanted piece is there and the
/// files have their names and were shared as long as is wanted, at a stop, and where the disk fails. Each
/// torrent has a thread and a loop of its own; the disk's threads come and go with it.
class TorrentRun final : private SwarmListener {
  public:
    /// All but the options outlive the object. `on_end` is called once, from this thread, as its last act.
    TorrentRun(const CJobNode& job, const TransferServices& services, RunOptions options, TorrentShelf& shelf,
               const TorrentSharing& sharing, const TorrentServices& torrent_services, LogSink& log,
               std::function<void()> on_end);
    ~TorrentRun() override;

    /// Fails where the system gives no further thread; nothing runs then.
    Result start();
    /// Asks for the end: what is there is saved, the trackers are told. Any thread.
    void stop() noexcept { stop_.request(); }
    void join() { thread_.join(); }
    /// The job's rules have changed: its limits, the choice of its files and their order hold from now on.
    /// Files that are chosen once the others have their names are not fetched any more. Any thread.
    void take_rules(std::shared_ptr<const JobRules> rules);
    /// These are its trackers from now on. Any thread.
    void take_trackers(const std::vector<std::string>& trackers);
    /// Files were chosen too late for this run. Any thread.
    [[nodiscard]] bool owes_choice() const noexcept { return owes_choice_; }
    /// The same, once it has ended. The owner's thread.
    [[nodiscard]] bool has_late_choice() const;
    /// Any thread, as the next two.
    [[nodiscard]] JobProgress progress() const;
    /// The trackers, then the peers.
    [[nodiscard]] std::vector<SessionConnection> connections() const;
    /// The job's exchange with peers until now, in earlier runs too. Any thread.
    [[nodiscard]] TorrentTally tally() const;
    /// Makes the report on this run's own thread and waits for it, a quarter of a second at most. False where
    /// that thread does something else, as while files are checked: the phase and what the check has done
    /// are all that is in the report then. One thread at a time.
    bool report(unsigned parts, TorrentReport& report);
    /// After join().
    [[nodiscard]] const JobOutcome& outcome() const noexcept { return outcome_; }

  private:
    enum class Phase { description, check, exchange };

    // torrent_run.cpp: from the address to the end
    void run();
    Result work();
    Result read_address();
    void find_peers(std::span<const SocketAddress> nodes);
    Result describe();
    Result fetch_description(std::string& info, PieceLayers& layers);
    void note_kept(const FileError& kept);
    Result open_files();
    Result fetch_pieces();
    Result conclude(const Result& fetched);
    Result give_names(const std::vector<bool>& good);

    // torrent_round.cpp: while the loop runs
    void take_caller(std::unique_ptr<net::Stream> stream);
    void every_second();
    void start_round();
    void tell_peers();
    void look_up_peers();
    void take_looked_up(const std::vector<SocketAddress>& peers);
    void follow_filter();
    void hand_on_filter();
    std::vector<std::unique_ptr<WebSeed>> make_web_seeds();
    [[nodiscard]] HttpErrand seed_errand() const;
    void call_web_seeds();
    [[nodiscard]] WebSeed* web_seed_at(const SocketAddress& address) const;
    void log_peer(const SocketAddress& peer);
    void log_sources();
    void count();
    void save_some();
    void look_after_files();
    void share();
    [[nodiscard]] bool is_shared_enough() const;
    void show();
    [[nodiscard]] TorrentTally count_up() const;
    void show_peers(JobProgress& progress, std::vector<SessionConnection>& connections) const;
    [[nodiscard]] std::string lack() const;

    // torrent_steering.cpp: what a person changes meanwhile
    void set_limits(const JobRules* rules);
    void follow_rules();
    void follow_trackers();
    void follow_tracker_list();
    void announce_to_all();
    void choose(const TorrentChoice& choice, std::uint64_t number);
    void have_chosen(const TorrentChoice& choice, std::uint64_t number);
    void want_pieces(const TorrentChoice& choice, bool nothing_more);
    void measure();
    [[nodiscard]] std::shared_ptr<const JobRules> rules(std::uint64_t& number) const;

    // torrent_facts.cpp: what is asked from outside
    /// Reports are made between the two.
    void open_for_questions();
    void close_for_questions();
    [[nodiscard]] TorrentReport look(unsigned parts) const;
    void look_at_peers(unsigned parts, TorrentReport& report) const;
    void look_at_trackers(TorrentReport& report) const;
    void look_at_files(unsigned parts, TorrentReport& report) const;

    void piece_came(std::uint32_t piece) override;
    void completed() override;
    void banned(const SocketAddress& peer) override;
    void met_node(const SocketAddress& node) override { sources_.add_node(node); }
    void failed(const Result& why) override;

    const CJobNode& job_;
    TransferServices services_;
    const RunOptions options_;
    TorrentShelf& shelf_;
    const TorrentSharing sharing_;
    const TorrentServices torrent_services_;
    LogSink& log_;
    const std::function<void()> on_end_;
    StopSource stop_;
    JobPace pace_{services_.connections.received};
    JobPace sent_{services_.connections.sent};
    const LinkLimits limits_{pace_.limits(), sent_.limits(), pace_.group(), sent_.group()};
    JobOutcome outcome_;

    // All below belongs to the thread.
    Magnet magnet_;
    LinkCrypto crypto_;
    TorrentIdentity identity_;
    CBTAnnounceService announces_;
    std::vector<std::string> own_trackers_;                   ///< that the torrent, or a person, names
    std::shared_ptr<const TrackerListKeeper::State> listed_;  ///< further ones
    PeerSources sources_;
    TorrentContent content_;
    std::optional<TorrentHashes> hashes_;
    std::optional<TorrentFiles> files_;
    std::vector<bool> good_;
    TorrentChoice choice_;        ///< that is followed
    std::uint64_t followed_ = 0;  ///< the number of the rules that it comes from
    std::atomic<bool> owes_choice_ = false;
    std::atomic<Phase> phase_ = Phase::description;
    std::size_t told_ = 0;          ///< peers of identity_ that the swarm knows
    std::set<std::string> logged_;  ///< that stand in the log
    std::int64_t size_ = -1;
    std::int64_t done_ = 0;
    std::int64_t received_ = 0;
    std::int64_t given_ = 0;
    bool is_complete_ = false;
    std::optional<Clock::time_point> named_;  ///< since when the files have their names and are shared
    std::optional<Result> failure_;
    bool is_saving_ = false;    ///< or does something else with the files
    bool is_choosing_ = false;  ///< the same: files are chosen
    bool gives_names_ = false;  ///< the same for good: the files get their names, or have them
    bool share_after_saving_ = false;
    bool has_news_ = false;      ///< pieces came since the last save
    Clock::time_point began_{};  ///< the fetching of the description, then that of the pieces
    Clock::time_point next_save_{};
    std::int64_t saved_ = 0;           ///< bytes received when it was saved last
    Clock::time_point latest_save_{};  ///< when it is saved although no piece has come, but bytes have
    Clock::time_point next_look_{};    ///< whether the shared files are there
    Clock::time_point idle_since_{};   ///< when the last peer was seen to give something
    std::string lacked_;               ///< as the log knows it
    std::unique_ptr<net::Loop> loop_;
    TorrentReach reach_{services_, torrent_services_, stop_, log_};
    std::optional<net::Timer> ticks_;
    StorageDisk* disk_ = nullptr;  ///< while pieces are fetched
    Swarm* swarm_ = nullptr;
    std::vector<std::unique_ptr<WebSeed>>* web_seeds_ = nullptr;
    MetadataFetch* description_ = nullptr;  ///< while it is fetched

    CheckProgress checked_;
    mutable Mutex mutex_;
    JobProgress progress_ VANTLOW_GUARDED_BY(mutex_);
    TorrentTally tally_ VANTLOW_GUARDED_BY(mutex_);
    std::shared_ptr<const JobRules> rules_ VANTLOW_GUARDED_BY(mutex_);
    std::uint64_t rules_number_ VANTLOW_GUARDED_BY(mutex_) = 1;
    std::optional<std::vector<std::string>> trackers_
        VANTLOW_GUARDED_BY(mutex_);  ///< that a person wants instead, until they are followed
    bool takes_questions_ VANTLOW_GUARDED_BY(mutex_) = false;
    std::uint64_t asked_ VANTLOW_GUARDED_BY(mutex_) = 0;  ///< the number of the last question
    std::uint64_t answered_ VANTLOW_GUARDED_BY(mutex_) = 0;
    TorrentReport answer_ VANTLOW_GUARDED_BY(mutex_);
    Condition answered_now_;
    std::vector<SessionConnection> connections_ VANTLOW_GUARDED_BY(mutex_);

    StopSource look_up_stop_{stop_};
    ThreadPool::Running look_up_;  ///< asks for the addresses of peers that the link names by host names
    ThreadPool::Running thread_;   ///< last
};

}  // namespace vantlow
