// A job's decisions about its connections: books and an event in, a decision out.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/clock.h"
#include "base/log.h"
#include "base/result.h"
#include "store/job.h"
#include "transfer/job/answer_book.h"
#include "transfer/job/mirrors.h"
#include "transfer/job/piece_book.h"
#include "transfer/job/progress.h"
#include "transfer/job/retry_rule.h"
#include "transfer/job/segment_book.h"
#include "transfer/job/version_rule.h"
#include "transfer/job/worker.h"

namespace vantlow {

/// The settings that the policy decides by, as they are when it decides.
struct PolicyRules {
    std::int64_t split_size = 262144;  ///< bytes
    bool only_own_part = false;     ///< a connection that has finished its segment takes nothing from others
    bool may_begin_anew = true;     ///< "Resume": a server that cannot resume is asked for the whole
    std::int64_t retry_limit = -1;  ///< -1: none
};

/// An attempt that failed.
struct FailedAttempt {
    Result result;
    std::int64_t asked = 0;       ///< the offset that was asked for
    bool accepted = false;        ///< the server's answer had been accepted
    bool progressed = false;      ///< the attempt brought bytes that no earlier one had
    std::int64_t told_size = -1;  ///< the total size that a refusal told; -1: none
    int fruitless = 0;            ///< attempts of this connection in a row that brought nothing new
    std::optional<std::chrono::seconds> server_asks{};
    bool form_sent = false;    ///< the job's form was sent, by this attempt or one before
    std::u16string address{};  ///< where it failed: behind redirects
};

/// The job's decision about it.
struct AfterFailure {
    bool again = false;
    std::chrono::milliseconds wait{0};
    bool announced = false;  ///< the wait is worth a line in the log
};

/// The decision about a server's answer.
struct Verdict {
    enum class Next {
        refuse,      ///< `result` says why
        go_on,       ///< it is received
        adopt,       ///< it is the first one, or everything begins anew with it: JobPolicy::adopt
        take_whole,  ///< all that was received is thrown away, and this connection goes on alone from zero
    };
    Next next = Next::go_on;
    Result result{};
};

/// The next thing that a connection without work does.
enum class Work {
    nothing,  ///< it ends
    later,    ///< its open answer may still be needed: it waits for the next event
    taken,    ///< it has a segment or a check
};

/// The things to be done beside the answer to an event.
struct Effects {
    std::vector<std::pair<Direction, std::string>> notes;  ///< for the log
    std::vector<int> retire;                               ///< workers that are to end
    std::vector<std::size_t> whole_pieces;                 ///< are to be held against their hashes
    bool news = false;                                     ///< there is something for look() or may_start()
};

/// The one place that decides about a job's segments, connections, versions and end. It has no threads, no
/// sockets, no files and no clock: events and times are handed in, and what is to be done comes out, as the
/// answer to the event and in take_effects(). The rules stand in five files: policy.cpp (work), and
/// policy_answers, policy_checks, policy_failures and policy_mirrors.
///
/// The first accepted answer of a job is worth more than any later one. While any connection receives, no
/// other answer ends, restarts or replaces it; only when none receives is the question asked whether the
/// resource has changed. Guarded by the job's lock, whoever calls.
// NOLINTNEXTLINE(clang-analyzer-optin.performance.Padding): members stand by subject
class JobPolicy {
  public:
    /// The job outlives the policy. `seed` chooses the blocks that are compared; `hash_decides`: a hash of
    /// the whole file is known.
    JobPolicy(CJobNode& job, std::uint64_t seed, bool hash_decides);

