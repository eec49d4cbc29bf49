// The thread that owns a running job: its segments, its connections, its file.
#pragma once

#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "base/busy_lock.h"
#include "base/digest.h"
#include "store/job.h"
#include "transfer/job/local_file.h"
#include "transfer/job/mirrors.h"
#include "transfer/job/origins.h"
#include "transfer/job/piece_check.h"
#include "transfer/job/progress.h"
#include "transfer/job/retry_rule.h"
#include "transfer/job/sub_thread.h"
#include "transfer/job/version_rule.h"

namespace vantlow {

/// What a run of a job is told beside the job and the settings.
struct RunOptions {
    bool keep_state = true;  ///< save the job's state beside the partial file while it runs
    std::optional<ExpectedHash> hash;
    ProxyPlan proxy;
    std::shared_ptr<const ProxyRules> proxy_rules;  ///< in place of `proxy` where they are given
    SshRules ssh;
    std::u16string default_agent;  ///< for jobs without an agent of their own
    /// Called from the job's thread when the file is whole and about to get this name; it has it when this
    /// returns. May be empty.
    std::function<void(const std::u16string& path, std::int64_t size)> before_name;
};

/// What the running jobs of the program share. Outlives them.
struct TransferServices {
    ConnectionServices& connections;
    const LibraryTables& libraries;
    const Settings& settings;
    StopSource& stop;
    ThreadPool& threads;
};

/// Runs one job from its segments to its file. The job must outlive the thread; nobody else changes it
/// meanwhile but under this object's job lock.
///
/// Threads and locks: the main thread alone starts and joins sub threads and decides about restarts and the
/// end. Segments, and the job's fields, are guarded by the job lock (a busy lock), what the threads tell each
/// other by `mutex_`. No two are held at once, none across a file or a socket.
class CTransferMainThread : private SubThreadHost, private WrittenListener {
  public:
    /// `on_end` is called once, from this thread, as its last act.
    CTransferMainThread(CJobNode& job, const TransferServices& services, RunOptions options, LogSink& log,
                        std::function<void()> on_end);
    ~CTransferMainThread() override;
    CTransferMainThread(const CTransferMainThread&) = delete;
    CTransferMainThread& operator=(const CTransferMainThread&) = delete;

    /// Fails where the system gives no further thread; the job then stays as it was.
    Result start();
    /// Ends a job that could not be started.
    void end_unstarted(const Result& why);
    /// Asks the job to end; its positions are kept. Any thread.
    void stop() noexcept { stop_.request(); }
    void join();
    /// Any thread.
    [[nodiscard]] JobProgress progress();
    /// The job as it was when its positions were last safe on the disk, with the segments that were missing
    /// then; without segments where nothing could be continued. Null before the job has begun. Any thread.
    [[nodiscard]] std::unique_ptr<CJobNode> safe_copy();
    /// After join().
    [[nodiscard]] const JobOutcome& outcome() const noexcept { return outcome_; }

  private:
    // What sub threads ask for (SubThreadHost, WrittenListener).
    bool take_work(CTransferSubThread& asker) override;
    SourcePlan plan(CTransferSubThread& asker) override;
    void delivered(const CTransferSubThread& asker, std::int64_t offset, std::int64_t bytes) override;
    std::int64_t overlap_before(const CTransferSubThread& asker) override;
    std::int64_t overlap_behind(const CTransferSubThread& asker) override;
    Result response_accepted(CTransferSubThread& asker, const SourceAnswer& answer,
                             std::int64_t asked) override;
    void end_found(CTransferSubThread& asker) override;
    AfterFailure after_failure(CTransferSubThread& asker, const FailedAttempt& attempt) override;
    bool release(CTransferSubThread& asker) override;
    void ended(CTransferSubThread& asker, const Result& last) override;
    CLocalFile& file() override { return file_; }
    void count_received(std::int64_t bytes) noexcept override;
    void written(std::int64_t offset, std::int64_t bytes) override;

    // The main thread's walk (main_thread.cpp).
    void run();
    Result begin();
    Result transfer();
    Result fetch_missing();
    void wait_for_news(Clock::time_point until);
    std::optional<Result> look();
    std::optional<Result> idle_end();
    Result start_over();
    Result begin_anew();

    // Its connections (crew.cpp).
    void reap(bool all);
    void let_close();
    void retire_all();
    void grow();
    bool start_one();
    bool start_with(int mirror);
    void not_started(CTransferSubThread& sub, const Result& why);
    void replace_slow();

    // What is on the disk for later (safekeeping.cpp).
    void save_state();
    void save_positions();
    FileError write_state(const CJobNode& snapshot);
    void remember_safe(std::unique_ptr<CJobNode> copy);
    void leave_state(const Result& result);
    void forget_state();
    void remove_state(const std::u16string& path);
    Result check_hashes(bool& matches);
    Result check_hash(const ExpectedHash& expected, bool& matches);
    Result check_decoded(bool& matches);
    std::optional<FileOrigin> origin();
    Result finish();

    // What a connection and the file are told (plans.cpp).
    FileRules file_rules() const;
    void choose_proxy(SourcePlan& plan) const;
    FtpRules ftp_rules() const;

