// Runs the jobs of a store: whose turn it is, their sessions, and what the records take over from them.
#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "base/mutex.h"
#include "engine/changes.h"
#include "engine/inquiry.h"
#include "engine/name_keeper.h"
#include "engine/recovery.h"
#include "engine/run_options.h"
#include "engine/session.h"
#include "store/job_log_file.h"
#include "store/job_store.h"

namespace vantlow {

/// One job that is looked after now.
struct RunningJob {
    std::size_t number = 0;         ///< counted from 0 in the order of the starts
    const CJobNode* job = nullptr;  ///< the session's own twin; stays until the session ends
    JobProgress progress;
};

/// How a session ended, or settled.
struct JobEnd {
    std::size_t number = 0;
    std::unique_ptr<CJobNode> job;  ///< as the session left it; of one that goes on a copy of its record
    JobOutcome outcome;
    std::optional<Question> question{};
    bool goes_on = false;   ///< it settled: nobody need wait for it any more
    bool shares = false;    ///< a torrent: its files are there since it settled, and it is shared, or was
    bool gave_way = false;  ///< its file was a document, and the jobs that it names took its place
    bool stop_asked = false;
};

/// A line of a job's log, on its way to who shows it.
struct LogLine {
    std::size_t number = 0;  ///< of RunningJob
    CLogNode line;
    Guid job{};
};

/// The sessions of one process. Used from the thread that owns the store; waits for nobody but where it says
/// so.
///
/// A session works on a twin of its record. The record takes over positions whose bytes are on the disk
/// before each save, and the rest when the session ends; so a save waits for no transfer, and no transfer for
/// a save.
class SessionRunner {
  public:
    struct Tools {
        JobStore& store;
        ChangeLog& changes;
        QuestionBoard& questions;
        const SessionTable& sessions;
        const Settings& settings;
        const LibraryTables& libraries;
        ConnectionServices& connections;
        ThreadPool& threads;
        StopSource& stop;             ///< of the whole program; a parent of the runner's own
        std::u16string logs_in;       ///< the data folder that job logs are kept in; empty: none are kept
        std::u16string proxies_in;    ///< the data folder with the proxy list
        std::u16string agent;         ///< of jobs without one of their own
        std::function<void()> wake;   ///< any thread: take_ends() has something
        bool gathers_log = false;     ///< take_log() is called
        bool keeps_state = true;      ///< beside partial files
        NameKeeper* names = nullptr;  ///< hears from sessions before they name a file; null: nobody does
        std::function<void(const NameKeeper::Naming&)> before_name{};  ///< on their threads, likewise
        std::function<void()> serve{};  ///< called while an end is waited for: sessions may wait for it
        TorrentShelf* torrents = nullptr;
        TorrentSharing sharing{};
        bool shares_finished = false;  ///< torrents go on as their rules and the settings say, instead
        TorrentServices torrent_services{};
        /// Says that no session of the job may begin now, because its files are moved.
        std::function<bool(const Guid&)> is_held{};
    };
    explicit SessionRunner(Tools tools);
    ~SessionRunner();
    SessionRunner(const SessionRunner&) = delete;
    SessionRunner& operator=(const SessionRunner&) = delete;

    /// From now on only jobs that name() named are run; without this call every waiting job is.
    void only_named() noexcept { only_named_ = true; }
    void name(const Guid& job) {
        named_.insert(job);
        look_beside_ = true;
    }
    /// States that a job was filed that may wait for its turn.
    void filed() noexcept { look_beside_ = true; }
    [[nodiscard]] bool is_named(const Guid& job) const { return named_.contains(job); }

    /// Asks the server of a job that is not filed; see Engine::inquire().
    std::unique_ptr<Inquiry> inquire(const CJobNode& job, std::function<void()> wake);
    /// Starts the jobs whose turn it is. True when any began or ended by it.
    bool start_waiting();
    /// Asks the job's session to end, where it has one. Returns at once.
    void stop(const Guid& job);
    /// Lets the job wait for its turn again once its stopped session has ended; `first` before all others.
    bool start_again(const Guid& job, bool first = false);
    /// Shares a finished torrent beside the running jobs, as soon as there is room; its record says that it
    /// is to be shared (is_to_be_shared()). `whole_since` as in TorrentSharing.
    void share(const Guid& job, std::int64_t whole_since);
    /// Tells the job's session, where it has one, of the job's new rules.
    void take_rules(const Guid& job, const std::shared_ptr<const JobRules>& rules);
    /// Tells the session of the torrent's job, where it has one, of its trackers.
    void take_trackers(const Guid& job, const std::vector<std::string>& trackers);
    /// Waits up to `at_most` for a session to end, or for wake(), without serving waiting sessions.
    void wait(std::chrono::milliseconds at_most);
    /// Any thread: somebody waits to be served.
    void wake();
    /// The sessions that ended or settled since the last call. Their records are up to date.
    std::vector<JobEnd> take_ends();
    std::vector<LogLine> take_log();
    /// To be called once a second: writes logs to the disk, and looks after the jobs beside the others and
    /// the names that were found.
    void tick();
    /// Notes the progress of the running sessions among the changes.
    void note_progress();
    /// Brings the records of running jobs up to what may be saved.
    void refresh_records();
    /// Waits a moment for an end, and serves.
    void wait_and_serve();
    /// Asks all sessions to end; start_waiting() begins none from now on.
    void stop_all();
    /// Waits for those that were asked to end, whatever kind they are.
    void wait_for_all();

