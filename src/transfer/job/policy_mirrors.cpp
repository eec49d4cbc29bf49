// A job's decisions about failures of several mirrors: which mirror is asked next, which one is left.
#include <algorithm>

#include "base/string_table.h"
#include "base/text.h"
#include "store/address.h"
#include "transfer/job/policy.h"

namespace vantlow {
namespace {

// A mirror that never answered while others did is believed to be gone after so many attempts.
constexpr int most_silent_attempts = 3;
// An answer that ends at the same byte this often in a row will end there for ever.
constexpr int most_dead_ends = 10;
constexpr int most_ignored_ranges = 2;
// Bytes that it gave itself: they may have been replaced while they were compared, but hardly this often.
constexpr int most_contradictions = 3;
// Comparisons of what is there, by whichever mirror; one of them may be the one that is wrong.
constexpr int most_differing_checks = 6;
// Where nothing can be done now although somebody might do it.
constexpr std::chrono::milliseconds short_pause{200};

}  // namespace

AfterFailure JobPolicy::failed_mirror(Worker& worker, const FailedAttempt& attempt, const PolicyRules& rules,
                                      Clock::time_point now) {
    if (worker.check && worker.check->by_another) return mirror_check_failed(worker, attempt);
    const int mirror = worker.mirror;
    if (mirror == MirrorSet::none) return next_mirror(worker, now);
    if (worker.check && attempt.accepted && attempt.result.code == Code::resource_changed) {
        // Which of those is wrong who gave the bytes around a joint nobody can tell behind the last byte.
        if (++differing_checks_ < most_differing_checks) return next_mirror(worker, now);
        ask_for_restart(attempt.result, false);
        return {};
    }
    if (!attempt.accepted && others_receive(worker, mirror)) {
        mirrors_.back_off(mirror, receiving_from(mirror), attempt.server_asks, now);
        return next_mirror(worker, now);
    }
    const std::string text = note_failure(worker, attempt, rules, now);
    if (!text.empty()) note(Direction::error, text);
    last_failure_ = attempt.result;
    if (!others_receive(worker)) trouble_ = attempt.result;
    notice_ = text.empty() ? attempt.result.message() : text;
    return next_mirror(worker, now);
}

// A block that another mirror gave was asked for. Where it differs the mirror that is named first is
// believed; where it did not come the file is kept as it is.
AfterFailure JobPolicy::mirror_check_failed(const Worker& worker, const FailedAttempt& attempt) {
    const std::vector<int> givers = origins_.of(worker.check->begin, worker.check->end);
    std::erase_if(checks_, [](const BlockCheck& check) { return check.by_another; });
    effects_.news = true;
    if (!attempt.accepted || attempt.result.code != Code::resource_changed) {
        note(Direction::note, "A mirror did not give once more what another one gave (" +
                                  attempt.result.message() +
                                  "): whether both have the same file stays unsure.");
        return {};
    }
    if (givers.empty() || givers.front() == Origins::unknown) {
        ask_for_restart(attempt.result, false);
        return {};
    }
    sampled_ = false;
    notice_ = leave_mirror(std::max(worker.mirror, givers.back()), attempt.result, &worker);
    note(Direction::error, notice_);
    return {};
}

// A line for the log where the mirror is left.
std::string JobPolicy::note_failure(Worker& asker, const FailedAttempt& attempt, const PolicyRules& rules,
                                    Clock::time_point now) {
    const Result& result = attempt.result;
    if (result.code == Code::resource_changed) {
        return attempt.accepted ? note_joint(asker, attempt, now) : note_change(asker, result, now);
    }
    const int index = asker.mirror;
    Mirror& mirror = mirrors_.at(index);
    if (result.code == Code::cannot_resume && !mirrors_.gives_parts(index)) return {};
    ++mirror.failures;
    ++mirror.errors;
    mirror.fruitless = attempt.progressed ? 0 : mirror.fruitless + 1;
    if (result.kind() == Kind::restart) return leave_mirror(index, result, &asker);
    if (attempt.told_size >= 0 && version_known_ && version_.size >= 0 && version_.size != attempt.told_size)
        return leave_mirror(index, Code::size_differs, &asker);
    if (result.code == Code::range_ignored) {
        if (++mirror.ignored_ranges <= most_ignored_ranges) return {};
        if (attempt.asked == 0) return leave_mirror(index, result, &asker);
        mirror.no_ranges = true;  // the whole it may give
        return {};
    }
    if (result.kind() != Kind::retry_later) {
        const bool is_new_way = mirrors_.forget_way(index);
        const bool is_about_login = result.about_credentials || result.code == Code::credentials_refused;
        return is_new_way && !is_about_login ? std::string() : leave_mirror(index, result, &asker);
    }
    const RetryDecision decision = decide_retry(retry_case(mirror.errors, mirror.fruitless, attempt, rules));
    bool others_answered = false;
    for (int other = 0; other < mirrors_.count(); ++other) {
        others_answered = others_answered || (other != index && mirrors_.at(other).answered);
    }
    const bool is_silent =
        !mirror.recalled && !mirror.answered && others_answered && mirror.fruitless >= most_silent_attempts;
    const bool is_dead_end = attempt.accepted && mirror.fruitless >= most_dead_ends;
    mirror.silent = is_silent && !decision.give_up;
    if (mirror.fruitless >= most_dead_ends) mirrors_.recall_silent();
    if (decision.give_up || is_silent || is_dead_end) return leave_mirror(index, result, &asker);
    mirror.not_before = now + decision.wait;
    return {};
}

// The mirror names another version than before: one of several machines, or a new file.
std::string JobPolicy::note_change(Worker& asker, const Result& why, Clock::time_point now) {
    Mirror& mirror = mirrors_.at(asker.mirror);
    mirror.effective.clear();
    mirror.not_before = now + short_pause;
    if (++mirror.contradictions <= most_contradictions) return {};
    if (mirrors_.any_gives_parts(asker.mirror)) mirror.only_alone = true;
    return mirror.only_alone ? std::string() : leave_mirror(asker.mirror, why, &asker);
}

// The bytes where two answers meet are not the same. Which mirror is wrong no one can tell: the one that the
// metafile names first is believed. Gives a line for the log.
std::string JobPolicy::note_joint(Worker& asker, const FailedAttempt& attempt, Clock::time_point now) {
    constexpr std::int64_t reach = 4096;
    const bool is_behind = asker.position >= asker.limit;
    const std::int64_t begin = is_behind ? asker.limit.load() : attempt.asked;
    std::int64_t end = is_behind ? asker.limit + reach : asker.position.load();
    for (const auto& segment : job_.segments) {
        if (is_behind && segment->start >= begin && segment->start < segment->end)
            end = std::min(end, segment->start);
    }
    // The bytes that were compared with are fetched again already, or about to be: this answer is compared
    // with those.
    const auto look_again = [&] {
        mirrors_.at(asker.mirror).not_before = now + short_pause;
        return std::string();
    };
    if (begin >= end || segments_.is_missing(begin, end)) return look_again();
    int blamed = asker.mirror;
    const std::vector<int> givers = origins_.of(begin, end);
    const bool is_its_own = givers.size() == 1 && givers.front() == asker.mirror;
    if (is_its_own && ++mirrors_.at(asker.mirror).contradictions <= most_contradictions) return look_again();
    for (const int other : givers) {
        if (other == Origins::unknown || other == asker.mirror) continue;
        if (std::ranges::count(to_take_back_, other) > 0) return look_again();
        blamed = std::max(blamed, other);
    }
    return leave_mirror(blamed, attempt.result, &asker);
}

// Gives a line for the log. Where the mirror gave wrong bytes its connections end,
// but for the one that asks, and what nothing has confirmed is fetched again.
std::string JobPolicy::leave_mirror(int index, const Result& why, const Worker* asker) {
    mirrors_.leave(index, why);
    if (why.kind() == Kind::restart || why.code == Code::hash_differs) {
        for (Worker* worker : segments_.workers()) {
            if (worker->has_work() && worker != asker && worker->mirror == index) retire(*worker);
        }
        to_take_back_.push_back(index);
    }
    return "The mirror " + to_utf8(without_credentials(mirrors_.at(index).address)) +
           " is no longer used: " + why.message();
}

// The connection goes on with whichever mirror is best now, which may be the same.
AfterFailure JobPolicy::next_mirror(Worker& asker, Clock::time_point now) {
    if (asker.mirror != MirrorSet::none) --mirrors_.at(asker.mirror).connections;
    asker.mirror = MirrorSet::none;
    rewind(asker);
    if (choose_mirror(asker, now)) return {true, {}, false};
    auto chance = mirrors_.next_chance();
    if (!chance && !may_hope_for_change() && mirrors_.recall_silent()) chance = mirrors_.next_chance();
    if (!chance) {
        no_mirror_left();
        return {};
    }
    // Others do this one's work meanwhile; the main thread adds connections when it may.
    if (others_receive(asker) || needs_whole()) return {};
    const auto wait = std::max(short_pause, std::chrono::ceil<std::chrono::milliseconds>(*chance - now));
    asker.next_try = now + wait;
    return {true, wait, wait >= std::chrono::seconds(1)};
}

bool JobPolicy::choose_mirror(Worker& worker, Clock::time_point now) {
    if (worker.mirror != MirrorSet::none) return true;
    const auto may = [&](int mirror) {
        return worker.segment != nullptr ? may_serve(mirror, *worker.segment)
                                         : !worker.check || mirrors_.gives_parts(mirror);
    };
    worker.mirror = mirrors_.choose(job_.thread_limit(), may, now);
    if (worker.mirror == MirrorSet::none) return false;
    ++mirrors_.at(worker.mirror).connections;
    return true;
}

// Whether those that were left may give a file together when everything begins anew.
bool JobPolicy::may_hope_for_change() const {
    // Of an earlier run's bytes nobody knows which mirror gave them: they may be what the others differ from.
    // Against a size that the metafile told a new start is of no help.
    const bool is_size_open = !job_.sources || job_.sources->size < 0 || has_earlier_;
    return is_size_open ? mirrors_.is_any_different() : mirrors_.is_any_changed();
}

void JobPolicy::no_mirror_left() {
    const Result why = mirrors_.why_none();
    may_hope_for_change() ? ask_for_restart(why, false) : end_for_good(why);
}

// Nobody is left who gives parts, or those who did have not answered for long; and some of the file is there.
bool JobPolicy::needs_whole() const {
    if (!mirrors_.are_several() || !version_known_ || only_one_ || !may_begin_anew_) return false;
    bool any_gives_whole = false;
    for (int index = 0; index < mirrors_.count(); ++index) {
        if (!mirrors_.is_usable(index)) continue;
        const Mirror& mirror = mirrors_.at(index);
        const bool gives_parts = mirrors_.gives_parts(index);
        any_gives_whole = any_gives_whole || !gives_parts;
        if (gives_parts && mirror.fruitless < most_dead_ends) return false;
    }
    return any_gives_whole && std::ranges::none_of(segments_.workers(), [](const Worker* worker) {
               return worker->brings_bytes();
           });
}

// Whether the mirror may be asked for the segment.
bool JobPolicy::may_serve(int mirror, const CJobSeg& segment) {
    const bool is_alone = !version_known_ || only_one_;
    if (!is_alone && mirrors_.at(mirror).only_alone) return false;
    return !(mirrors_.at(mirror).no_ranges && segment.start > 0) && !is_suspect(mirror, segment);
}

// Whether the mirror is one of those that gave a wrong piece there, and others are left to be asked.
bool JobPolicy::is_suspect(int mirror, const CJobSeg& segment) {
    const auto* const suspicion = pieces_.is_empty() ? nullptr : pieces_.find_suspicion(segment.start);
    if (suspicion == nullptr) return false;
    const auto& suspects = suspicion->mirrors;
    const auto is_among = [&](int index) { return std::ranges::count(suspects, index) > 0; };
    if (!is_among(mirror)) return false;
    for (int other = 0; other < mirrors_.count(); ++other) {
        if (mirrors_.is_usable(other) && !is_among(other) && !mirrors_.at(other).no_ranges) return true;
    }
    return false;
}

// Takes back the bytes of mirrors that were left for wrong ones, as far as no hash has confirmed them, once
// the last connection to the mirror is gone.
void JobPolicy::take_back_from_left() {
    std::erase_if(to_take_back_, [this](int index) {
        if (mirrors_.at(index).connections > 0) return false;
        for (const auto& range : origins_.from(index)) {
            for (std::int64_t at = range.begin; at < range.end;) {
                const std::size_t piece = pieces_.is_empty() ? 0 : pieces_.piece_at(at);
                const std::int64_t end =
                    pieces_.is_empty() ? range.end : std::min(pieces_.end_of(piece), range.end);
                if (pieces_.is_empty() || pieces_.at(piece) == PieceBook::State::missing) {
                    segments_.take_back(at, end);
                    origins_.forget(at, end);
                    answers_.forget(at, end);
                }
                at = end;
            }
        }
        return true;
    });
}

// The usable mirror of whose bytes most are there, else the first.
int JobPolicy::mirror_with_most() const {
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

void JobPolicy::keep_only_from(int mirror) {
    std::vector<Origins::Range> kept = origins_.from(mirror);
    if (mirrors_.at(mirror).no_ranges) kept.clear();
    std::int64_t at = 0;
    for (const auto& range : kept) {
        segments_.take_back(at, range.begin);
        at = range.end;
    }
    segments_.take_back(at, job_.file_size);
    origins_.clear();
    for (const auto& range : kept) origins_.add(range.begin, range.end, mirror);
}

// A piece is wrong: it is fetched again, and whoever gave all of it is left. Of several no one can tell who
// was wrong: the next copy comes from one mirror alone. Gives a line for the log.
std::string JobPolicy::refuse_piece(std::size_t piece) {
    // A metafile whose hashes are wrong must not have a piece fetched for ever.
    const std::size_t most_copies = 2 * static_cast<std::size_t>(mirrors_.count()) + 2;
    const std::int64_t begin = pieces_.begin_of(piece);
    const std::int64_t end = pieces_.end_of(piece);
    const std::vector<int> givers = origins_.of(begin, end);
    origins_.forget(begin, end);
    pieces_.set(piece, PieceBook::State::missing);
    segments_.take_back(begin, end);
    std::string note = "Piece " + std::to_string(piece) + " (" + std::to_string(begin) + " to " +
                       std::to_string(end) + ") has a wrong hash and is fetched again.";
    PieceBook::Suspicion& suspicion = pieces_.suspicion_of(piece);
    const bool is_known = givers.size() == 1 && givers.front() != Origins::unknown;
    for (const int giver : givers) {
        if (giver == Origins::unknown) continue;
        ++mirrors_.at(giver).failures;
        const bool is_second = std::ranges::count(suspicion.mirrors, giver) > 0;
        suspicion.mirrors.push_back(giver);
        bool is_last = true;
        for (int other = 0; other < mirrors_.count(); ++other) {
            is_last = is_last && (other == giver || !mirrors_.is_usable(other));
        }
        // The last one is believed to be bad only when it is so twice.
        if (is_known && !mirrors_.at(giver).left && (!is_last || is_second))
            note += " " + leave_mirror(giver, Code::hash_differs, nullptr);
    }
    if (++suspicion.copies > most_copies) {
        for (int mirror = 0; mirror < mirrors_.count(); ++mirror) mirrors_.leave(mirror, Code::hash_differs);
    }
    return note;
}

void JobPolicy::piece_checked(std::size_t piece, const Result& result) {
    if (result.code == Code::local_file) {
        end_for_good(result);
        return;
    }
    if (pieces_.is_empty() || pieces_.at(piece) != PieceBook::State::waits) return;
    effects_.news = true;
    if (result.ok()) {
        pieces_.set(piece, PieceBook::State::good);
        job_.bit_map[piece / 8] |= static_cast<std::uint8_t>(0x80U >> (piece % 8));
        pieces_.clear_suspicion(piece);
        return;
    }
    notice_ = refuse_piece(piece);
    note(Direction::error, notice_);
    if (!mirrors_.is_any_usable()) no_mirror_left();
}

}  // namespace vantlow