    // The run as a whole.
    /// Begins, with what an earlier run left where `continued`. The segments then stand as they are.
    void begin(bool continued);
    /// The job is being stopped: no connection's answer or failure means anything from here on, and nothing
    /// is begun, begun anew or waited for. May be said again.
    void stop() noexcept { stopping_ = true; }
    /// After every event: an end or a restart that was decided; none to go on.
    struct Turn {
        enum class What { end, restart } what = What::end;
        Result result;
    };
    std::optional<Turn> look();
    /// Whether another connection is worth starting, beside `connections`.
    [[nodiscard]] bool may_start(int connections) const;
    /// Gives a new connection a mirror and work; false when there is none for it.
    bool enlist(Worker& worker, const PolicyRules& rules, Clock::time_point now);
    /// The connection's thread is gone, or could not be started.
    void strike(Worker& worker, const Result& last);
    /// None receives or tries any more: what ends the job, or none where there is something to wait for.
    [[nodiscard]] std::optional<Result> idle_end(Clock::time_point now) const;
    /// When something may be tried that is not tried now.
    [[nodiscard]] std::optional<Clock::time_point> next_chance(Clock::time_point now) const;
    /// Everything is thrown away for the reason that look() told; no connection is at work any more.
    void begin_anew();
    /// Retires a connection that keeps the job waiting at its end.
    void replace_slow(int connections);
    /// The file is complete and its hash is wrong; true where something else is to be tried, after
    /// begin_anew() where `anew`.
    bool hash_was_wrong(bool& anew);

    // The events of connections.
    Work take_work(Worker& worker, const PolicyRules& rules, Clock::time_point now);
    /// The mirror that the worker asks; false where none may be asked now.
    bool choose_mirror(Worker& worker, Clock::time_point now);
    Verdict answered(Worker& worker, const SourceAnswer& answer, std::int64_t asked,
                     const PolicyRules& rules);
    /// The answer's size and version become the job's; the file is open at `path`.
    void adopt(Worker& worker, const SourceAnswer& answer, const std::u16string& path);
    /// The file is empty again and the worker alone: it fetches the whole.
    void begin_whole(Worker& worker);
    void delivered(const Worker& worker, std::int64_t offset, std::int64_t bytes);
    void written(std::int64_t offset, std::int64_t bytes);
    /// How many bytes in front of the worker's position are to be fetched again and compared with the file;
    /// `most`: as many as may be, where the usual ones are plain.
    [[nodiscard]] std::int64_t overlap_before(const Worker& worker, bool most = false) const;
    /// How many bytes behind the end of the worker's segment are there to be compared; negative: none yet,
    /// but they are on their way.
    [[nodiscard]] std::int64_t overlap_behind(const Worker& worker, bool most = false) const;
    /// The worker's answer agrees with what is there; `is_plain`: in one byte again and again.
    void agreed(const Worker& worker, std::int64_t begin, std::int64_t end, bool is_plain = false);
    /// The worker's answer differs from what is there; true when it is the worker's that is not wanted.
    bool contradicted(Worker& worker, std::int64_t begin, std::int64_t end);
    /// The end of a resource of unknown size is reached at the worker's position.
    void end_found(Worker& worker);
    AfterFailure failed(Worker& worker, const FailedAttempt& attempt, const PolicyRules& rules,
                        Clock::time_point now);
    /// The worker works on its segment or check no more; `open_at`: where its open answer goes on, -1: none
    /// is open; `done`: the check was made. True when the job is complete.
    bool released(Worker& worker, std::int64_t open_at, bool done, std::int64_t bytes_per_second);
    void piece_checked(std::size_t piece, const Result& result);
    /// An end for good that was not the policy's to decide.
    void end_for_good(const Result& result);
    Effects take_effects() { return std::exchange(effects_, {}); }

