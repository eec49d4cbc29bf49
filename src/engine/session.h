// A job of some kind while it is looked after, and the table of kinds.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/result.h"
#include "engine/kinds.h"
#include "engine/questions.h"
#include "store/job.h"
#include "transfer/job/main_thread.h"
#include "transfer/job/progress.h"

namespace vantlow {

class DhtService;
class IpFilterKeeper;
class PortMapper;
class TrackerListKeeper;
class TorrentShelf;
struct TorrentReport;

/// One connection of a session, as lists show it.
struct SessionConnection {
    std::string peer;        ///< UTF-8: a server or a tracker, without credentials and keys
    std::int64_t start = 0;  ///< of the range that it works on, bytes; both 0 where it has none
    std::int64_t end = 0;    ///< one past the last; unknown_end while the size is unknown
    int number = 0;          ///< of the connection within its session; 0: it has no range
    bool works = false;      ///< it receives, or waits for an answer
    std::string trouble{};   ///< why it does not, as the other side or the system says; may be empty
};

/// The result of a session.
struct SessionEnd {
    std::unique_ptr<CJobNode> job;
    JobOutcome outcome;
    std::optional<Question> question{};  ///< whose answer would mend the failure
};

/// A job under way. Made, used and destroyed by the engine's thread; its own threads work on a twin of the
/// job's record, which it owns.
class JobSession {
  public:
    JobSession() = default;
    JobSession(const JobSession&) = delete;
    JobSession& operator=(const JobSession&) = delete;
    /// Ends what still runs; blocks until its threads are gone.
    virtual ~JobSession() = default;

    /// Fails where the system cannot start another thread: nothing runs then, and the call may be repeated.
    virtual Result start() = 0;
    /// Ends a session that could not be started: it has ended with `why`.
    virtual void fail(const Result& why) = 0;
    /// Asks for the end; returns at once.
    virtual void stop() noexcept = 0;
    /// True once nothing of it runs any more. A session that ends by itself then calls `on_end`; one that was
    /// stopped need not, and is looked at instead.
    [[nodiscard]] virtual bool has_ended() const noexcept = 0;
    /// After the end: joins the threads and returns the results.
    virtual SessionEnd take_end() = 0;

    [[nodiscard]] virtual const CJobNode& job() const noexcept = 0;
    [[nodiscard]] virtual JobProgress progress() = 0;
    /// The job in the form that may be saved now: with positions whose bytes are on the disk. Null: the last
    /// saved form still holds.
    [[nodiscard]] virtual std::unique_ptr<CJobNode> safe_copy() = 0;
    [[nodiscard]] virtual std::vector<SessionConnection> connections() = 0;

    /// The job's rules (null: none) have changed. Its limits of speed hold from now on, and of a torrent the
    /// choice of its files and their order; the other rules hold for the next session.
    virtual void take_rules(const std::shared_ptr<const JobRules>& rules) { static_cast<void>(rules); }
    /// Of a torrent: these are its trackers from now on.
    virtual void take_trackers(const std::vector<std::string>& trackers) { static_cast<void>(trackers); }
    /// Of a torrent: files were chosen when the others had their names already. Another session fetches them.
    [[nodiscard]] virtual bool owes_choice() const { return false; }
    /// Of a torrent: the report's parts (torrent_part). False where this session cannot tell them now; its
    /// phase alone is in the report then. May take a quarter of a second.
    virtual bool report(unsigned parts, TorrentReport& report) {
        static_cast<void>(parts);
        static_cast<void>(report);
        return false;
    }
    /// Called about once a second, and at each round of the engine.
    virtual void look() {}
    /// The result of a session that nobody need wait for any more although it goes on; none before that.
    [[nodiscard]] virtual std::optional<Result> settled() const { return std::nullopt; }
};

/// How long a torrent is shared after its end: until a stop, or until the first of the bounds. By default it
/// is not.
struct TorrentSharing {
    bool goes_on = false;
    double ratio = 0;              ///< bytes that were sent to those of the chosen files; 0: no bound
    std::chrono::seconds time{0};  ///< 0: no bound
    /// The session settles when the sharing begins, and need not be waited for any more.
    bool settles = false;
    /// The files are those of a job that finished then (seconds since 1970). Nothing is fetched: those that
    /// were changed since are checked, and what is wrong or missing ends the session. 0: all are checked.
    std::optional<std::int64_t> whole_since;
};

/// How a filed job's torrent is shared: by its own rules, else by the settings.
TorrentSharing sharing_of(const CJobNode& job, const Settings& settings);

/// The services that all torrents of an engine share; null: there is no such one. They outlive the sessions.
struct TorrentServices {
    DhtService* hash_table = nullptr;           ///< finds peers
    IpFilterKeeper* ip_filter = nullptr;        ///< says who is to be none
    PortMapper* port_mapper = nullptr;          ///< lets peers beyond a router call, over IPv4
    PortMapper* firewall_opener = nullptr;      ///< over IPv6
    TrackerListKeeper* tracker_list = nullptr;  ///< names further trackers for public torrents
};

/// The parts that a session is made of.
struct SessionPlan {
    std::unique_ptr<CJobNode> job;  ///< its own twin of the record
    RunOptions options;
    LogSink& log;                      ///< outlives the session
    std::function<void()> on_end;      ///< any thread, once at most, when the session has ended; returns soon
    QuestionBoard& questions;          ///< outlives the session
    TorrentShelf* torrents = nullptr;  ///< of the jobs' documents; outlives the session; null: none are kept
    TorrentSharing sharing{};
    TorrentServices torrent_services{};
};

/// The way in which jobs of one kind are carried out: a row of the table.
struct SessionKind {
    JobKind kind = JobKind::transfer;
    /// True: such a job counts among the jobs at once ("MaxJobs") and its record says that it runs. False: it
    /// is looked after beside those, and its record goes on waiting.
    bool takes_place = true;
    std::size_t most_at_once = 1000;  ///< of this kind
    std::function<std::unique_ptr<JobSession>(SessionPlan, const TransferServices&)> make;
};

/// A table of kinds. A kind without a row cannot be carried out: such jobs end with Code::unsupported.
using SessionTable = std::vector<SessionKind>;

const SessionKind* find_session_kind(const SessionTable& table, JobKind kind) noexcept;

/// The kinds that this program carries out.
const SessionTable& standard_sessions();

// The sessions of standard_sessions().
std::unique_ptr<JobSession> make_plain_session(SessionPlan plan, const TransferServices& services);
std::unique_ptr<JobSession> make_torrent_session(SessionPlan plan, const TransferServices& services);

}  // namespace vantlow
