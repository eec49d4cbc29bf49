#include "transfer/job/main_thread.h"

#include <algorithm>
#include <array>
#include <ctime>

#include "base/string_table.h"
#include "base/text.h"
#include "store/address.h"
#include "transfer/job/resume_state.h"
#include "transfer/job/work_rule.h"

namespace vantlow {
namespace {

// Positions are saved this often: what a kill costs.
constexpr std::chrono::seconds save_interval{1};
// A resource that changes more often than this while it is fetched cannot be had.
constexpr int most_restarts = 3;
constexpr std::size_t hash_step = 256 * 1024;
// What a full disk is given back so that the job's state can be written.
constexpr std::int64_t state_room = 256 * 1024;

// Complete segments say nothing, and may stand within a range that is fetched again. One stays: a job
// without any has not begun.
void drop_complete_segments(CJobNode& job) {
    const auto is_complete = [](const auto& segment) { return segment->start >= segment->end; };
    if (std::all_of(job.segments.begin(), job.segments.end(), is_complete)) {
        job.segments.resize(std::min<std::size_t>(job.segments.size(), 1));
    } else {
        std::erase_if(job.segments, is_complete);
    }
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
    if (!result.ok()) leave_state(result);
    file_.close();
    {
        const std::lock_guard guard(lock_);
        if (version_known_) job_.validators = {version_.etag, version_.last_modified};
        job_.result = result.code;
        job_.state = result.ok()                      ? JobState::finished
                     : result.kind() == Kind::stopped ? JobState::stopped
                                                      : JobState::failed;
        if (result.ok()) job_.finished = static_cast<std::int64_t>(std::time(nullptr));
        outcome_.size = job_.file_size;
    }
    outcome_.path = file_.target();
    outcome_.received = received_;
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
        if (!opened.ok()) log_.line(Direction::note, opened.message() + " The job begins anew.");
    }
    std::unique_ptr<CJobNode> safe;
    {
        const std::lock_guard guard(lock_);
        if (!continued_) {
            job_.segments.clear();
            job_.file_size = -1;
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

void CTransferMainThread::remember_safe(std::unique_ptr<CJobNode> copy) {
    const std::lock_guard guard(mutex_);
    safe_ = std::move(copy);
}

std::unique_ptr<CJobNode> CTransferMainThread::safe_copy() {
    std::u16string path;
    {
        const std::lock_guard guard(lock_);
        path = job_.path;
    }
    const std::lock_guard guard(mutex_);
    if (!safe_) return nullptr;
    std::unique_ptr<CJobNode> copy = safe_->twin();
    copy->path = std::move(path);
    return copy;
}

Result CTransferMainThread::transfer() {
    if (std::string why = why_not_fetched(job_.address); !why.empty()) {
        log_.line(Direction::error, why);
        return {Code::unsupported, std::move(why)};
    }
    if (Result result = begin(); !result.ok()) return result;
    for (;;) {
        if (Result result = fetch_missing(); !result.ok()) return result;
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

// Joins the sub threads that ended, or all of them.
void CTransferMainThread::reap(bool all) {
    std::vector<CTransferSubThread*> gone;
    {
        const std::lock_guard guard(mutex_);
        gone.swap(ended_);
    }
    std::erase_if(subs_, [&](const auto& sub) {
        return all || std::find(gone.begin(), gone.end(), sub.get()) != gone.end();
    });
    if (all) {
        const std::lock_guard guard(mutex_);
        ended_.clear();
    }
}

void CTransferMainThread::retire_all() {
    for (auto& sub : subs_) sub->retire();
}

// Nothing of what the state on the disk says will be true in a moment.
void CTransferMainThread::forget_state() {
    remove_state(file_.state_path());
}

void CTransferMainThread::remove_state(const std::u16string& path) {
    if (!state_saved_.exchange(false)) return;
    if (const FileError error = remove_file(path); !error.ok() && error.fault != FileFault::not_found) {
        log_.line(Direction::error, "The state " + to_utf8(path) + " could not be removed: " + error.text());
    }
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

bool CTransferMainThread::start_one() {
    std::vector<bool> tried(static_cast<std::size_t>(mirrors_.count()));
    for (;;) {
        int mirror = MirrorSet::none;
        {
            const std::lock_guard guard(lock_);
            mirror = mirrors_.choose(job_.thread_limit(),
                                     [&](int i) { return !tried[static_cast<std::size_t>(i)]; });
        }
        if (mirror == MirrorSet::none) return false;
        if (start_with(mirror)) return true;
        // Work that this mirror may not do may be left for another.
        tried[static_cast<std::size_t>(mirror)] = true;
    }
}

bool CTransferMainThread::start_with(int mirror) {
    SubThreadHost& host = *this;
    auto sub = std::make_unique<CTransferSubThread>(
        host, SubThreadTools{services_.connections, services_.libraries, services_.settings, log_, stop_,
                             services_.threads});
    sub->mirror = mirror;
    if (!take_work(*sub)) {
        sub->mirror = MirrorSet::none;
        return false;
    }
    {
        const std::lock_guard guard(lock_);
        ++mirrors_.at(mirror).connections;
    }
    const Result started = sub->start();
    no_thread_left_ = !started.ok();
    if (!started.ok()) {
        not_started(*sub, started);
        return false;
    }
    subs_.push_back(std::move(sub));
    return true;
}

// The others go on with its part. No news, which would have it tried again at once.
void CTransferMainThread::not_started(CTransferSubThread& sub, const Result& why) {
    {
        const std::lock_guard guard(lock_);
        --mirrors_.at(sub.mirror).connections;
        sub.segment->worker = nullptr;
        sub.segment = nullptr;
    }
    const std::lock_guard guard(mutex_);
    --attached_;
    last_failure_ = why;
}

// Adds connections once the size is known: one until the server has shown that it answers ranges, then as
// many as the job and the server allow.
void CTransferMainThread::grow() {
    if (!size_reported_) return;
    std::size_t limit = 0;
    {
        const std::lock_guard guard(mutex_);
        limit = static_cast<std::size_t>(std::max(job_.thread_limit() - halted_, 0));
    }
    while (subs_.size() < limit && start_one()) {
    }
}

// A connection that is much slower than others were keeps the job waiting at its end, when there is nothing
// left to cut: it is ended, and grow() gives its segment to a new one.
void CTransferMainThread::replace_slow() {
    constexpr int most_replaced = 16;
    if (!size_reported_ || replaced_ >= most_replaced) return;
    if (subs_.size() >= static_cast<std::size_t>(job_.thread_limit())) return;
    const std::lock_guard guard(lock_);
    std::vector<PaceItem> items;
    for (const auto& segment : job_.segments) {
        const CTransferSubThread* worker = segment->worker;
        if (worker == nullptr && segment->start < segment->end)
            return;  // idle work is there: that comes first
        if (worker == nullptr) {
            items.push_back({});
            continue;
        }
        items.push_back(
            {segment->end - worker->position(), worker->bytes_per_second(), worker->is_settled()});
    }
    if (const auto slow = choose_takeover(items, best_speed_)) {
        CTransferSubThread& worker = *job_.segments[*slow]->worker;
        Mirror* mirror = worker.mirror == MirrorSet::none ? nullptr : &mirrors_.at(worker.mirror);
        if (mirror != nullptr && !mirror->ranges_proven) return;
        if (mirror != nullptr) ++mirror->failures;
        worker.retire();
        ++replaced_;
    }
}

JobProgress CTransferMainThread::progress() {
    JobProgress progress;
    progress.received = received_.load(std::memory_order_relaxed);
    {
        const std::lock_guard guard(lock_);
        progress.size = job_.file_size;
        progress.path = job_.path;
        std::int64_t left = 0;
        for (const auto& segment : job_.segments) {
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
        if (job_.file_size > 0) progress.done = job_.file_size - left;
    }
    const std::lock_guard guard(mutex_);
    progress.notice = notice_;
    return progress;
}

// The hash that was asked for, and the one that the job's sources name.
Result CTransferMainThread::check_hashes(bool& matches) {
    matches = true;
    if (options_.hash) {
        if (Result result = check_hash(*options_.hash, matches); !result.ok() || !matches) return result;
    }
    if (!job_.sources || !job_.sources->whole) return {};
    const ExpectedHash& named = *job_.sources->whole;
    const bool is_checked =
        options_.hash && options_.hash->kind == named.kind && options_.hash->digest == named.digest;
    return is_checked ? Result{} : check_hash(named, matches);
}

Result CTransferMainThread::check_hash(const ExpectedHash& expected, bool& matches) {
    Digest digest(expected.kind);
    std::vector<std::byte> buffer(hash_step);
    for (std::int64_t at = 0; at < job_.file_size;) {
        if (stop_.requested()) return stop_.reason();
        const auto bytes = static_cast<std::size_t>(
            std::min<std::int64_t>(job_.file_size - at, static_cast<std::int64_t>(hash_step)));
        const auto part = std::span(buffer).first(bytes);
        if (Result result = file_.read(at, part); !result.ok()) return result;
        digest.update(part);
        at += static_cast<std::int64_t>(bytes);
    }
    matches = digest.finish() == expected.digest;
    return {};
}

// What the finished file is marked with: where its bytes came from, redirects followed as far as known.
std::optional<FileOrigin> CTransferMainThread::origin() {
    if (!services_.settings.flag(setting::mark_zone)) return std::nullopt;
    const std::lock_guard guard(lock_);
    const Mirror* from = &mirrors_.at(0);
    for (int i = 0; i < mirrors_.count() && from->effective.empty(); ++i) from = &mirrors_.at(i);
    const std::u16string& address = from->effective.empty() ? job_.address : from->effective;
    return FileOrigin{to_utf8(without_credentials(address)), to_utf8(without_credentials(job_.referer))};
}

Result CTransferMainThread::finish() {
    const bool matches = hash_matches_;
    const std::u16string state = file_.state_path();
    const std::u16string_view suffix = matches ? std::u16string_view{} : wrong_hash_suffix;
    if (Result result = file_.finish(job_.file_size, suffix, origin()); !result.ok()) return result;
    remove_state(state);
    {
        const std::lock_guard guard(lock_);
        job_.path = file_.target();
        job_.segments.clear();
    }
    if (!matches) {
        const std::string text =
            std::string(describe(Code::hash_differs)) + " The file is kept as " + to_utf8(file_.target());
        log_.line(Direction::error, text);
        return {Code::hash_differs, text};
    }
    log_.line(Direction::note, message_text(Message::download_completed));
    return {};
}

FileError CTransferMainThread::write_state(const CJobNode& snapshot) {
    const FileError error = save_resume_state(snapshot, file_.state_path());
    if (error.ok()) state_saved_ = true;
    return error;
}

// Positions first, then the bytes up to them onto the disk, then the positions: after a power cut they never
// promise bytes that are not there.
void CTransferMainThread::save_state() {
    if (!options_.keep_state || !file_.is_open() || encoded_) return;
    std::unique_ptr<CJobNode> snapshot;
    {
        const std::lock_guard guard(lock_);
        if (only_one_ || job_.file_size <= 0) return;  // nothing that could be continued
        snapshot = job_.twin();
        snapshot->validators = {version_.etag, version_.last_modified};
        drop_complete_segments(*snapshot);
    }
    snapshot->path = file_.target();
    if (!file_.flush().ok()) return;  // logged; the state on the disk stays true
    const FileError error = write_state(*snapshot);
    remember_safe(std::move(snapshot));
    if (!error.ok()) log_.line(Direction::error, "The state of the job could not be saved: " + error.text());
}

// The job did not end well: what is there is kept for the next run, where there is anything worth it.
void CTransferMainThread::leave_state(const Result& result) {
    if (!file_.is_open()) return;
    Result drained = file_.drain();  // a failure is logged, and what it lost counts as not received
    const bool useless = result.code == Code::keeps_changing;
    bool anything = false;
    {
        const std::lock_guard guard(lock_);
        anything = job_.file_size > 0 && written_end(job_) > 0 && !useless;
    }
    if (!anything && !drained.ok()) anything = true;
    if (!anything && !(result.kind() == Kind::stopped && job_.file_size <= 0)) {
        forget_state();
        file_.discard();
        return;
    }
    save_state();
    if (state_saved_ || !options_.keep_state || job_.file_size <= 0) return;
    // The disk is full: the job gives back a little of what it wrote, so that the state of the rest finds
    // room.
    const std::int64_t end = give_back_tail(job_, state_room);
    if (!file_.shrink(end).ok()) return;
    save_state();
}

}  // namespace vantlow