    /// True while a session of the job has not ended.
    [[nodiscard]] bool is_running(const Guid& job) const { return sessions_.contains(job); }
    /// True while its record says that it runs.
    [[nodiscard]] bool takes_place(const Guid& job) const;
    /// True while its finished torrent is shared, or waits for that.
    [[nodiscard]] bool is_sharing(const Guid& job) const;
    /// True while a session has its files open or is about to: they can be removed when it has ended.
    [[nodiscard]] bool holds_files(const Guid& job) const;
    [[nodiscard]] std::size_t running() const noexcept { return places_; }
    /// The number of jobs that may start and have not.
    [[nodiscard]] std::size_t waiting() const;
    /// True while a session runs that has not settled, or a job waits that may start.
    [[nodiscard]] bool has_work() const;
    [[nodiscard]] std::optional<JobProgress> progress(const Guid& job) const;
    [[nodiscard]] std::vector<SessionConnection> connections(const Guid& job) const;
    [[nodiscard]] std::vector<RunningJob> running_jobs() const;
    /// Those whose torrents are shared.
    [[nodiscard]] std::vector<RunningJob> sharing_jobs() const;
    /// See JobSession::report(); false also for a job without a session.
    bool report(const Guid& job, unsigned parts, TorrentReport& report) const;
    void write_logs();
    /// The record of the job is removed, and its log with it, even where one of its sessions has not ended
    /// yet.
    void remove_log(const Guid& job);

  private:
    struct Entry {
        std::size_t number = 0;
        const SessionKind* kind = nullptr;
        std::unique_ptr<JobLogFile> file;  ///< null: no log is kept
        std::unique_ptr<CJobLog> log;
        std::unique_ptr<JobSession> session;  // after the logs that it writes
        std::u16string path;                  ///< as it was saved last
        std::int64_t noted = -1;  ///< bytes done and sent, as they were noted among the changes last
        bool stop_asked = false;
        bool start_again = false;
        bool comes_first = false;  ///< when it starts again
        bool told = false;         ///< that it settled
        bool shares = false;       ///< a finished torrent: it takes no place
        bool log_goes = false;     ///< with the session
    };
    [[nodiscard]] bool may_run(const CJobNode& job) const {
        return !only_named_ || named_.contains(job.identity);
    }
    [[nodiscard]] bool is_held(const Guid& job) const { return tools_.is_held && tools_.is_held(job); }
    /// False for a job whose adding is not safe yet, because it may still be taken back.
    [[nodiscard]] bool may_begin(const CJobNode& job) const {
        return may_run(job) && !sessions_.contains(job.identity) && !tools_.store.is_unsettled(job) &&
               !is_held(job.identity);
    }
    [[nodiscard]] CJobNode* next_waiting() const;
    bool start_next();
    void start_beside();
    bool launch(CJobNode& job, const SessionKind& kind);
    void end_without_session(CJobNode& job);
    Entry& make_entry(const CJobNode& job, const SessionKind& kind,
                      std::optional<std::int64_t> whole_since = std::nullopt);
    [[nodiscard]] TorrentSharing sharing_for(const CJobNode& job,
                                             std::optional<std::int64_t> whole_since) const;
    bool start_sharing();
    void begin_to_share(Entry& entry, JobEnd& told);
    void fetch_more(const Guid& identity, Entry& entry);
    void take_end_of_sharing(Entry& entry, CJobNode& record, CJobNode& ended, const Result& result);
    [[nodiscard]] std::vector<RunningJob> jobs_that(bool share) const;
    CJobLog::Listener listener_of(Entry& entry, const Guid& job);
    void take_end_of(Entry& entry, const Guid& identity);
    void reap();
    void settle();

    Tools tools_;
    StopSource stop_;  ///< of all sessions here
    TransferServices services_;
    std::unordered_map<Guid, std::unique_ptr<Entry>, GuidHash> sessions_;
    /// Sessions beside the others that were asked to end; their records do not belong to them any more.
    std::vector<std::unique_ptr<Entry>> leaving_;
    std::unordered_map<JobKind, std::size_t> beside_;  ///< sessions of each such kind
    std::unordered_set<Guid, GuidHash> named_;
    Recovery recovery_;
    std::vector<JobEnd> ends_;
    std::size_t next_number_ = 0;
    std::size_t places_ = 0;   ///< that running jobs take
    std::size_t sharing_ = 0;  ///< sessions of finished torrents
    /// Finished torrents that wait for room to be shared, and since when their files are whole.
    std::deque<std::pair<Guid, std::int64_t>> to_share_;
    bool only_named_ = false;
    bool look_beside_ = true;  ///< jobs may wait that could be looked after beside the others

    mutable Mutex mutex_;
    Condition changed_;
    std::vector<Guid> ended_ VANTLOW_GUARDED_BY(mutex_);
    std::vector<LogLine> lines_ VANTLOW_GUARDED_BY(mutex_);
    bool woken_ VANTLOW_GUARDED_BY(mutex_) = false;
};

}  // namespace vantlow
