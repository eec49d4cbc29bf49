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
constexpr std::chrono::seconds longest_back_off{300};

}  // namespace

bool CTransferMainThread::others_receive(const CTransferSubThread& asker) {
    const std::lock_guard guard(lock_);
    return std::any_of(job_.segments.begin(), job_.segments.end(), [&](const auto& segment) {
        return segment->worker != nullptr && segment->worker != &asker && segment->worker->is_active();
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
void CTransferMainThread::back_off(std::optional<std::chrono::seconds> server_asks) {
    int active = 0;
    {
        const std::lock_guard guard(lock_);
        for (const auto& segment : job_.segments) {
            if (segment->worker != nullptr && segment->worker->is_active()) ++active;
        }
    }
    const std::lock_guard guard(mutex_);
    allowed_ = std::max(active, 1);
    grow_at_ = Clock::now() + std::max(back_off_, server_asks.value_or(std::chrono::seconds(0)));
    back_off_ = std::min(back_off_ * 2, longest_back_off);
}

AfterFailure CTransferMainThread::retry(CTransferSubThread& asker, const FailedAttempt& attempt) {
    const Settings& settings = services_.settings;
    RetryCase retry;
    retry.errors = attempt.errors;
    retry.fruitless = attempt.fruitless;
    retry.server_asks = attempt.server_asks;
    retry.limit = settings.flag(setting::always_retry) ? -1 : settings.number(setting::retries);
    {
        const std::lock_guard guard(lock_);
        retry.limit = job_.own_retry_limit().value_or(static_cast<std::int32_t>(retry.limit));
        retry.delay = job_.retry_delay;
        retry.longest_pause = std::chrono::seconds(job_.longest_pause);
    }
    const RetryDecision decision = decide_retry(retry);
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
    const Result& result = attempt.result;
    if (result.kind() == Kind::stopped || asker.is_retired()) return {};
    if (result.code == Code::local_file || result.code == Code::cancelled) return fail_for_good(result);
    if (result.code == Code::joint_unsure) return {true, {}, false};
    if (result.kind() == Kind::restart) {
        ask_for_restart(result, false);
        return {};
    }
    if (attempt.told_size >= 0 && told_other_size(attempt.told_size)) {
        ask_for_restart(Code::size_differs, false);
        return {};
    }
    // A further connection that the server doesn't want: the others go on with its part.
    if (!attempt.accepted && attempt.segment_untouched && others_receive(asker)) {
        back_off(attempt.server_asks);
        return {};
    }
    // The same credentials again would lock somebody's account, and bring nothing.
    if (result.code == Code::credentials_refused || result.about_credentials) return fail_for_good(result);
    if (result.code == Code::range_ignored && ++ignored_ranges_ > 2) return restart_without_ranges(attempt);
    if (result.kind() == Kind::retry_later) {
        if (attempt.accepted && attempt.fruitless >= most_dead_ends) {
            return fail_for_good(
                {Code::server_error, "The server ends the file early, again and again: " + result.message()});
        }
        return retry(asker, attempt);
    }
    {
        // Where a redirect led may be gone: the way is asked for again.
        const std::lock_guard guard(mutex_);
        if (!effective_.empty() && effective_ != job_.address) {
            effective_.clear();
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
