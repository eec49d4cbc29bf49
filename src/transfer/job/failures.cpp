// What a job makes of a connection that failed.
#include <algorithm>

#include "base/string_table.h"
#include "transfer/job/main_thread.h"
#include "transfer/job/retry_rule.h"

namespace vantlow {
namespace {

// A server that answered before and now refuses (a link that expired, an address that is blocked for a while)
// is asked this often more.
constexpr int most_late_refusals = 5;
// An answer that ends at the same byte this often in a row will end there for ever.
constexpr int most_dead_ends = 10;

}  // namespace

bool CTransferMainThread::others_receive(const CTransferSubThread& asker, bool same_mirror) {
    const std::lock_guard guard(lock_);
    return std::any_of(job_.segments.begin(), job_.segments.end(), [&](const auto& segment) {
        const CTransferSubThread* worker = segment->worker;
        return worker != nullptr && worker != &asker && worker->is_active() &&
               (!same_mirror || worker->mirror == asker.mirror);
    });
}

AfterFailure CTransferMainThread::fail_for_good(const Result& result) {
    {
        const std::lock_guard guard(mutex_);
        if (!fatal_) fatal_ = result;
        news_there_ = true;
    }
    news_.notify_all();
    return {};
}

// The server bears no more connections than those that receive now; later it is asked again, more and more
// rarely.
void CTransferMainThread::back_off(int mirror, std::optional<std::chrono::seconds> server_asks) {
    const std::lock_guard guard(lock_);
    const auto active = std::count_if(job_.segments.begin(), job_.segments.end(), [&](const auto& segment) {
        return segment->worker != nullptr && segment->worker->is_active() &&
               segment->worker->mirror == mirror;
    });
    mirrors_.back_off(mirror, static_cast<int>(active), server_asks);
}

// Called with the job lock held.
RetryCase CTransferMainThread::retry_case(int errors, int fruitless, const FailedAttempt& attempt) const {
    const Settings& settings = services_.settings;
    const std::int64_t limit = settings.flag(setting::always_retry) ? -1 : settings.number(setting::retries);
    RetryCase retry;
    retry.errors = errors;
    retry.fruitless = fruitless;
    retry.server_asks = attempt.server_asks;
    retry.limit = job_.own_retry_limit().value_or(static_cast<std::int32_t>(limit));
    retry.delay = job_.retry_delay;
    retry.longest_pause = std::chrono::seconds(job_.longest_pause);
    return retry;
}

AfterFailure CTransferMainThread::retry(CTransferSubThread& asker, const FailedAttempt& attempt) {
    RetryDecision decision;
    {
        const std::lock_guard guard(lock_);
        decision = decide_retry(retry_case(attempt.errors, attempt.fruitless, attempt));
    }
    {
        const std::lock_guard guard(mutex_);
        last_failure_ = attempt.result;
        notice_ = attempt.result.message();
    }
    if (decision.give_up) {
        {
            const std::lock_guard guard(mutex_);
            ++halted_;
        }
        log_.line(Direction::error, message_text(Message::maximum_error));
        return {};
    }
    rewind(asker);
    return {true, decision.wait, decision.is_announced()};
}

// A server that cannot resume, or whose answer is decoded on the way, is asked for the whole again.
void CTransferMainThread::rewind(CTransferSubThread& asker) {
    {
        const std::lock_guard guard(lock_);
        if (!only_one_ && !encoded_) return;
    }
    if (!file_.drain().ok()) return;  // logged; the next write tells
    const std::lock_guard guard(lock_);
    asker.segment->start = 0;
    asker.rewind();
}

void CTransferMainThread::ask_for_restart(const Result& why, bool whole) {
    {
        const std::lock_guard guard(mutex_);
        restart_ = why;
        restart_whole_ = restart_whole_ || whole;
        news_there_ = true;
    }
    news_.notify_all();
}

AfterFailure CTransferMainThread::after_failure(CTransferSubThread& asker, const FailedAttempt& attempt) {
    const AfterFailure after = decide(asker, attempt);
    if (after.again && attempt.result.kind() == Kind::retry_later &&
        attempt.result.code != Code::joint_unsure) {
        const std::lock_guard guard(mutex_);
        waiting_for_ = attempt.result.message();
        attempts_ = std::max(attempts_, attempt.fruitless);
        next_try_ = Clock::now() + after.wait;
    }
    return after;
}

AfterFailure CTransferMainThread::decide(CTransferSubThread& asker, const FailedAttempt& attempt) {
    const Result& result = attempt.result;
    if (result.kind() == Kind::stopped || asker.is_retired()) return {};
    if (result.code == Code::local_file || result.code == Code::cancelled) return fail_for_good(result);
    if (result.code == Code::joint_unsure) return {true, {}, false};
    if (mirrors_.are_several()) return after_mirror_failure(asker, attempt);
    if (result.kind() == Kind::restart) {
        // A new start would not help: the size was known before.
        if (job_.sources && job_.sources->size >= 0 && result.code == Code::size_differs)
            return fail_for_good(result);
        ask_for_restart(result, false);
        return {};
    }
    if (attempt.told_size >= 0 && told_other_size(attempt.told_size)) {
        ask_for_restart(Code::size_differs, false);
        return {};
    }
    // A further connection that the server doesn't want: the others go on with its part.
    if (!attempt.accepted && attempt.segment_untouched && others_receive(asker, false)) {
        back_off(asker.mirror, attempt.server_asks);
        return {};
    }
    // The same credentials again would lock somebody's account, and bring nothing.
    if (result.code == Code::credentials_refused || result.about_credentials) return fail_for_good(result);
    if (result.code == Code::range_ignored) {
        bool is_enough = false;
        {
            const std::lock_guard guard(lock_);
            is_enough = ++mirrors_.at(asker.mirror).ignored_ranges > 2;
        }
        if (is_enough) return restart_without_ranges(attempt);
    }
    if (result.kind() == Kind::retry_later) {
        if (attempt.accepted && attempt.fruitless >= most_dead_ends) {
            return fail_for_good(
                {Code::server_error, "The server ends the file early, again and again: " + result.message()});
        }
        return retry(asker, attempt);
    }
    {
        // Where a redirect led may be gone: the way is asked for again.
        const std::lock_guard guard(lock_);
        Mirror& mirror = mirrors_.at(asker.mirror);
        if (!mirror.effective.empty() && mirror.effective != mirror.address) {
            mirror.effective.clear();
            return {true, {}, false};
        }
    }
    if (accepted_once_ && result.code != Code::cannot_resume && ++late_refusals_ <= most_late_refusals)
        return retry(asker, attempt);
    return fail_for_good(result);
}

// Part after part was refused: from now on the whole is asked for, by one connection.
AfterFailure CTransferMainThread::restart_without_ranges(const FailedAttempt& attempt) {
    if (attempt.asked == 0) return fail_for_good({Code::server_error, attempt.result.message()});
    log_.line(Direction::note, message_text(Message::cannot_resume));
    if (!services_.settings.flag(setting::resume)) return fail_for_good(Code::cannot_resume);
    ask_for_restart(attempt.result, true);
    return {};
}

bool CTransferMainThread::told_other_size(std::int64_t size) {
    const std::lock_guard guard(lock_);
    return version_known_ && version_.size >= 0 && version_.size != size;
}

}  // namespace vantlow