    // The books, and the state.
    [[nodiscard]] SegmentBook& segments() noexcept { return segments_; }
    [[nodiscard]] MirrorSet& mirrors() noexcept { return mirrors_; }
    [[nodiscard]] PieceBook& pieces() noexcept { return pieces_; }
    [[nodiscard]] const ResourceVersion& version() const noexcept { return version_; }
    [[nodiscard]] bool version_known() const noexcept { return version_known_; }
    [[nodiscard]] bool is_encoded() const noexcept { return encoded_; }
    /// The size is known from the end of an answer that told none.
    [[nodiscard]] bool is_end_found() const noexcept { return is_end_found_; }
    /// The server cannot resume, or its answers hold together only one by one: nothing can be continued.
    [[nodiscard]] bool is_only_one() const noexcept { return only_one_; }
    [[nodiscard]] bool is_rewound_after_failure() const noexcept { return only_one_ || encoded_; }
    [[nodiscard]] bool is_taking_over() const noexcept { return taking_over_; }
    [[nodiscard]] bool has_ended() const noexcept { return fatal_.has_value(); }
    [[nodiscard]] bool is_there(std::int64_t begin, std::int64_t end) const {
        return !segments_.is_missing(begin, end);
    }
    [[nodiscard]] int restarts() const noexcept { return restarts_; }
    /// Total bytes that a file of unknown size will have, as its server believes; -1: unsaid.
    [[nodiscard]] std::int64_t likely_size() const noexcept { return likely_size_; }
    /// Marks as missing in a copy of the job what lies behind joints that nobody has compared yet: a later
    /// run takes what is there from end to end for the bytes of one answer.
    void open_joints(CJobNode& copy) const;
    /// Pieces with hashes that do not fit the file, or whose fit nobody knows, decide nothing.
    void ignore_pieces();
    [[nodiscard]] std::vector<std::size_t> begin_pieces(std::int64_t length);
    void forget_pieces();
    /// The last trouble, and what the job waits for.
    void fill(JobProgress& progress, Clock::time_point now) const;

  private:
    // policy.cpp
    void note(Direction direction, std::string_view text) { effects_.notes.emplace_back(direction, text); }
    void retire(Worker& worker);
    [[nodiscard]] bool others_receive(const Worker& worker, int mirror = -1) const;
    [[nodiscard]] int receiving_from(int mirror) const;
    Work find_work(Worker& worker, const PolicyRules& rules);
    [[nodiscard]] bool flows_on(Worker& worker);
    [[nodiscard]] bool take_check(Worker& worker);
    CJobSeg* choose_segment(const Worker& worker, std::int64_t split_size);
    [[nodiscard]] std::int64_t cut_at(std::int64_t wanted, std::int64_t begin, std::int64_t split_size) const;
    [[nodiscard]] bool is_all_there() const;
    bool is_complete();
    void doubt_what_is_there();
    [[nodiscard]] bool compares_answers() const noexcept;
    std::vector<std::size_t> find_whole_pieces(std::int64_t begin, std::int64_t end);
    int free_chair() const;
    [[nodiscard]] int usable_chairs() const;

    // policy_answers.cpp
    Result check_version(const Worker& worker, const SourceAnswer& answer, VersionMatch& match);
    [[nodiscard]] bool gave_all(const Worker& worker) const;
    [[nodiscard]] bool is_no_version(const Mirror& mirror, const ResourceVersion& answer) const;
    Verdict begins_anew(const Worker& worker, const SourceAnswer& answer);
    Verdict rewound(Worker& worker, const SourceAnswer& answer);
    [[nodiscard]] bool take_size(Worker& worker, const SourceAnswer& answer);
    Verdict take_over(Worker& worker);
    Verdict cannot_resume(Worker& worker, const SourceAnswer& answer, VersionMatch match,
                          const PolicyRules& rules);
    [[nodiscard]] Result shows_change(Worker& worker, const SourceAnswer& answer, std::int64_t asked);
    void accept(Worker& worker, const SourceAnswer& answer, VersionMatch match);
    bool follow_protocol(const SourceAnswer& answer);
    [[nodiscard]] bool receives_from_start(const Worker& worker) const;
    [[nodiscard]] bool is_received_from_start() const;
    [[nodiscard]] VersionMatch compare(const ResourceVersion& known, const ResourceVersion& answer) const;

