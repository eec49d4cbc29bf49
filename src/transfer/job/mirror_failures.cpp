// What a job of several mirrors makes of failures: which mirror is asked next, which one is left.
#include <algorithm>

#include "base/string_table.h"
#include "base/text.h"
#include "store/address.h"
#include "transfer/job/main_thread.h"
#include "transfer/job/retry_rule.h"

namespace vantlow {
namespace {

// A mirror that never answered while others did is believed to be gone after so many attempts.
constexpr int most_silent_attempts = 3;
// An answer that ends at the same byte this often in a row will end there for ever.
constexpr int most_dead_ends = 10;
constexpr int most_ignored_ranges = 2;
// Bytes that it gave itself: they may have been replaced while they were compared, but hardly this often.
constexpr int most_contradictions = 3;
// Where nothing can be done now although somebody might do it.
constexpr std::chrono::milliseconds short_pause{200};

}  // namespace

AfterFailure CTransferMainThread::after_mirror_failure(CTransferSubThread& asker,
                                                       const FailedAttempt& attempt) {
    const int mirror = asker.mirror;
    if (mirror == MirrorSet::none) return next_mirror(asker);
    const bool is_unwanted = !attempt.accepted && attempt.segment_untouched && others_receive(asker, true);
    if (is_unwanted) {
        back_off(mirror, attempt.server_asks);
        return next_mirror(asker);
    }
    std::string note;
    {
        const std::lock_guard guard(lock_);
        note = note_failure(asker, attempt);
    }
    if (!note.empty()) log_.line(Direction::error, note);
    {
        const std::lock_guard guard(mutex_);
        last_failure_ = attempt.result;
        notice_ = note.empty() ? attempt.result.message() : note;
    }
    return next_mirror(asker);
}

// Called with the job lock held; a line for the log where the mirror is left.
std::string CTransferMainThread::note_failure(const CTransferSubThread& asker, const FailedAttempt& attempt) {
    const Result& result = attempt.result;
    if (result.code == Code::resource_changed) return note_joint(asker, attempt);
    const int index = asker.mirror;
    Mirror& mirror = mirrors_.at(index);
    ++mirror.failures;
    ++mirror.errors;
    mirror.fruitless = attempt.progressed ? 0 : mirror.fruitless + 1;
    if (result.kind() == Kind::restart) return leave_mirror(index, result, &asker);
    if (attempt.told_size >= 0 && version_known_ && version_.size >= 0 && version_.size != attempt.told_size)
        return leave_mirror(index, Code::size_differs, &asker);
    if (result.code == Code::range_ignored) {
        return ++mirror.ignored_ranges > most_ignored_ranges ? leave_mirror(index, result, &asker)
                                                             : std::string();
    }
    if (result.kind() != Kind::retry_later) {
        // Where a redirect led may be gone: the way is asked for again.
        const bool was_led = !result.about_credentials && result.code != Code::credentials_refused &&
                             !mirror.effective.empty() && mirror.effective != mirror.address;
        mirror.effective.clear();
        return was_led ? std::string() : leave_mirror(index, result, &asker);
    }
    const RetryDecision decision = decide_retry(retry_case(mirror.errors, mirror.fruitless, attempt));
    bool others_answered = false;
    for (int other = 0; other < mirrors_.count(); ++other) {
        others_answered = others_answered || (other != index && mirrors_.at(other).answered);
    }
    const bool is_silent = !mirror.answered && others_answered && mirror.fruitless >= most_silent_attempts;
    const bool is_dead_end = attempt.accepted && mirror.fruitless >= most_dead_ends;
    if (decision.give_up || is_silent || is_dead_end) return leave_mirror(index, result, &asker);
    mirror.not_before = Clock::now() + decision.wait;
    return {};
}

// The bytes where two answers meet are not the same. Which mirror is wrong no one can tell: the one that the
// metafile names first is believed. Called with the job lock held; a line for the log.
std::string CTransferMainThread::note_joint(const CTransferSubThread& asker, const FailedAttempt& attempt) {
    constexpr std::int64_t reach = 4096;
    const bool is_behind = asker.position() >= asker.limit();
    const std::int64_t begin = is_behind ? asker.limit() : attempt.asked;
    std::int64_t end = is_behind ? asker.limit() + reach : asker.position();
    for (const auto& segment : job_.segments) {
        if (is_behind && segment->start >= begin && segment->start < segment->end)
            end = std::min(end, segment->start);
    }
    // What was compared with is fetched again already, or about to be: this answer is compared with that.
    const auto look_again = [&] {
        mirrors_.at(asker.mirror).not_before = Clock::now() + short_pause;
        return std::string();
    };
    if (begin >= end || is_missing(begin, end)) return look_again();
    int blamed = asker.mirror;
    const std::vector<int> givers = origins_.of(begin, end);
    const bool is_its_own = givers.size() == 1 && givers.front() == asker.mirror;
    if (is_its_own && ++mirrors_.at(asker.mirror).contradictions <= most_contradictions) return look_again();
    for (const int other : givers) {
        if (other == Origins::unknown || other == asker.mirror) continue;
        if (mirrors_.at(other).left) return look_again();
        blamed = std::max(blamed, other);
    }
    return leave_mirror(blamed, attempt.result, &asker);
}

// Called with the job lock held; a line for the log. Where the mirror gave wrong bytes its connections end,
// but for the one that asks, and what nothing has confirmed is fetched again.
std::string CTransferMainThread::leave_mirror(int index, const Result& why, const CTransferSubThread* asker) {
    mirrors_.leave(index, why);
    if (why.kind() == Kind::restart || why.code == Code::hash_differs) {
        for (const auto& segment : job_.segments) {
            CTransferSubThread* worker = segment->worker;
            if (worker != nullptr && worker != asker && worker->mirror == index) worker->retire();
        }
        to_take_back_.push_back(index);
    }
    return "The mirror " + to_utf8(without_credentials(mirrors_.at(index).address)) +
           " is left: " + why.message();
}

// The connection goes on with whichever mirror is best now, which may be the same.
AfterFailure CTransferMainThread::next_mirror(CTransferSubThread& asker) {
    bool is_any_usable = false;
    std::chrono::milliseconds wait = short_pause;
    {
        const std::lock_guard guard(lock_);
        if (asker.mirror != MirrorSet::none) --mirrors_.at(asker.mirror).connections;
        asker.mirror = mirrors_.choose(job_.thread_limit(),
                                       [&](int mirror) { return may_serve(mirror, *asker.segment); });
        if (asker.mirror != MirrorSet::none) {
            ++mirrors_.at(asker.mirror).connections;
            return {true, {}, false};
        }
        const auto chance = mirrors_.next_chance();
        is_any_usable = chance.has_value();
        if (chance) {
            wait = std::max(wait, std::chrono::ceil<std::chrono::milliseconds>(*chance - Clock::now()));
        }
    }
    if (!is_any_usable) return no_mirror_left();
    // Others do this one's work meanwhile; the main thread adds connections when it may.
    if (others_receive(asker, false)) return {};
    return {true, wait, wait >= std::chrono::seconds(1)};
}

AfterFailure CTransferMainThread::no_mirror_left() {
    Result why;
    bool may_restart = false;
    {
        const std::lock_guard guard(lock_);
        why = mirrors_.why_none();
        may_restart = (!job_.sources || job_.sources->size < 0) && mirrors_.is_any_different();
    }
    if (!may_restart) return fail_for_good(why);
    ask_for_restart(why, false);
    return {};
}

// Called with the job lock held.
bool CTransferMainThread::may_serve(int mirror, const CJobSeg& segment) {
    if (mirrors_.at(mirror).no_ranges && segment.start > 0) return false;
    if (!is_suspect(segment)) return true;
    const auto& suspects = suspects_.at(pieces_->piece_at(segment.start)).mirrors;
    const auto is_among = [&](int index) { return std::ranges::count(suspects, index) > 0; };
    if (!is_among(mirror)) return true;
    for (int other = 0; other < mirrors_.count(); ++other) {
        if (mirrors_.is_usable(other) && !is_among(other) && !mirrors_.at(other).no_ranges) return false;
    }
    return true;
}

// What mirrors gave that were left for wrong bytes, as far as no hash has confirmed it, once their last
// connection is gone.
void CTransferMainThread::take_back_from_left() {
    const std::lock_guard guard(lock_);
    std::erase_if(to_take_back_, [this](int index) {
        if (mirrors_.at(index).connections > 0) return false;
        for (const auto& range : origins_.from(index)) {
            for (std::int64_t at = range.begin; at < range.end;) {
                const std::size_t piece = pieces_ ? pieces_->piece_at(at) : 0;
                const std::int64_t end = pieces_ ? std::min(pieces_->end_of(piece), range.end) : range.end;
                if (!pieces_ || piece_states_[piece] == PieceState::missing) {
                    give_back(at, end);
                    origins_.forget(at, end);
                }
                at = end;
            }
        }
        return true;
    });
}

// The whole file is wrong, and no piece hash says where: one mirror alone is tried, the one of which most is
// there, so that it can be believed or left. False when there is none to try.
bool CTransferMainThread::try_other_mirror() {
    std::string note;
    bool anew = false;
    {
        const std::lock_guard guard(lock_);
        if (!mirrors_.are_several() || pieces_ || job_.file_size <= 0) return false;
        const std::vector<int> givers = origins_.of(0, job_.file_size);
        if (givers.size() == 1 && givers.front() != Origins::unknown) {
            note = leave_mirror(givers.front(), Code::hash_differs, nullptr) + " ";
            const bool is_size_known = job_.sources && job_.sources->size >= 0;
            anew = mirrors_.pardon_different() && !is_size_known;
        }
        // Ranges mean nothing to an answer that is unpacked on its way.
        anew = anew || encoded_;
        mirrors_.use_only(MirrorSet::none);
        const int best = mirror_with_most();
        if (best == MirrorSet::none) return false;
        mirrors_.use_only(best);
        note += "The file has a wrong hash and is fetched from " +
                to_utf8(without_credentials(mirrors_.at(best).address)) + " alone.";
        if (!anew) keep_only_from(best);
    }
    log_.line(Direction::error, note);
    {
        const std::lock_guard guard(mutex_);
        notice_ = note;
        last_failure_ = Code::hash_differs;
    }
    return !anew || begin_anew().ok();
}

// The usable mirror of whose bytes most are there, else the first; called with the job lock held.
int CTransferMainThread::mirror_with_most() const {
    int best = MirrorSet::none;
    std::int64_t most = -1;
    for (int mirror = 0; mirror < mirrors_.count(); ++mirror) {
        if (!mirrors_.is_usable(mirror)) continue;
        std::int64_t bytes = 0;
        for (const auto& range : origins_.from(mirror)) bytes += range.end - range.begin;
        if (bytes <= most) continue;
        most = bytes;
        best = mirror;
    }
    return best;
}

// Called with the job lock held.
void CTransferMainThread::keep_only_from(int mirror) {
    std::vector<Origins::Range> kept = origins_.from(mirror);
    if (mirrors_.at(mirror).no_ranges) kept.clear();
    std::int64_t at = 0;
    for (const auto& range : kept) {
        give_back(at, range.begin);
        at = range.end;
    }
    give_back(at, job_.file_size);
    origins_.clear();
    for (const auto& range : kept) origins_.add(range.begin, range.end, mirror);
}

}  // namespace vantlow
