#include "transfer/job/main_thread.h"

#include <algorithm>
#include <ctime>

#include "base/string_table.h"
#include "base/text.h"
#include "platform/file_marks.h"
#include "storage/resume_state.h"
#include "store/address.h"

namespace vantlow {
namespace {

// Positions are saved this often: a kill costs no more than the bytes of this time.
constexpr std::chrono::seconds save_interval{1};

// Another one for each run, which no server can know. The system's own source of chance costs more than a
// small file.
std::uint64_t seed_of(const CJobNode& job) {
    const auto ticks = static_cast<std::uint64_t>(Clock::now().time_since_epoch().count());
    return GuidHash{}(job.identity) ^ ticks;
}

}  // namespace

CTransferMainThread::CTransferMainThread(CJobNode& job, const TransferServices& services, RunOptions options,
                                         LogSink& log, std::function<void()> on_end)
    : job_(job),
      services_(services),
      options_(std::move(options)),
      log_(log),
      on_end_(std::move(on_end)),
      stop_(services.stop),
      file_(log, *this),
      policy_(job, seed_of(job), options_.hash.has_value()) {}

CTransferMainThread::~CTransferMainThread() {
    stop();
    join();
}

Result CTransferMainThread::start() {
    return services_.threads.start(thread_, [this] { run(); });
}

void CTransferMainThread::end_unstarted(const Result& why) {
    log_.line(Direction::error, why.message());
    {
        const MutexLock guard(lock_);
        job_.result = why.code;
        job_.error = why.message();
        job_.state = JobState::failed;
    }
    outcome_.result = why;
    on_end_();
}

void CTransferMainThread::join() {
    thread_.join();
}

void CTransferMainThread::count_received(std::int64_t bytes) noexcept {
    received_.fetch_add(bytes, std::memory_order_relaxed);
}

void CTransferMainThread::run() {
    started_ = now();
    Result result = transfer();
    retire_all();
    reap(true);
    end_pieces();
    if (result.code == Code::ok || result.code == Code::finished_empty) {
        Result finished = finish();
        if (!finished.ok()) result = std::move(finished);
    }
    outcome_.skipped = result.code == Code::cancelled && file_.is_skipped();
    if (outcome_.skipped) {
        result = {};
    } else if (!result.ok()) {
        leave_state(result);
    }
    file_.close();
    {
        const MutexLock guard(lock_);
        job_.result = result.code;
        const bool failed = !result.ok() && result.kind() != Kind::stopped;
        job_.error = failed ? result.message() : std::string();
        job_.state = result.ok()                      ? JobState::finished
                     : result.kind() == Kind::stopped ? JobState::stopped
                                                      : JobState::failed;
        if (result.ok()) job_.finished = static_cast<std::int64_t>(std::time(nullptr));
        outcome_.size = job_.file_size;
        if (outcome_.skipped) {
            job_.path = file_.target();
            job_.segments.clear();
            outcome_.size = job_.file_size = file_stamp(job_.path).size;
        }
        outcome_.restarts = policy_.restarts();
    }
    outcome_.path = file_.target();
    outcome_.received = received_;
    outcome_.seconds = std::chrono::duration<double>(now() - started_).count();
    outcome_.result = std::move(result);
    on_end_();
}

// Opens what an earlier run left, or begins anew with one segment of unknown length.
Result CTransferMainThread::begin() {
    std::u16string target;
    std::int64_t needed = 0;
    {
        const MutexLock guard(lock_);
        job_.state = JobState::running;
        pace_.set_limit(job_.rules ? job_.rules->speed_limit : 0);
        const std::int64_t expected = job_.sources ? job_.sources->size : -1;
        const bool is_of_this_size = expected < 0 || expected == job_.file_size;
        if (!job_.segments.empty() && job_.file_size > 0 && is_of_this_size) {
            target = job_.path;
            needed = written_end(job_);
        }
    }
    bool continued = false;
    if (!target.empty()) {
        const Result opened = file_.resume(target, needed, file_rules());
        continued = opened.ok() && bears_mark(file_, job_.partial_mark);
        if (opened.ok() && !continued) {
            log_.line(Direction::error, "The unfinished file " + to_utf8(file_.partial_path()) +
                                            " does not match its saved state. Both are left alone.");
            file_.close();
        } else if (!opened.ok()) {
            log_.line(Direction::note, opened.message() + " The download starts over.");
            // The state goes with its file; that of a file that another process is at stays.
            state_saved_ = path_kind(target + std::u16string(partial_suffix)) == PathKind::none;
            remove_state(target + std::u16string(state_suffix));
        }
    }
    std::unique_ptr<CJobNode> safe;
    decide([&](JobPolicy& policy) {
        if (!continued) {
            job_.segments.clear();
            job_.file_size = -1;
            job_.bit_map.clear();  // of bytes that are there no more
            job_.bit_count = 0;
            job_.partial_mark = {};
            if (!target.empty()) job_.path = folder_of(target) + path_separator();
        }
        safe = job_.twin();
        if (!continued) job_.append_segment(0, unknown_end);
        for (auto& segment : job_.segments) segment->worker = 0;
        policy.begin(continued);
    });
    state_saved_ = continued;
    remember_safe(std::move(safe));
    if (continued) begin_pieces();
    return {};
}

Result CTransferMainThread::transfer() {
    if (std::string why = why_not_fetched(job_.address); !why.empty()) {
        log_.line(Direction::error, why);
        return {Code::unsupported, std::move(why)};
    }
    if (Result result = begin(); !result.ok()) return result;
    for (;;) {
        if (Result result = fetch_missing(); !result.ok()) return result;
        let_close();
        retire_all();
        reap(true);
        if (Result result = file_.drain(); !result.ok()) return result;
        bool matches = true;
        if (Result result = check_hashes(matches); !result.ok()) return result;
        bool anew = false;
        const bool tries = !matches && decide([&](JobPolicy& policy) { return policy.hash_was_wrong(anew); });
        if (!tries) {
            hash_matches_ = matches;
            return job_.file_size == 0 ? Result(Code::finished_empty) : Result();
        }
        if (anew) {
            if (Result result = begin_anew(); !result.ok()) return result;
        }
    }
}

// Fetches until every segment is complete and every piece is right.
Result CTransferMainThread::fetch_missing() {
    next_save_ = now() + save_interval;
    for (;;) {
        if (const auto result = look()) return *result;
        pace_.follow(services_.settings);
        grow();
        if (const auto result = idle_end()) return *result;
        if (now() >= next_save_) {
            save_state();
            next_save_ = now() + save_interval;
        }
        Clock::time_point until = next_save_;
        {
            const MutexLock guard(lock_);
            if (const auto chance = policy_.next_chance(now())) until = std::min(until, *chance);
        }
        wait_for_news(until);
        if (stop_.requested()) return stop_.reason();
    }
}

void CTransferMainThread::wait_for_news(Clock::time_point until) {
    MutexLock guard(mutex_);
    // The condition variable waits in real time.
    news_.wait_for(guard, stop_, until - now(), [this]() VANTLOW_REQUIRES(mutex_) { return news_there_; });
    news_there_ = false;
}

// Carries out what the policy made of the sub threads' events: an end, or everything anew. None to go on.
std::optional<Result> CTransferMainThread::look() {
    reap(false);
    const auto turn = decide([](JobPolicy& policy) { return policy.look(); });
    if (!turn) return std::nullopt;
    if (turn->what == JobPolicy::Turn::What::end) return turn->result;
    retire_all();
    reap(true);
    Result result = begin_anew();
    if (!result.ok()) return result;
    return std::nullopt;
}

// Ends the job with its last failure where no thread is left although it isn't complete.
std::optional<Result> CTransferMainThread::idle_end() {
    if (!subs_.empty() || (pieces_ && pieces_->is_busy())) return std::nullopt;
    if (no_thread_left_ == 1) return std::nullopt;  // it may have one in a moment
    {
        const MutexLock guard(mutex_);
        if (news_there_) return std::nullopt;
    }
    const MutexLock guard(lock_);
    hear_of_stop();
    return policy_.idle_end(now());
}

// Throws away everything received: another version is on the server, or it cannot give parts. Nothing of the
// file is kept; no connection is at work.
Result CTransferMainThread::begin_anew() {
    forget_state();
    end_pieces();
    if (file_.is_open()) {
        if (Result result = file_.start_over(); !result.ok()) return result;
    }
    {
        const MutexLock guard(mutex_);
        if (safe_) safe_->segments.clear();
    }
    encoded_ = false;
    decide([](JobPolicy& policy) { policy.begin_anew(); });
    return {};
}

void CTransferMainThread::set_speed_limit(std::int64_t limit) {
    const MutexLock guard(lock_);
    JobRules rules = job_.rules ? *job_.rules : JobRules();
    rules.speed_limit = limit;
    job_.rules = std::make_shared<const JobRules>(std::move(rules));  // a run that has not begun yet reads it
    pace_.set_limit(limit);
}

JobProgress CTransferMainThread::progress() {
    JobProgress progress;
    progress.received = received_.load(std::memory_order_relaxed);
    {
        const MutexLock guard(lock_);
        progress.size = job_.file_size < 0 && job_.sources ? job_.sources->size : job_.file_size;
        progress.path = job_.path;
        std::int64_t left = 0;
        progress.head = unknown_end;
        for (const auto& segment : job_.segments) {
            if (segment->start < segment->end) progress.head = std::min(progress.head, segment->start);
            const Worker* const worker = policy_.segments().worker_of(*segment);
            const bool active = worker != nullptr && worker->receiving;
            const std::int64_t start = policy_.segments().position_of(*segment);
            if (active) ++progress.connections;
            if (start >= segment->end) continue;
            progress.missing.push_back({start, segment->end, active, active ? worker->id : 0});
            left += segment->end - start;
            if (segment->end == unknown_end) progress.done = start;
        }
        if (progress.head == unknown_end) progress.head = std::max<std::int64_t>(job_.file_size, 0);
        hear_of_stop();
        policy_.fill(progress, now());
        if (job_.file_size > 0) progress.done = job_.file_size - left;
        // More than that has come: nobody knows how much there is.
        const std::int64_t likely = policy_.likely_size();
        if (progress.size < 0 && progress.done <= likely) progress.size = likely;
    }
    progress.awaits_place = progress.connections == 0 && awaiting_place_ > 0;
    return progress;
}

}  // namespace vantlow