    // policy_checks.cpp
    [[nodiscard]] bool asks_version();
    [[nodiscard]] bool asks_about_change();
    void plan_change_checks();
    void drop_change_checks();
    void plan_checks(const std::vector<SegmentBook::Range>& there, bool last);
    BlockCheck* add_check(const std::vector<Origins::Range>& ranges);
    void add_last_check(const std::vector<Origins::Range>& ranges);
    void replace_plain_check(const BlockCheck& plain);
    void drop_optional_checks(const Worker& asker);
    void plan_mirror_checks();
    void add_mirror_check(int giver);
    [[nodiscard]] bool may_compare(int mirror, const BlockCheck& check) const;
    void drop_checks_that_would_wait();
    void drop_vain_checks();

    // policy_failures.cpp
    AfterFailure refused_beside_others(Worker& worker, const FailedAttempt& attempt, Clock::time_point now);
    bool another_tries(Worker& worker, Clock::time_point now);
    bool is_end_of_asking(const Worker& worker, const FailedAttempt& attempt);
    AfterFailure failed_alone(Worker& worker, const FailedAttempt& attempt, const PolicyRules& rules,
                              Clock::time_point now);
    AfterFailure version_check_failed(const FailedAttempt& attempt);
    AfterFailure optional_check_failed(const Worker& worker, const FailedAttempt& attempt);
    AfterFailure change_check_failed(const Worker& worker, const FailedAttempt& attempt);
    AfterFailure changed_alone(Worker& worker, const FailedAttempt& attempt, const Result& why,
                               const PolicyRules& rules, Clock::time_point now);
    AfterFailure refused_alone(Worker& worker, const FailedAttempt& attempt, const PolicyRules& rules,
                               Clock::time_point now);
    void rewind(Worker& worker) const;
    RetryCase retry_case(int errors, int fruitless, const FailedAttempt& attempt,
                         const PolicyRules& rules) const;
    AfterFailure retry(Worker& worker, const FailedAttempt& attempt, const PolicyRules& rules,
                       Clock::time_point now);
    AfterFailure restart_without_ranges(const FailedAttempt& attempt, const PolicyRules& rules);
    void ask_for_restart(const Result& why, bool whole);
    [[nodiscard]] const Worker* right_from_start() const;
    void go_on_alone(const Worker& first);
    void distrust_validators();
    void discard_version(int version, const Worker& asker);

    // policy_mirrors.cpp
    AfterFailure failed_mirror(Worker& worker, const FailedAttempt& attempt, const PolicyRules& rules,
                               Clock::time_point now);
    std::string note_failure(Worker& worker, const FailedAttempt& attempt, const PolicyRules& rules,
                             Clock::time_point now);
    std::string note_change(Worker& worker, const Result& why, Clock::time_point now);
    std::string note_joint(Worker& worker, const FailedAttempt& attempt, Clock::time_point now);
    AfterFailure mirror_check_failed(const Worker& worker, const FailedAttempt& attempt);
    AfterFailure next_mirror(Worker& worker, Clock::time_point now);
    [[nodiscard]] bool may_hope_for_change() const;
    void no_mirror_left();
    std::string leave_mirror(int mirror, const Result& why, const Worker* asker);
    void take_back_from_left();
    [[nodiscard]] int mirror_with_most() const;
    void keep_only_from(int mirror);
    [[nodiscard]] bool needs_whole() const;
    [[nodiscard]] bool may_serve(int mirror, const CJobSeg& segment);
    [[nodiscard]] bool is_suspect(int mirror, const CJobSeg& segment);
    std::string refuse_piece(std::size_t piece);

