// The calls of a job's connections: each is an event for the policy.
#include <algorithm>
#include <chrono>

#include "base/safe_name.h"
#include "base/text.h"
#include "transfer/http/head.h"
#include "transfer/job/main_thread.h"

namespace vantlow {
namespace {

// Reads the time that a server told, in seconds since 1970: a date of HTTP, or the digits of FTP (RFC
// 3659, 2.3).
std::optional<std::int64_t> time_of_change(std::string_view text) {
    if (const auto date = parse_http_date(text)) return date;
    const auto digits = parse_decimal(text.substr(0, 14));
    if (text.size() < 14 || !digits) return std::nullopt;
    namespace c = std::chrono;
    const std::int64_t day = *digits / 1'000'000;
    const std::int64_t second = *digits % 1'000'000;
    const c::year_month_day date{c::year(static_cast<int>(day / 10000)),
                                 c::month(static_cast<unsigned>(day / 100 % 100)),
                                 c::day(static_cast<unsigned>(day % 100))};
    if (!date.ok()) return std::nullopt;
    return c::sys_days(date).time_since_epoch().count() * std::int64_t{86400} + second / 10000 * 3600 +
           second / 100 % 100 * 60 + second % 100;
}

// How many of the bytes in front of a place, or behind it, tell versions apart: the usual ones, or, where
// these are one byte again and again, as many as it takes to reach another byte. Where there is none among
// `most` more of them would tell nothing either.
std::int64_t reach_of_joint(CLocalFile& file, std::int64_t usual, std::int64_t most, std::int64_t at,
                            bool is_behind) {
    constexpr std::int64_t step = 16 * 1024;
    std::vector<std::byte> bytes;
    std::optional<std::byte> plain;
    for (std::int64_t reached = 0; reached < most;) {
        bytes.resize(static_cast<std::size_t>(reached == 0 ? usual : std::min(step, most - reached)));
        const auto length = static_cast<std::int64_t>(bytes.size());
        if (!file.read(is_behind ? at + reached : at - reached - length, bytes).ok()) return usual;
        if (!plain) plain = bytes.front();
        reached += length;
        if (std::ranges::any_of(bytes, [plain](std::byte byte) { return byte != *plain; })) return reached;
    }
    return usual;
}

}  // namespace

PolicyRules CTransferMainThread::rules() const {
    const Settings& settings = services_.settings;
    PolicyRules rules;
    rules.split_size = settings.number(setting::split_size);
    rules.only_own_part = settings.flag(setting::only_own_part);
    rules.may_begin_anew = settings.flag(setting::resume);
    rules.retry_limit = settings.flag(setting::always_retry) ? -1 : settings.number(setting::retries);
    return rules;
}

void CTransferMainThread::carry_out(const Effects& effects) {
    for (const auto& [direction, text] : effects.notes) log_.line(direction, text);
    for (const std::size_t piece : effects.whole_pieces) pieces_->add(piece);
    if (!effects.news && effects.retire.empty()) return;
    {
        const MutexLock guard(mutex_);
        news_there_ = news_there_ || effects.news;
        ++events_;
    }
    if (effects.news) news_.notify_all();
    work_news_.notify_all();
}

bool CTransferMainThread::take_work(CTransferSubThread& asker) {
    constexpr std::chrono::seconds longest_wait{1};
    for (;;) {
        std::uint64_t seen = 0;
        {
            const MutexLock guard(mutex_);
            seen = events_;
        }
        const PolicyRules now_rules = rules();
        const Work work =
            decide([&](JobPolicy& policy) { return policy.take_work(asker.worker(), now_rules, now()); });
        MutexLock guard(mutex_);
        if (work == Work::taken) ++attached_;
        if (work != Work::later) return work == Work::taken;
        work_news_.wait_for(guard, asker.stop_source(), longest_wait,
                            [&]() VANTLOW_REQUIRES(mutex_) { return events_ != seen; });
        if (asker.stop_source().requested()) return false;
    }
}

bool CTransferMainThread::release(CTransferSubThread& asker, std::int64_t open_at, bool done) {
    // Nothing may be held back for a segment that another connection takes: its start says what is written.
    const Result drained = file_.drain();
    const bool complete = decide([&](JobPolicy& policy) {
        if (!drained.ok()) policy.end_for_good(drained);
        return policy.released(asker.worker(), open_at, done, asker.segment_speed()) && drained.ok();
    });
    {
        const MutexLock guard(mutex_);
        --attached_;
        ++events_;
        news_there_ = true;
    }
    // With nothing left to take the asker is about to end, which is news enough.
    if (!complete) news_.notify_all();
    work_news_.notify_all();
    return complete;
}

void CTransferMainThread::written(std::int64_t offset, std::int64_t bytes) {
    decide([&](JobPolicy& policy) { policy.written(offset, bytes); });
}

void CTransferMainThread::delivered(const Worker& asker, std::int64_t offset, std::int64_t bytes) {
    const MutexLock guard(lock_);
    policy_.delivered(asker, offset, bytes);
}

void CTransferMainThread::ended(CTransferSubThread& asker, const Result& last) {
    decide([&](JobPolicy& policy) VANTLOW_REQUIRES(lock_) {
        policy.strike(asker.worker(), last);
        by_worker_.erase(asker.worker().id);
    });
    {
        const MutexLock guard(mutex_);
        ended_.push_back(&asker);
        news_there_ = true;
        ++events_;
    }
    news_.notify_all();
}

void CTransferMainThread::end_found(Worker& asker) {
    const MutexLock guard(lock_);
    policy_.end_found(asker);
}

std::int64_t CTransferMainThread::overlap_before(const Worker& asker) {
    // Bytes that the asker received may still be held back. A disk that does not take it says so at the next
    // write.
    static_cast<void>(file_.drain());
    return overlap(asker, false);
}

std::int64_t CTransferMainThread::overlap_behind(const Worker& asker) {
    return overlap(asker, true);
}

// As many bytes beside the asker's position, or behind its segment, as tell versions apart.
std::int64_t CTransferMainThread::overlap(const Worker& asker, bool is_behind) {
    const auto reach = [&](bool most) {
        const MutexLock guard(lock_);
        return is_behind ? policy_.overlap_behind(asker, most) : policy_.overlap_before(asker, most);
    };
    const std::int64_t at = is_behind ? asker.limit : asker.position;
    const std::int64_t bytes = reach(false);
    return bytes > 0 ? reach_of_joint(file_, bytes, reach(true), at, is_behind) : bytes;
}

bool CTransferMainThread::is_there(std::int64_t begin, std::int64_t end) {
    const MutexLock guard(lock_);
    return policy_.is_there(begin, end);
}

void CTransferMainThread::agreed(const Worker& asker, std::int64_t begin, std::int64_t end, bool is_plain) {
    const MutexLock guard(lock_);
    policy_.agreed(asker, begin, end, is_plain);
}

Result CTransferMainThread::contradicted(Worker& asker, std::int64_t begin, std::int64_t end) {
    const bool is_wrong = decide([&](JobPolicy& policy) { return policy.contradicted(asker, begin, end); });
    if (!is_wrong) return {};
    return {Code::resource_changed,
            "The bytes around " + std::to_string(begin) + " differ from those received before."};
}

Result CTransferMainThread::response_accepted(CTransferSubThread& asker, const SourceAnswer& answer,
                                              std::int64_t asked) {
    const PolicyRules now_rules = rules();
    const Verdict verdict =
        decide([&](JobPolicy& policy) { return policy.answered(asker.worker(), answer, asked, now_rules); });
    Result result = verdict.result;
    if (verdict.next == Verdict::Next::adopt) result = adopt(asker, answer);
    if (verdict.next == Verdict::Next::take_whole) result = take_whole(asker, answer);
    if (!result.ok()) return result;
    std::int64_t size = 0;
    {
        const MutexLock guard(lock_);
        size = job_.file_size;
    }
    {
        const MutexLock guard(mutex_);
        news_there_ = true;
    }
    // A file that nobody else could take a part of is no reason to wake the main thread.
    if (size > now_rules.split_size) news_.notify_all();
    return {};
}

// Takes the first answer of a run that begins at zero, or of one that begins anew.
Result CTransferMainThread::adopt(CTransferSubThread& asker, const SourceAnswer& answer) {
    Result ready = file_.is_open() ? throw_away(asker) : open_file(answer);
    if (!ready.ok()) return ready;
    const std::int64_t size = decide([&](JobPolicy& policy) {
        policy.adopt(asker.worker(), answer, file_.target());
        outcome_.media_type = answer.version.media_type;
        return job_.file_size;
    });
    encoded_ = answer.encoded;
    begin_pieces();
    if (size == 0) return file_.start_over();
    return file_.allocate(size);
}

Result CTransferMainThread::open_file(const SourceAnswer& answer) {
    std::u16string folder;
    std::u16string name;
    {
        const MutexLock guard(lock_);
        folder = folder_of(job_.path);
        name = job_.file_name;
    }
    if (name.empty()) name = safe_file_name(answer.name);
    FileRules rules = file_rules();
    if (!answer.encoded) rules.server_size = answer.version.size;
    rules.server_time = time_of_change(answer.version.last_modified);
    return file_.begin(folder, name, rules);
}

// Throws away everything received: the file is empty afterwards, and no state tells otherwise.
Result CTransferMainThread::throw_away(CTransferSubThread& asker) {
    {
        // A save that is under way tells of nothing that is about to go.
        MutexLock guard(mutex_);
        if (!news_.wait(guard, asker.stop_source(), [this]() VANTLOW_REQUIRES(mutex_) { return !saving_; }))
            return asker.stop_source().reason();
        if (safe_) safe_->segments.clear();
    }
    forget_state();
    forget_pieces();
    return file_.start_over();
}

// Lets this connection go on alone, from zero; all that was received is thrown away.
Result CTransferMainThread::take_whole(CTransferSubThread& asker, const SourceAnswer& answer) {
    {
        // The others write their last bytes before the file is emptied under them.
        MutexLock guard(mutex_);
        if (!news_.wait(guard, asker.stop_source(),
                        [this]() VANTLOW_REQUIRES(mutex_) { return attached_ == 1; }))
            return asker.stop_source().reason();
    }
    decide([&](JobPolicy& policy) { policy.begin_whole(asker.worker()); });
    if (Result result = adopt(asker, answer); !result.ok()) return result;
    const MutexLock guard(lock_);
    policy_.mirrors().at(asker.worker().mirror).effective = answer.address;
    return {};
}

AfterFailure CTransferMainThread::after_failure(CTransferSubThread& asker, const FailedAttempt& attempt) {
    // A rewound position lies behind everything that was written.
    static_cast<void>(file_.drain());
    const PolicyRules now_rules = rules();
    return decide([&](JobPolicy& policy) {
        if (attempt.result.code == Code::not_trusted) outcome_.distrusted = attempt.address;
        return policy.failed(asker.worker(), attempt, now_rules, now());
    });
}

}  // namespace vantlow
