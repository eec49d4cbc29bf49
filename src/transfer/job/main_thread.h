// The thread that owns a running job: its connections, its file, and what its policy decides.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/busy_lock.h"
#include "base/digest.h"
#include "base/mutex.h"
#include "storage/local_file.h"
#include "storage/piece_check.h"
#include "store/job.h"
#include "transfer/job/policy.h"
#include "transfer/job/progress.h"
#include "transfer/job/sub_thread.h"

namespace vantlow {

/// The options of a run of a job, beside the job and the settings.
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

/// The services that the running jobs of the program share. Outlives them.
struct TransferServices {
    ConnectionServices& connections;
    const LibraryTables& libraries;
    const Settings& settings;
    StopSource& stop;
    ThreadPool& threads;
};

/// Sets what a job's rules and the settings, as they are now, say of all its connections: times, trust, the
/// limits of servers. Any thread.
void plan_by_rules(const CJobNode& job, const Settings& settings, FetchPlan& plan);

/// Sets the cookies beside those of the job; where these name a file, its cookies are sent in their place.
void plan_cookies(const Settings& settings, HttpWishes& http);

/// Sets all of a plan for its address that a job's rules, the wishes of its run and the settings say as they
/// are now. Any thread.
void plan_source(const CJobNode& job, const RunOptions& options, const TransferServices& services,
                 SourcePlan& plan);

/// The proxy on the way to a server (none: it cannot be told), with what answers its challenges.
ProxyPlan proxy_to(const std::optional<Target>& target, const RunOptions& options,
                   const TransferServices& services);

/// Runs one job from its segments to its file. The job must outlive the thread; nobody else changes it
/// meanwhile but under this object's job lock.
///
/// Threads and locks: connections and the main thread hand what happens to the policy and carry out what it
/// decides. The main thread alone starts and joins sub threads, begins anew and ends. The policy, its books
/// and the job's fields are guarded by the job lock (a busy lock), what the threads tell each other by
/// `mutex_`. No two are held at once, none across a file or a socket.
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
    /// Sets the job's own speed limit, bytes a second for all of its connections; 0: none. Any thread.
    void set_speed_limit(std::int64_t limit);
    /// Any thread.
    [[nodiscard]] JobProgress progress();
    /// The job as it was when its positions were last safe on the disk, with the segments that were missing
    /// then; without segments where nothing could be continued. Null before the job has begun. Any thread.
    [[nodiscard]] std::unique_ptr<CJobNode> safe_copy();
    /// After join().
    [[nodiscard]] const JobOutcome& outcome() const noexcept { return outcome_; }

  private:
    // The calls of sub threads and the file (SubThreadHost, WrittenListener): worker_calls.cpp.
    bool take_work(CTransferSubThread& asker) override;
    SourcePlan plan(Worker& asker) override;
    void delivered(const Worker& asker, std::int64_t offset, std::int64_t bytes) override;
    std::int64_t overlap_before(const Worker& asker) override;
    std::int64_t overlap_behind(const Worker& asker) override;
    bool is_there(std::int64_t begin, std::int64_t end) override;
    void agreed(const Worker& asker, std::int64_t begin, std::int64_t end, bool is_plain) override;
    Result contradicted(Worker& asker, std::int64_t begin, std::int64_t end) override;
    Result response_accepted(CTransferSubThread& asker, const SourceAnswer& answer,
                             std::int64_t asked) override;
    void end_found(Worker& asker) override;
    AfterFailure after_failure(CTransferSubThread& asker, const FailedAttempt& attempt) override;
    bool release(CTransferSubThread& asker, std::int64_t open_at, bool done) override;
    void ended(CTransferSubThread& asker, const Result& last) override;
    CLocalFile& file() override { return file_; }
    void count_received(std::int64_t bytes) noexcept override;
    void written(std::int64_t offset, std::int64_t bytes) override;
    std::int64_t overlap(const Worker& asker, bool is_behind);
    Result adopt(CTransferSubThread& asker, const SourceAnswer& answer);
    Result throw_away(CTransferSubThread& asker);
    Result take_whole(CTransferSubThread& asker, const SourceAnswer& answer);
    Result open_file(const SourceAnswer& answer);