    // Decisions about answers (answers.cpp) and about failures (failures.cpp).
    Result check_version(CTransferSubThread& asker, const SourceAnswer& answer, std::int64_t asked);
    Result cannot_resume(CTransferSubThread& asker, const SourceAnswer& answer);
    Result become_only(CTransferSubThread& asker, const SourceAnswer& answer);
    Result adopt(CTransferSubThread& asker, const SourceAnswer& answer);
    Result learn_size(CTransferSubThread& asker, const SourceAnswer& answer);
    Result open_file(const SourceAnswer& answer);
    AfterFailure fail_for_good(const Result& result);
    RetryCase retry_case(int errors, int fruitless, const FailedAttempt& attempt) const;
    AfterFailure retry(CTransferSubThread& asker, const FailedAttempt& attempt);
    AfterFailure restart_without_ranges(const FailedAttempt& attempt);
    void ask_for_restart(const Result& why, bool whole);
    void rewind(CTransferSubThread& asker);
    void back_off(int mirror, std::optional<std::chrono::seconds> server_asks);
    bool told_other_size(std::int64_t size);
    bool others_receive(const CTransferSubThread& asker, bool same_mirror);

    // Several mirrors (mirror_failures.cpp).
    AfterFailure after_mirror_failure(CTransferSubThread& asker, const FailedAttempt& attempt);
    std::string note_failure(const CTransferSubThread& asker, const FailedAttempt& attempt);
    std::string note_joint(const CTransferSubThread& asker, const FailedAttempt& attempt);
    AfterFailure next_mirror(CTransferSubThread& asker);
    AfterFailure no_mirror_left();
    std::string leave_mirror(int mirror, const Result& why, const CTransferSubThread* asker);
    void take_back_from_left();
    bool try_other_mirror();
    [[nodiscard]] int mirror_with_most() const;
    void keep_only_from(int mirror);
    [[nodiscard]] bool may_serve(int mirror, const CJobSeg& segment);

    // Pieces and their hashes (pieces.cpp).
    [[nodiscard]] const PieceHashes* piece_hashes() const noexcept;
    void begin_pieces();
    void forget_pieces();
    void end_pieces();
    std::vector<std::size_t> find_whole_pieces(std::int64_t begin, std::int64_t end);
    [[nodiscard]] bool is_missing(std::int64_t begin, std::int64_t end) const;
    void piece_checked(std::size_t piece, const Result& result);
    std::string refuse_piece(std::size_t piece);
    void give_back(std::int64_t begin, std::int64_t end);
    [[nodiscard]] std::int64_t cut_at(std::int64_t wanted, std::int64_t begin, std::int64_t split_size) const;
    [[nodiscard]] bool is_suspect(const CJobSeg& segment) const;
    [[nodiscard]] std::optional<std::size_t> segment_to_go_on_with(const CTransferSubThread& asker) const;
    std::vector<std::size_t> advance(std::int64_t offset, std::int64_t bytes);
    CJobSeg* choose_segment(const CTransferSubThread& asker, std::int64_t split_size);
    [[nodiscard]] bool is_all_there() const;
    [[nodiscard]] bool is_complete() const;
    CJobSeg* cut_segment(std::size_t index, std::int64_t start);

    CJobNode& job_;
    TransferServices services_;
    RunOptions options_;
    LogSink& log_;
    std::function<void()> on_end_;
    StopSource stop_;
    CLocalFile file_;
    JobOutcome outcome_;
    Clock::time_point started_{};
    Clock::time_point next_save_{};
    std::vector<std::unique_ptr<CTransferSubThread>> subs_;  ///< the main thread's

    BusyLock lock_;            ///< the job lock: job_, its segments, and those below
    ResourceVersion version_;  ///< of the first answer, or of an earlier run's
    bool version_known_ = false;
    bool only_one_ = false;     ///< one connection from zero: the server cannot resume
    bool taking_over_ = false;  ///< one connection is about to throw the others' bytes away; guarded by lock_
    MirrorSet mirrors_;
    Origins origins_;                     ///< kept where bytes may have to be blamed on a mirror
    std::unique_ptr<PieceCheck> pieces_;  ///< made once the size is known; null without piece hashes
    enum class PieceState : std::uint8_t { missing, waits, good };
    std::vector<PieceState> piece_states_;
    std::size_t good_pieces_ = 0;
    struct Suspicion {
        std::vector<int> mirrors;  ///< that gave bad copies of it, or parts of them
        std::size_t copies = 0;
    };
    std::map<std::size_t, Suspicion> suspects_;  ///< by piece
    std::vector<int> to_take_back_;  ///< mirrors that were left for wrong bytes: see take_back_from_left()

    std::mutex mutex_;
    std::condition_variable_any news_;
    // Guarded by mutex_.
    std::vector<CTransferSubThread*> ended_;
    bool news_there_ = false;
    std::optional<Result> fatal_;
    std::optional<Result> restart_;
    bool restart_whole_ = false;  ///< the restart asks for the whole by one connection
    int halted_ = 0;              ///< connections that reached the retry limit
    Result last_failure_;
    std::string notice_;
    std::unique_ptr<CJobNode> safe_;  ///< what safe_copy() gives
    int attached_ = 0;                ///< sub threads that hold a segment
    bool saving_ = false;             ///< the main thread takes positions to the disk

    std::atomic<bool> size_reported_{false};
    std::atomic<bool> accepted_once_{false};
    std::atomic<bool> verify_joints_{false};
    std::atomic<bool> encoded_{false};
    std::atomic<bool> state_saved_{false};
    std::atomic<bool> continued_{false};  ///< an earlier run's file is continued and was not verified yet
    std::atomic<int> late_refusals_{0};
    std::atomic<std::int64_t> received_{0};
    std::atomic<std::int64_t> best_speed_{0};  ///< of the segments that were finished, bytes per second
    int restarts_ = 0;                         ///< the main thread's
    bool no_thread_left_ = false;  ///< for the connection that was started last; the main thread's
    bool hash_matches_ = true;     ///< of the whole file; the main thread's
    int replaced_ = 0;             ///< slow connections replaced; the main thread's

    ThreadPool::Running thread_;  ///< last
};

}  // namespace vantlow