    CJobNode& job_;
    std::uint64_t seed_;
    bool whole_decides_;  ///< a hash of the whole file is known
    bool hash_decides_;   ///< that, or hashes of pieces that fit as far as is known
    SegmentBook segments_{job_};
    MirrorSet mirrors_;
    PieceBook pieces_;
    Origins origins_;     ///< kept where bytes may have to be blamed on a mirror
    AnswerBook answers_;  ///< kept where validators do not hold answers together
    std::vector<BlockCheck> checks_;
    int checks_made_ = 0;
    /// Of the checks before the end: one that agreed, which is made again where another one differs. Agrees
    /// it again, the file is a mixture; else the server has changed since.
    struct LastChecks {
        std::optional<BlockCheck> agreed;
        bool differed = false;
        bool again = false;
        bool is_mixture = false;
    } last_checks_;
    /// A further connection was shown another version while others received. Those go on, and give the old
    /// file to its end, or what is written over it: behind the last byte blocks of what they brought are
    /// compared with the version that is there now. While the old one is still given, too, those alone tell
    /// that it is not the file.
    struct SeenChange {
        bool is_seen = false;
        bool is_asked = false;
        Origins since;  ///< what came since then
        std::optional<ResourceVersion> becomes;
        bool fits_new = false, differs_from_new = false;
        bool fits_old = false, differs_from_old = false;
        [[nodiscard]] bool is_mixture() const noexcept {
            return differs_from_old || (differs_from_new && fits_new && !fits_old);
        }
    } change_;
    int plain_blocks_ = 0;        ///< compared blocks that agreed in nothing that tells versions apart
    bool sampled_ = false;        ///< blocks were chosen for the comparison before the end
    bool version_asked_ = false;  ///< whether the resource is the same one still was asked, before the end
    bool unsure_before_ = false;  ///< an answer was accepted that no validator holds together with the first
    std::vector<int> to_take_back_;  ///< mirrors that were left for wrong bytes: see take_back_from_left()
    Effects effects_;

    ResourceVersion version_;  ///< of the first answer, or of an earlier run's
    bool version_known_ = false;
    std::optional<ResourceVersion>
        previous_;                  ///< what was thrown away: another content is none of its versions
    std::int64_t whole_size_ = -1;  ///< of the file that mirrors are asked for from its beginning; -1: any
    bool only_one_ = false;
    bool mixes_ = false;  ///< versions of one size may be mixed: a hash decides
    bool mixed_before_ = false;
    bool taking_over_ = false;
    bool may_begin_anew_ = true;  ///< as the rules said at the last answer
    bool encoded_ = false;
    bool is_end_found_ = false;
    bool continued_ = false;    ///< an earlier run's file is continued and was not verified yet
    bool has_earlier_ = false;  ///< bytes of an earlier run are among those that are there
    bool verify_joints_ = false;
    /// Answers do not name the bytes that they give: each is believed to be of its place once its bytes agree
    /// with those beside it.
    bool blind_ = false;
    std::int64_t likely_size_ = -1;
    bool tells_time_ = false;  ///< the time of the last change can be asked for by itself
    bool size_reported_ = false;
    bool accepted_once_ = false;
    bool pieces_fit_ = true;

    std::optional<Result> fatal_;
    std::optional<Result> restart_;
    bool restart_whole_ = false;  ///< the restart asks for the whole by one connection
    Result last_failure_;
    /// The reason that the job waits while none receives; ok: nothing. A refusal beside connections that
    /// receive is none: they go on with its part.
    Result trouble_;
    std::string notice_;
    bool stopping_ = false;
    std::array<int, most_connections> errors_{};  ///< by chair
    std::array<bool, most_connections> halted_{};
    int fruitless_ = 0;  ///< attempts in a row, of all connections, that brought nothing while none received
    bool exhausted_ = false;  ///< there were more of them than the retry limit
    int late_refusals_ = 0;
    int differing_checks_ = 0;  ///< of several mirrors, behind the last byte
    int contradictions_ = 0;    ///< answers of another version in a row while none receives
    int restarts_ = 0;
    int replaced_ = 0;
    std::int64_t best_speed_ = 0;  ///< of the segments that were finished, bytes per second
};

}  // namespace vantlow