    // The policy, asked under the job's lock; what it wants done beside its answer is done without.
    template <class Ask>
    auto decide(const Ask& ask);
    void hear_of_stop() VANTLOW_REQUIRES(lock_) {
        if (stop_.requested()) policy_.stop();
    }
    void carry_out(const Effects& effects);
    [[nodiscard]] PolicyRules rules() const;
    [[nodiscard]] Clock::time_point now() const noexcept { return services_.connections.time.now(); }

    // The main thread's walk (main_thread.cpp).
    void run();
    Result begin();
    Result transfer();
    Result fetch_missing();
    void wait_for_news(Clock::time_point until);
    std::optional<Result> look();
    std::optional<Result> idle_end();
    Result begin_anew();

    // Its connections (crew.cpp).
    void reap(bool all);
    void let_close();
    void retire_all();
    void grow();
    bool start_one();

    // Pieces and their hashes (pieces.cpp).
    [[nodiscard]] const PieceHashes* piece_hashes() const noexcept;
    void begin_pieces();
    void forget_pieces();
    void end_pieces();

    // Its remains on the disk (safekeeping.cpp).
    void save_state();
    void save_positions();
    FileError write_state(const CJobNode& snapshot);
    void remember_safe(std::unique_ptr<CJobNode> copy);
    void leave_state(const Result& result);
    void forget_positions();
    void forget_state();
    void remove_state(const std::u16string& path);
    Result check_hashes(bool& matches);
    Result check_hash(const ExpectedHash& expected, bool& matches);
    Result check_untold(bool& matches);
    [[nodiscard]] bool is_end_found();
    std::optional<FileOrigin> origin();
    Result finish();

    // The plans of a connection and of the file (source_plan.cpp).
    FileRules file_rules() const;

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
    JobPace pace_{services_.connections.received};
    std::vector<std::unique_ptr<CTransferSubThread>> subs_;  ///< the main thread's
    int next_worker_ = 0;                                    ///< the main thread's

    BusyLock lock_;  ///< the job lock: the fields of job_ that change while it runs, and these
    JobPolicy policy_ VANTLOW_GUARDED_BY(lock_);
    std::map<int, CTransferSubThread*> by_worker_ VANTLOW_GUARDED_BY(lock_);
    std::unique_ptr<PieceCheck> pieces_;  ///< made once the size is known; null without piece hashes

    Mutex mutex_;
    StopCondition news_;
    std::vector<CTransferSubThread*> ended_ VANTLOW_GUARDED_BY(mutex_);
    bool news_there_ VANTLOW_GUARDED_BY(mutex_) = false;
    std::unique_ptr<CJobNode> safe_ VANTLOW_GUARDED_BY(mutex_);  ///< what safe_copy() gives
    int attached_ VANTLOW_GUARDED_BY(mutex_) = 0;          ///< sub threads that hold a segment or a check
    std::uint64_t events_ VANTLOW_GUARDED_BY(mutex_) = 0;  ///< of which those hear that wait for work
    bool saving_ VANTLOW_GUARDED_BY(mutex_) = false;       ///< the main thread takes positions to the disk
    StopCondition work_news_;

    std::atomic<bool> state_saved_{false};
    std::atomic<bool> encoded_{false};  ///< the bytes are decoded on their way: nothing can be continued
    std::atomic<std::int64_t> received_{0};
    std::atomic<int> awaiting_place_{0};  ///< connections that the server has no room for
    bool hash_matches_ = true;            ///< of the whole file; the main thread's
    int no_thread_left_ = 0;  ///< times in a row that the system gave no thread; the main thread's

    ThreadPool::Running thread_;  ///< last
};

template <class Ask>
auto CTransferMainThread::decide(const Ask& ask) {
    Effects effects;
    const auto tell = [&]() VANTLOW_REQUIRES(lock_) {
        effects = policy_.take_effects();
        for (const int worker : effects.retire) {
            if (const auto at = by_worker_.find(worker); at != by_worker_.end()) at->second->retire();
        }
    };
    if constexpr (std::is_void_v<decltype(ask(policy_))>) {
        {
            const MutexLock guard(lock_);
            hear_of_stop();
            ask(policy_);
            tell();
        }
        carry_out(effects);
    } else {
        std::optional<decltype(ask(policy_))> answer;
        {
            const MutexLock guard(lock_);
            hear_of_stop();
            answer.emplace(ask(policy_));
            tell();
        }
        carry_out(effects);
        return *std::move(answer);
    }
}

}  // namespace vantlow
