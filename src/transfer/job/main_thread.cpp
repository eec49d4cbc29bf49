#include "transfer/job/main_thread.h"

#include <algorithm>
#include <ctime>

#include "base/string_table.h"
#include "base/text.h"
#include "platform/file_stamp.h"
#include "store/address.h"
#include "transfer/job/resume_state.h"

namespace vantlow {
namespace {

// Positions are saved this often: what a kill costs.
constexpr std::chrono::seconds save_interval{1};
// A resource that changes more often than this while it is fetched cannot be had.
constexpr int most_restarts = 3;

}  // namespace

CTransferMainThread::CTransferMainThread(CJobNode& job, const TransferServices& services, RunOptions options,
                                         LogSink& log, std::function<void()> on_end)
    : job_(job),
      services_(services),
      options_(std::move(options)),
      log_(log),
      on_end_(std::move(on_end)),
      stop_(services.stop),
      file_(log, *this) {}

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
        const std::lock_guard guard(lock_);
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
    started_ = Clock::now();
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
        const std::lock_guard guard(lock_);
        if (version_known_) job_.validators = {version_.etag, version_.last_modified};
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
    }
    outcome_.path = file_.target();
    outcome_.received = received_;
    outcome_.restarts = restarts_;
    outcome_.seconds = std::chrono::duration<double>(Clock::now() - started_).count();
    outcome_.result = std::move(result);
    on_end_();
}

// Opens what an earlier run left, or begins anew with one segment of unknown length.
Result CTransferMainThread::begin() {
    std::u16string target;
    std::int64_t needed = 0;
    {
        const std::lock_guard guard(lock_);
        job_.state = JobState::running;
        pace_.limit = job_.rules ? job_.rules->speed_limit : 0;
        mirrors_.begin(job_);
        const std::int64_t expected = job_.sources ? job_.sources->size : -1;
        const bool is_of_this_size = expected < 0 || expected == job_.file_size;
        if (!job_.segments.empty() && job_.file_size > 0 && is_of_this_size) {
            target = job_.path;
            needed = written_end(job_);
        }
    }
    if (!target.empty()) {
        const Result opened = file_.resume(target, needed, file_rules());
        continued_ = opened.ok();
        if (!opened.ok()) {
            log_.line(Direction::note, opened.message() + " The job begins anew.");
            // A state whose file is gone; one that another process is at stays.
            state_saved_ = path_kind(target + std::u16string(partial_suffix)) == PathKind::none;
            remove_state(target + std::u16string(state_suffix));
        }
    }
    std::unique_ptr<CJobNode> safe;
    {
        const std::lock_guard guard(lock_);
        if (!continued_) {
            job_.segments.clear();
            job_.file_size = -1;
            job_.bit_map.clear();  // of bytes that are there no more
            job_.bit_count = 0;
            if (!target.empty()) job_.path = folder_of(target) + path_separator();
        }
        safe = job_.twin();
        if (!continued_) job_.append_segment(0, unknown_end);
        for (auto& segment : job_.segments) segment->worker = nullptr;
        version_known_ = continued_;
        if (continued_) version_ = {job_.file_size, job_.validators.last_modified, job_.validators.etag};
        state_saved_ = continued_.load();
        only_one_ = job_.whole_file != 0;
        if (continued_ && !mirrors_.are_several()) {
            mirrors_.at(0).version = version_;
            mirrors_.at(0).version_known = true;
        }
        verify_joints_ = mirrors_.are_several() && piece_hashes() == nullptr;
    }
    remember_safe(std::move(safe));
    if (continued_) begin_pieces();
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
        if (matches || !try_other_mirror()) {
            hash_matches_ = matches;
            return job_.file_size == 0 ? Result(Code::finished_empty) : Result();
        }
    }
}

// Until every segment is complete and every piece is right.
Result CTransferMainThread::fetch_missing() {
    next_save_ = Clock::now() + save_interval;
    start_one();  // nothing to start where every segment of an earlier run was complete
    for (;;) {
        if (const auto result = look()) return *result;
        Clock::time_point until = next_save_;
        {
            const std::lock_guard guard(lock_);
            const auto chance = mirrors_.next_chance();
            if (chance && *chance > Clock::now()) until = std::min(until, *chance);
        }
        wait_for_news(until);
        if (stop_.requested()) return stop_.reason();
        if (auto result = look()) return *result;
        // The first connection may have ended without a word about the size, or had no thread a moment ago.
        if (subs_.empty() && (mirrors_.are_several() || no_thread_left_)) start_one();
        grow();
        replace_slow();
        if (auto result = idle_end()) return *result;
        if (Clock::now() >= next_save_) {
            save_state();
            next_save_ = Clock::now() + save_interval;
        }
    }
}

