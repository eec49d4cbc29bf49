// What a job makes of a server's answer: versions, resuming, the size, the file.
#include <algorithm>
#include <chrono>

#include "base/safe_name.h"
#include "base/string_table.h"
#include "base/text.h"
#include "transfer/http/head.h"
#include "transfer/job/main_thread.h"

namespace vantlow {
namespace {

// A server that has answered ranges in this run and now ignores one is asked again this often before the job
// believes it.
constexpr int most_ignored_ranges = 2;

// Seconds since 1970 from what a server told: a date of HTTP, or the digits of FTP (RFC 3659, 2.3).
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

}  // namespace

Result CTransferMainThread::response_accepted(CTransferSubThread& asker, const SourceAnswer& answer,
                                              std::int64_t asked) {
    if (Result result = check_version(asker, answer, asked); !result.ok()) return result;
    if (answer.granted != asked || (answer.encoded && asked > 0)) return cannot_resume(asker, answer);
    bool is_news = false;
    {
        const std::lock_guard guard(lock_);
        Mirror& mirror = mirrors_.at(asker.mirror);
        is_news = !answer.whole && !std::exchange(mirror.ranges_proven, true);
        mirror.ranges_promised = mirror.ranges_promised || answer.ranges_promised;
        mirror.ignored_ranges = 0;
        mirror.answered = true;
        if (!mirror.version_known) mirror.version = answer.version;
        mirror.version_known = true;
        mirror.effective = answer.address;
    }
    if (is_news) log_.line(Direction::note, message_text(Message::can_resume));
    if (continued_.exchange(false)) log_.line(Direction::note, message_text(Message::same_file));
    accepted_once_ = true;
    bool first = false;
    {
        const std::lock_guard guard(lock_);
        first = !version_known_;
    }
    if (Result result = first ? adopt(asker, answer) : learn_size(asker, answer); !result.ok()) return result;
    {
        const std::lock_guard guard(mutex_);
        notice_.clear();
        waiting_for_.clear();
        attempts_ = 0;
        next_try_.reset();
        news_there_ = true;
    }
    std::int64_t size = 0;
    {
        const std::lock_guard guard(lock_);
        size = only_one_ ? 0 : job_.file_size;
    }
    size_reported_ = size > 0 && !encoded_ && !answer.ranges_denied;
    // A file that nobody else could take a part of is no reason to wake the main thread.
    if (size > services_.settings.number(setting::split_size)) news_.notify_all();
    return {};
}

// Holds the answer against the first one's.
Result CTransferMainThread::check_version(CTransferSubThread& asker, const SourceAnswer& answer,
                                          std::int64_t asked) {
    ResourceVersion known;
    bool several = false;
    {
        const std::lock_guard guard(lock_);
        several = mirrors_.are_several();
        if (version_known_) known = version_;
        // Of the rest each server has its own idea.
        const Mirror& mirror = mirrors_.at(asker.mirror);
        if (several) known = mirror.version_known ? mirror.version : ResourceVersion{known.size, {}, {}};
        if (job_.sources && job_.sources->size >= 0) known.size = job_.sources->size;
        if (!version_known_ && known.size < 0) return {};
    }
    switch (compare_versions(known, answer.version)) {
        case VersionMatch::same:
            return {};
        case VersionMatch::changed: {
            const bool size =
                known.size >= 0 && answer.version.size >= 0 && known.size != answer.version.size;
            const Code code = size ? Code::size_differs : Code::resource_changed;
            log_.line(Direction::error, describe(code));
            return code;
        }
        case VersionMatch::unsure:
            break;
    }
    // Where there are several, the joints are compared, or the pieces are checked, from the beginning.
    if (several) return {};
    // Ask again with an overlap, unless this is such an answer already or there is nothing to compare with.
    const bool overlapped = asked < asker.position();
    verify_joints_ = true;
    const bool restart = answer.granted != asked;
    return overlapped || restart || overlap_before(asker) == 0 ? Result{} : Result(Code::joint_unsure);
}

// The first answer of a run that begins at zero: its size and version become the job's.
Result CTransferMainThread::adopt(CTransferSubThread& asker, const SourceAnswer& answer) {
    if (answer.encoded) encoded_ = true;
    if (!file_.is_open()) {
        if (Result result = open_file(answer); !result.ok()) return result;
    }
    std::int64_t size = answer.version.size;
    if (size < 0 && !answer.encoded && job_.sources) size = job_.sources->size;
    {
        const std::lock_guard guard(lock_);
        version_ = answer.version;
        version_.size = size;
        version_known_ = true;
        job_.validators = {answer.version.etag, answer.version.last_modified};
        outcome_.media_type = answer.media_type;
        job_.path = file_.target();
        job_.file_size = size;
        asker.segment->end = size >= 0 ? size : unknown_end;
        asker.set_limit(asker.segment->end);
    }
    begin_pieces();
    if (size < 0) log_.line(Direction::note, message_text(Message::size_unknown));
    if (size == 0) return file_.start_over();
    return file_.allocate(size);
}

// The first answer told no size, a later one does: where it ends is not where the file does.
Result CTransferMainThread::learn_size(CTransferSubThread& asker, const SourceAnswer& answer) {
    const std::int64_t size = answer.version.size;
    {
        const std::lock_guard guard(lock_);
        if (job_.file_size >= 0 || encoded_ || answer.encoded || size < 0) return {};
        if (size < asker.position()) return Code::size_differs;
        version_.size = job_.file_size = size;
        asker.segment->end = size;
        asker.set_limit(size);
    }
    begin_pieces();
    return file_.allocate(size);
}

Result CTransferMainThread::open_file(const SourceAnswer& answer) {
    std::u16string folder;
    std::u16string name;
    {
        const std::lock_guard guard(lock_);
        folder = folder_of(job_.path);
        name = job_.file_name;
    }
    if (name.empty()) name = safe_file_name(answer.name);
    FileRules rules = file_rules();
    if (!answer.encoded) rules.server_size = answer.version.size;
    rules.server_time = time_of_change(answer.version.last_modified);
    return file_.begin(folder, name, rules);
}

// The server gave the whole resource although a later part was asked for.
Result CTransferMainThread::cannot_resume(CTransferSubThread& asker, const SourceAnswer& answer) {
    if (!services_.settings.flag(setting::resume)) {
        log_.line(Direction::error, message_text(Message::cannot_resume));
        return Code::cannot_resume;
    }
    bool is_believed = true;
    bool is_only_choice = true;
    {
        const std::lock_guard guard(lock_);
        Mirror& mirror = mirrors_.at(asker.mirror);
        is_believed = !mirror.ranges_proven || mirror.ignored_ranges++ >= most_ignored_ranges;
        if (is_believed) mirror.no_ranges = true;
        for (int other = 0; other < mirrors_.count(); ++other) {
            if (mirrors_.is_usable(other) && !mirrors_.at(other).no_ranges) is_only_choice = false;
        }
    }
    if (!is_believed) {
        log_.line(Direction::error, message_text(Message::partial_refused));
        return Code::range_ignored;
    }
    if (!is_only_choice) return Code::cannot_resume;
    log_.line(Direction::note, message_text(Message::cannot_resume));
    return become_only(asker, answer);
}

// This connection goes on alone, from zero; all that was received is thrown away.
Result CTransferMainThread::become_only(CTransferSubThread& asker, const SourceAnswer& answer) {
    {
        const std::lock_guard guard(lock_);
        if (only_one_) {
            const bool another = std::any_of(
                job_.segments.begin(), job_.segments.end(),
                [&](const auto& segment) { return segment->worker != nullptr && segment->worker != &asker; });
            if (another) return Code::handed_over;
        }
        // The others may have written everything in the meantime: then the job is about to end well.
        if (is_all_there()) return Code::handed_over;
        only_one_ = taking_over_ = true;
        for (const auto& segment : job_.segments) {
            if (segment->worker != nullptr && segment->worker != &asker) segment->worker->retire();
        }
    }
    {
        // The others write their last bytes before the file is emptied under them, and a save that is under
        // way tells of nothing that is about to go.
        std::unique_lock guard(mutex_);
        const bool alone = news_.wait(guard, stop_.token(), [this] { return attached_ == 1 && !saving_; });
        if (!alone) return stop_.reason();
        if (safe_) safe_->segments.clear();
    }
    forget_state();
    forget_pieces();
    if (file_.is_open()) {
        if (Result result = file_.start_over(); !result.ok()) return result;
    }
    {
        const std::lock_guard guard(lock_);
        job_.whole_file = 1;
        taking_over_ = false;
        job_.segments.clear();
        CJobSeg& all = job_.append_segment(0, unknown_end);
        all.worker = &asker;
        asker.segment = &all;
        asker.begin_at(0, unknown_end);
        version_known_ = false;
    }
    size_reported_ = verify_joints_ = continued_ = false;
    accepted_once_ = true;
    if (Result result = adopt(asker, answer); !result.ok()) return result;
    const std::lock_guard guard(lock_);
    mirrors_.at(asker.mirror).effective = answer.address;
    return {};
}

}  // namespace vantlow
