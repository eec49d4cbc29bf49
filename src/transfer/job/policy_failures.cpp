// A job's decisions about a connection that failed.
#include <algorithm>

#include "base/string_table.h"
#include "base/text.h"
#include "store/address.h"
#include "transfer/job/policy.h"

namespace vantlow {
namespace {

// A server that answered before and now refuses (a link that expired, an address that is blocked for a while)
// is asked this often more.
constexpr int most_late_refusals = 5;
// An answer that ends at the same byte this often in a row will end there for ever.
constexpr int most_dead_ends = 10;
// Another version is believed to be the file's new one when it is seen so often in a row, and the first one
// no more: several machines behind one name may not have the same version all at once.
constexpr int most_contradictions = 3;
// Another connection that tries within this time does so for this one too.
constexpr std::chrono::seconds soon{1};
// A server that cannot say now whether its file is the same one still is asked again so often.
constexpr int most_further_questions = 3;

bool is_about_credentials(const Result& result) {
    return result.code == Code::credentials_refused || result.about_credentials;
}

// May be otherwise in a while.
bool is_temporary(const Result& result) {
    return result.kind() == Kind::retry_later && result.code != Code::range_ignored;
}

// Nobody gave a byte of an empty file: the mirrors that call it so.
std::vector<int> givers_of_nothing(MirrorSet& mirrors) {
    std::vector<int> givers;
    for (int mirror = 0; mirror < mirrors.count(); ++mirror) {
        const Mirror& one = mirrors.at(mirror);
        if (mirrors.is_usable(mirror) && one.version_known && one.version.size == 0) givers.push_back(mirror);
    }
    return givers;
}

}  // namespace

AfterFailure JobPolicy::failed(Worker& worker, const FailedAttempt& attempt, const PolicyRules& rules,
                               Clock::time_point now) {
    const Result& result = attempt.result;
    worker.receiving = false;
    worker.open_at = -1;
    if (is_end_of_asking(worker, attempt)) return {};
    if (result.code == Code::joint_unsure) return {true, {}, false};
    if (attempt.progressed) {
        late_refusals_ = 0;
        if (worker.mirror != MirrorSet::none) mirrors_.at(worker.mirror).way_asked_again = false;
    }
    if (mirrors_.are_several()) return failed_mirror(worker, attempt, rules, now);
    if (worker.check && worker.check->of_change) return change_check_failed(worker, attempt);
    const bool is_other_version = result.kind() == Kind::restart;
    if (worker.check && worker.check->only_version && !is_other_version) return version_check_failed(attempt);
    if (worker.check && !worker.check->required && (!is_other_version || worker.check->last))
        return optional_check_failed(worker, attempt);
    if (others_receive(worker) && (!attempt.accepted || is_other_version || worker.check))
        return refused_beside_others(worker, attempt, now);
    // An answer that was accepted and brought nothing counts, whoever else tries: two such connections would
    // take turns without end.
    const bool is_barren = attempt.accepted && !attempt.progressed;
    if (!others_receive(worker) && !is_barren && another_tries(worker, now)) return {};
    return failed_alone(worker, attempt, rules, now);
}

// Whether the failure, or what happens to the job, ends the connection without a further thought.
bool JobPolicy::is_end_of_asking(const Worker& worker, const FailedAttempt& attempt) {
    const Result& result = attempt.result;
    if (result.kind() == Kind::stopped || worker.retired) return true;
    if (result.code == Code::local_file || result.code == Code::cancelled) {
        end_for_good(result);
        return true;
    }
    // The connections are told one after the other: one that receives may have ended already, and what
    // another one is refused now looks as if none received any more.
    if (stopping_) return true;
    if (attempt.form_sent) {
        // Sent again it might order, book or delete something twice: that is for a person to decide.
        end_for_good({result.kind() == Kind::retry_later ? Code::server_error : result.code,
                      result.message() +
                          " The form was sent, and is sent again only when the download is started anew."});
    }
    return attempt.form_sent;
}

// No other connection's answer counts any more: this failure is the job's own.
AfterFailure JobPolicy::failed_alone(Worker& worker, const FailedAttempt& attempt, const PolicyRules& rules,
                                     Clock::time_point now) {
    const Result& result = attempt.result;
    last_failure_ = trouble_ = result;
    if (result.kind() == Kind::restart) return changed_alone(worker, attempt, result, rules, now);
    const bool told_other =
        attempt.told_size >= 0 && version_known_ && version_.size >= 0 && version_.size != attempt.told_size;
    if (told_other) return changed_alone(worker, attempt, Code::size_differs, rules, now);
    // The same credentials again would lock somebody's account, and bring nothing.
    if (is_about_credentials(result)) {
        end_for_good(result);
        return {};
    }
    if (result.code == Code::range_ignored && ++mirrors_.at(worker.mirror).ignored_ranges > 2)
        return restart_without_ranges(attempt, rules);
    if (result.kind() != Kind::retry_later) return refused_alone(worker, attempt, rules, now);
    if (attempt.accepted && attempt.fruitless >= most_dead_ends) {
        end_for_good(
            only_one_ && restarts_ > 0
                ? Result(Code::keeps_changing)
                : Result(Code::server_error, "The server keeps ending the file early: " + result.message()));
        return {};
    }
    return retry(worker, attempt, rules, now);
}

// The others go on with its part; whatever this answer was, it is no reason to do anything about theirs.
AfterFailure JobPolicy::refused_beside_others(Worker& worker, const FailedAttempt& attempt,
                                              Clock::time_point now) {
    if (worker.segment != nullptr) segments_.hand_back(*worker.segment);
    const int active = receiving_from(worker.mirror);
    if (is_about_credentials(attempt.result)) {
        mirrors_.refuse_all_further(worker.mirror);
    } else if (is_temporary(attempt.result)) {
        mirrors_.back_off(worker.mirror, active, attempt.server_asks, now);
    } else {
        // Where the time of the last change is asked for behind the last byte that tells more.
        const bool is_change = attempt.result.kind() == Kind::restart && !attempt.accepted;
        change_.is_seen = change_.is_seen || (is_change && !hash_decides_ && !tells_time_);
        mirrors_.refuse_further(worker.mirror, active, now);
        // Where a redirect led may serve once: the way is asked for again.
        mirrors_.at(worker.mirror).effective.clear();
        note(Direction::note, "An additional connection was refused (" + attempt.result.message() +
                                  "): the connections that receive take over its part.");
    }
    return {};
}

// The time of the last change could not be asked for.
AfterFailure JobPolicy::version_check_failed(const FailedAttempt& attempt) {
    if (is_temporary(attempt.result) && attempt.fruitless <= most_further_questions)
        return {true, soon, true};
    if (contradictions_ > 0) {
        // It has said that the file is another one, and nothing else since.
        ask_for_restart(Code::resource_changed, false);
        return {};
    }
    // Nobody tells: the file has gone since, or the server.
    std::erase_if(checks_, [](const BlockCheck& check) { return check.only_version; });
    return {};
}

// A block that only confirms what is there could not be compared.
AfterFailure JobPolicy::optional_check_failed(const Worker& worker, const FailedAttempt& attempt) {
    const bool is_other_version = attempt.result.kind() == Kind::restart;
    // Of several machines another one may give it.
    const bool may_come = is_temporary(attempt.result) || (is_other_version && !attempt.accepted);
    if (worker.check->last && may_come && attempt.fruitless <= most_further_questions) {
        const auto wait = is_other_version ? std::chrono::seconds(0) : soon;
        return {true, wait, wait > std::chrono::seconds(0)};
    }
    drop_optional_checks(worker);
    return {};
}

// A block could not be compared with the version that the file was seen to become.
AfterFailure JobPolicy::change_check_failed(const Worker& worker, const FailedAttempt& attempt) {
    if (is_temporary(attempt.result) && attempt.fruitless <= most_further_questions)
        return {true, soon, true};
    const bool is_behind_end = attempt.told_size >= 0 && attempt.told_size < worker.check->end;
    if (attempt.result.code == Code::size_differs || is_behind_end) {
        // The new version ends in front of it.
        change_.differs_from_new = true;
        std::erase_if(checks_, [&](const BlockCheck& check) { return check.worker == worker.id; });
        effects_.news = true;
        return {};
    }
    drop_change_checks();
    return {};
}

// While none receives one connection asks. True when another one does so for this one; the others end.
bool JobPolicy::another_tries(Worker& worker, Clock::time_point now) {
    for (Worker* other : segments_.workers()) {
        if (other == &worker || !other->has_work() || other->retired) continue;
        if (other->next_try <= now + soon) return true;
        retire(*other);
    }
    return false;
}

AfterFailure JobPolicy::changed_alone(Worker& worker, const FailedAttempt& attempt, const Result& why,
                                      const PolicyRules& rules, Clock::time_point now) {
    // A new start would not help: the size was known before, or that of the first answer was none.
    const bool is_size_known = job_.sources && (job_.sources->size >= 0 || !version_known_);
    if (is_size_known && why.code == Code::size_differs) {
        end_for_good(why);
        return {};
    }
    if (++contradictions_ >= most_contradictions) {
        ask_for_restart(why, false);
        return {};
    }
    mirrors_.at(worker.mirror).effective.clear();
    rewind(worker);
    const auto wait = decide_retry(retry_case(0, contradictions_, attempt, rules)).wait;
    worker.next_try = now + wait;
    return {true, wait, wait >= std::chrono::seconds(1)};
}

AfterFailure JobPolicy::refused_alone(Worker& worker, const FailedAttempt& attempt, const PolicyRules& rules,
                                      Clock::time_point now) {
    if (mirrors_.forget_way(worker.mirror)) {
        rewind(worker);
        return {true, {}, false};
    }
    // One that answers and then, before the first byte, says that it cannot be done, says it of every
    // attempt.
    const bool is_of_every_attempt =
        attempt.result.code == Code::cannot_resume || (attempt.accepted && !attempt.progressed);
    if (accepted_once_ && !is_of_every_attempt && ++late_refusals_ <= most_late_refusals)
        return retry(worker, attempt, rules, now);
    end_for_good(attempt.result);
    return {};
}

RetryCase JobPolicy::retry_case(int errors, int fruitless, const FailedAttempt& attempt,
                                const PolicyRules& rules) const {
    RetryCase retry;
    retry.errors = errors;
    retry.fruitless = fruitless;
    retry.server_asks = attempt.server_asks;
    retry.limit = job_.own_retry_limit().value_or(static_cast<std::int32_t>(rules.retry_limit));
    retry.delay = job_.retry_delay;
    retry.longest_pause = std::chrono::seconds(job_.longest_pause);
    return retry;
}

// A server that cannot resume, or whose answer is decoded on the way, is asked for the whole again.
void JobPolicy::rewind(Worker& worker) const {
    if (!is_rewound_after_failure() || worker.segment == nullptr) return;
    worker.segment->start = 0;
    worker.position = 0;
}

AfterFailure JobPolicy::retry(Worker& worker, const FailedAttempt& attempt, const PolicyRules& rules,
                              Clock::time_point now) {
    const bool alone = !others_receive(worker);
    if (attempt.progressed) {
        fruitless_ = 0;
    } else if (alone) {
        ++fruitless_;
    }
    const auto chair = static_cast<std::size_t>(std::max(worker.chair, 0));
    const int fruitless = alone ? std::max(attempt.fruitless, fruitless_) : attempt.fruitless;
    const RetryCase facts = retry_case(++errors_[chair], fruitless, attempt, rules);
    const RetryDecision decision = decide_retry(facts);
    notice_ = attempt.result.message();
    exhausted_ = facts.limit >= 0 && fruitless_ > facts.limit;
    const bool is_last = decision.give_up || exhausted_;
    if (is_last && alone && attempt.result.code == Code::range_ignored && attempt.asked > 0) {
        // No part is given, but the whole may be.
        exhausted_ = false;
        return restart_without_ranges(attempt, rules);
    }
    if (is_last) {
        halted_[chair] = true;
        note(Direction::error, message_text(Message::maximum_error));
        return {};
    }
    rewind(worker);
    worker.next_try = now + decision.wait;
    if (decision.is_cut) {
        const std::string asked = std::to_string(attempt.server_asks->count());
        last_failure_ = {attempt.result.code, attempt.result.message() + " The server asks to wait for " +
                                                  asked + " seconds, which is longer than is waited here."};
        trouble_ = last_failure_;
        notice_ = last_failure_.message();
        note(Direction::note, notice_);
    }
    return {true, decision.wait, decision.is_announced()};
}

// Part after part was refused: from now on the whole is asked for, by one connection.
AfterFailure JobPolicy::restart_without_ranges(const FailedAttempt& attempt, const PolicyRules& rules) {
    if (attempt.asked == 0) {
        end_for_good({Code::server_error, attempt.result.message()});
        return {};
    }
    note(Direction::note, message_text(Message::cannot_resume));
    if (!rules.may_begin_anew) {
        end_for_good(Code::cannot_resume);
        return {};
    }
    ask_for_restart(attempt.result, true);
    return {};
}

void JobPolicy::ask_for_restart(const Result& why, bool whole) {
    restart_ = why;
    restart_whole_ = restart_whole_ || whole;
    effects_.news = true;
}

// Bytes of one version contradict those of another. The one that was there first stays.
bool JobPolicy::contradicted(Worker& worker, std::int64_t begin, std::int64_t end) {
    if (segments_.is_missing(begin, end)) return false;  // it was thrown away meanwhile
    if (worker.check && worker.check->of_change) {
        const VersionMatch match = worker.check->match;
        change_.differs_from_new = change_.differs_from_new || match == VersionMatch::changed;
        change_.differs_from_old = change_.differs_from_old || match == VersionMatch::same;
        return false;
    }
    if (mirrors_.are_several() || !compares_answers()) return true;
    if (blind_) {
        note(Direction::error, "The bytes around " + std::to_string(begin) +
                                   " are others than those received before: the server does not begin where "
                                   "it is asked to, or the file has changed.");
        answers_.part_unsure();
        if (const Worker* const first = right_from_start()) {
            go_on_alone(*first);
            return first != &worker;
        }
        ask_for_restart(Code::range_ignored, true);
        return true;
    }
    if (worker.check && worker.check->last) {
        // An answer that does not tell its version says nothing against the bytes of those that do.
        const bool is_doubtful = answers_.first_of(worker.answer) != AnswerBook::earlier;
        if (!is_doubtful || !has_strong_validator(version_)) last_checks_.differed = true;
        return false;
    }
    std::vector<int> there = answers_.versions_in(begin, end);
    if (there == std::vector{answers_.first_of(worker.answer)}) {
        // The same by its validators, or by bytes elsewhere, and yet another one.
        distrust_validators();
        there = answers_.versions_in(begin, end);
    }
    const int mine = answers_.first_of(worker.answer);
    note(Direction::error,
         "The bytes around " + std::to_string(begin) + " differ from those received before.");
    // Beside bytes of its own version there are others: those are the ones that differ.
    if (there.size() > 1 && there.front() == mine) there.erase(there.begin());
    if (there.empty() || there.front() <= mine) {
        // Of a connection that was compared before it wrote anything nothing is there.
        if (there.empty() || there.front() < mine) discard_version(mine, worker);
        return true;
    }
    for (const int version : there) discard_version(version, worker);
    return false;
}

// Two answers of one version, as far as was known, differ. From here on their bytes decide which ones belong
// together, in a later run, too.
void JobPolicy::distrust_validators() {
    answers_.part_all();
    weaken(version_);
    job_.validators.etag = version_.etag;
    job_.validators.strong_date = version_.strong_date;
}

// The connection whose answer began where the file does, with nothing but its own bytes in front of it: that
// answer is right, whatever the others are.
const Worker* JobPolicy::right_from_start() const {
    if (has_earlier_) return nullptr;
    for (const Worker* worker : segments_.workers()) {
        const bool is_first = answers_.first_of(worker->answer) == AnswerBook::earlier;
        if (is_first && receives_from_start(*worker)) return worker;
    }
    return nullptr;
}

// The bytes of all others are thrown away.
void JobPolicy::go_on_alone(const Worker& first) {
    for (int answer = AnswerBook::earlier + 1; answer <= answers_.count(); ++answer) {
        if (answers_.first_of(answer) == answer) discard_version(answer, first);
    }
    mirrors_.refuse_all_further(first.mirror);
    only_one_ = true;
    size_reported_ = false;
}

void JobPolicy::discard_version(int version, const Worker& asker) {
    for (const auto& range : answers_.ranges_of(version)) {
        for (const auto& there : segments_.there()) {
            const std::int64_t begin = std::max(range.begin, there.begin);
            const std::int64_t end = std::min(range.end, there.end);
            if (begin >= end) continue;
            segments_.take_back(begin, end);
            answers_.forget(begin, end);
        }
    }
    for (Worker* worker : segments_.workers()) {
        const bool is_of_it = worker->receiving && answers_.first_of(worker->answer) == version;
        if (is_of_it && worker != &asker) retire(*worker);
    }
    effects_.news = true;
}

bool JobPolicy::hash_was_wrong(bool& anew) {
    anew = false;
    if (mixes_) {
        // Parts of two versions did not fit: one answer brings the whole.
        ask_for_restart(Code::hash_differs, true);
        mixes_ = false;
        anew = true;
        return true;
    }
    if (!mirrors_.are_several() || !pieces_.is_empty() || job_.file_size < 0) return false;
    const bool is_empty = job_.file_size == 0;
    const std::vector<int> givers = is_empty ? givers_of_nothing(mirrors_) : origins_.of(0, job_.file_size);
    if (is_empty && givers.empty()) return false;
    std::string text;
    if (is_empty || (givers.size() == 1 && givers.front() != Origins::unknown)) {
        for (const int giver : givers) text += leave_mirror(giver, Code::hash_differs, nullptr) + " ";
        const bool is_size_known = job_.sources && job_.sources->size >= 0;
        anew = (mirrors_.pardon_different() && !is_size_known) || is_empty;
    }
    // Ranges mean nothing to an answer that is unpacked on its way, nor to one whose end was not told.
    anew = anew || encoded_ || is_end_found_;
    mirrors_.use_only(MirrorSet::none);
    if (!mirrors_.is_any_usable()) mirrors_.recall_silent();
    const int best = mirror_with_most();
    if (best == MirrorSet::none) return false;
    mirrors_.use_only(best);
    text += "The file has a wrong hash and is fetched from " +
            to_utf8(without_credentials(mirrors_.at(best).address)) + " alone.";
    if (!anew) keep_only_from(best);
    note(Direction::error, text);
    notice_ = text;
    last_failure_ = trouble_ = Code::hash_differs;
    return true;
}

}  // namespace vantlow