void CTransferMainThread::wait_for_news(Clock::time_point until) {
    std::unique_lock guard(mutex_);
    news_.wait_until(guard, stop_.token(), until, [this] { return news_there_; });
    news_there_ = false;
}

// What the sub threads told: an end for good, another version, completion. None to go on.
std::optional<Result> CTransferMainThread::look() {
    reap(false);
    std::optional<Result> restart;
    {
        const std::lock_guard guard(mutex_);
        if (fatal_) return fatal_;
        restart.swap(restart_);
    }
    if (restart) {
        Result result = start_over();
        if (!result.ok()) return result;
        return std::nullopt;
    }
    take_back_from_left();
    const std::lock_guard guard(lock_);
    if (!is_complete()) return std::nullopt;
    return Result();
}

// No thread is left although the job isn't complete: it ends with the last failure.
std::optional<Result> CTransferMainThread::idle_end() {
    if (!subs_.empty() || (pieces_ && pieces_->is_busy())) return std::nullopt;
    {
        const std::lock_guard guard(lock_);
        const auto chance = mirrors_.next_chance();
        if (chance && *chance > Clock::now()) return std::nullopt;
    }
    const std::lock_guard guard(mutex_);
    if (fatal_ || restart_ || news_there_) return std::nullopt;
    if (last_failure_.ok()) return Result(Code::transient, "No connection is left.");
    return last_failure_;
}

// Everything received is thrown away: another version is on the server, or it cannot give parts.
Result CTransferMainThread::start_over() {
    retire_all();
    reap(true);
    bool whole = false;
    {
        const std::lock_guard guard(mutex_);
        whole = std::exchange(restart_whole_, false);
        if (!whole) notice_ = message_text(Message::server_newer);
    }
    if (!whole) {
        if (++restarts_ > most_restarts) return Code::keeps_changing;
        log_.line(Direction::note, message_text(Message::server_newer));
    }
    {
        const std::lock_guard guard(lock_);
        mirrors_.pardon_different();
        if (whole) only_one_ = true;
        if (whole) job_.whole_file = 1;
    }
    if (Result result = begin_anew(); !result.ok()) return result;
    start_one();
    return {};
}

// Nothing of the file is kept; no connection is at work.
Result CTransferMainThread::begin_anew() {
    forget_state();
    forget_pieces();
    if (file_.is_open()) {
        if (Result result = file_.start_over(); !result.ok()) return result;
    }
    {
        const std::lock_guard guard(mutex_);
        if (safe_) safe_->segments.clear();
    }
    size_reported_ = encoded_ = continued_ = false;
    {
        const std::lock_guard guard(lock_);
        mirrors_.forget_answers();
        verify_joints_ = mirrors_.are_several() && piece_hashes() == nullptr;
        job_.segments.clear();
        job_.append_segment(0, unknown_end);
        job_.file_size = -1;
        version_known_ = false;
    }
    return {};
}

JobProgress CTransferMainThread::progress() {
    JobProgress progress;
    progress.received = received_.load(std::memory_order_relaxed);
    {
        const std::lock_guard guard(lock_);
        progress.size = job_.file_size;
        progress.path = job_.path;
        std::int64_t left = 0;
        progress.head = unknown_end;
        for (const auto& segment : job_.segments) {
            if (segment->start < segment->end) progress.head = std::min(progress.head, segment->start);
            const bool active = segment->worker != nullptr && segment->worker->is_active();
            const std::int64_t start = segment->worker != nullptr
                                           ? std::max(segment->start, segment->worker->position())
                                           : segment->start;
            if (active) ++progress.connections;
            if (start >= segment->end) continue;
            progress.missing.push_back({start, segment->end, active});
            left += segment->end - start;
            if (segment->end == unknown_end) progress.done = start;
        }
        if (progress.head == unknown_end) progress.head = std::max<std::int64_t>(job_.file_size, 0);
        if (job_.file_size > 0) progress.done = job_.file_size - left;
    }
    progress.restarts = restarts_;
    progress.awaits_place = progress.connections == 0 && awaiting_place_ > 0;
    const std::lock_guard guard(mutex_);
    progress.notice = notice_;
    if (progress.connections > 0) return progress;
    progress.waiting_for = waiting_for_;
    progress.attempts = attempts_;
    progress.next_try = next_try_;
    return progress;
}

}  // namespace vantlow
