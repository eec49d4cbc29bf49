// A job's decisions about a server's answer: versions, resuming, the size.
#include <algorithm>

#include "base/string_table.h"
#include "transfer/job/policy.h"
#include "transfer/job/source.h"

namespace vantlow {
namespace {

// A server that has answered ranges in this run and now ignores one is asked again this often before the job
// believes it.
constexpr int most_ignored_ranges = 2;
// How much in front of a new answer is compared with what is there.
constexpr std::int64_t joint_before = 16 * 1024;
constexpr std::int64_t joint_behind = 4 * 1024;
// How far the nearest bytes that vary are looked for, where those are the same one again and again.
constexpr std::int64_t most_of_joint = 256 * 1024;
// A resource that changes more often than this while it is fetched is taken from one single answer.
constexpr int most_restarts = 3;

// Whether a file of that size can be the one of these hashes, where its sources tell neither size nor a hash
// of the whole: the number of its pieces does.
bool fits_pieces(const std::shared_ptr<const JobSources>& sources, bool whole_decides, std::int64_t size) {
    if (!sources || sources->size >= 0 || whole_decides || size < 0) return true;
    if (!sources->pieces || sources->pieces->length <= 0) return true;
    const std::int64_t length = sources->pieces->length;
    return (size + length - 1) / length == static_cast<std::int64_t>(sources->pieces->count());
}

}  // namespace

// Two versions of one size are as good as one where a hash decides at the end.
VersionMatch JobPolicy::compare(const ResourceVersion& known, const ResourceVersion& answer) const {
    const bool sizes_agree = known.size < 0 || answer.size < 0 || known.size == answer.size;
    return mixes_ && sizes_agree ? VersionMatch::same : compare_versions(known, answer);
}

Verdict JobPolicy::answered(Worker& worker, const SourceAnswer& answer, std::int64_t asked,
                            const PolicyRules& rules) {
    if (taking_over_ || worker.retired) return {Verdict::Next::refuse, Code::handed_over};
    if (stopping_) return {Verdict::Next::refuse, Code::stopped};
    may_begin_anew_ = rules.may_begin_anew;
    if (worker.check && worker.check->only_version) {
        VersionMatch match = VersionMatch::same;
        return {Verdict::Next::go_on, check_version(worker, answer, match)};
    }
    if (worker.check && worker.check->of_change)
        return {Verdict::Next::go_on, shows_change(worker, answer, asked)};
    // Where the beginning is asked for to compare it with what is there, nothing begins anew.
    const bool is_rewound = (only_one_ || encoded_) && asked == 0 && worker.position == 0 && !worker.check;
    if (version_known_ && is_rewound) return rewound(worker, answer);
    VersionMatch match = VersionMatch::same;
    if (Result result = check_version(worker, answer, match); !result.ok())
        return {Verdict::Next::refuse, std::move(result)};
    if (answer.granted != asked || (answer.encoded && asked > 0))
        return cannot_resume(worker, answer, match, rules);
    // Bytes that were unpacked on their way have no places that a range could name.
    if (encoded_ && asked > 0) return {Verdict::Next::refuse, Code::range_ignored};
    if (follow_protocol(answer) && compares_answers() && asked >= worker.position && !worker.check &&
        overlap_before(worker) > 0)
        return {Verdict::Next::refuse, Code::joint_unsure};
    // Beside answers that tell their version one comes that does not.
    const bool is_doubtful = match == VersionMatch::unsure && version_known_;
    if (is_doubtful && !mirrors_.are_several() && !encoded_ && !mixes_) verify_joints_ = true;
    if (compares_answers() && is_doubtful) {
        const bool overlaps = asked < worker.position || worker.check.has_value();
        if (!overlaps && overlap_before(worker) > 0) return {Verdict::Next::refuse, Code::joint_unsure};
        unsure_before_ = true;
    }
    const bool first = !version_known_;
    accept(worker, answer, match);
    // Where bytes are compared these decide, whatever the validators say.
    const bool is_compared = asked < worker.position || worker.check.has_value();
    if (match == VersionMatch::same && !is_compared) contradictions_ = 0;
    if (first) return {Verdict::Next::adopt, {}};
    if (!take_size(worker, answer)) return {Verdict::Next::refuse, Code::size_differs};
    size_reported_ = !only_one_ && job_.file_size > 0 && !encoded_ && !answer.ranges_denied;
    return {};
}

// The beginning is asked for once more, since it alone can be had.
Verdict JobPolicy::rewound(Worker& worker, const SourceAnswer& answer) {
    if (others_receive(worker)) return {Verdict::Next::refuse, Code::handed_over};
    Verdict verdict = begins_anew(worker, answer);
    if (verdict.result.ok()) {
        accept(worker, answer, VersionMatch::same);
        contradictions_ = 0;
    }
    return verdict;
}

// The first answer told no size, a later one does: where it ends is not where the file does. False where more
// than that is there.
bool JobPolicy::take_size(Worker& worker, const SourceAnswer& answer) {
    const std::int64_t size = answer.version.size;
    if (job_.file_size >= 0 || encoded_ || answer.encoded || size < 0 || worker.segment == nullptr)
        return true;
    if (size < worker.position) return false;
    version_.size = job_.file_size = size;
    worker.segment->end = size;
    worker.limit = size;
    return true;
}

// Whether the answer's block may be compared to find out what a file that was seen to change is of.
Result JobPolicy::shows_change(Worker& worker, const SourceAnswer& answer, std::int64_t asked) {
    if (is_no_version(mirrors_.at(worker.mirror), answer.version)) return Code::other_content;
    if (answer.granted != asked || answer.encoded) return Code::range_ignored;
    worker.check->match = compare_versions(version_, answer.version);
    if (worker.check->match != VersionMatch::changed) return {};
    if (!change_.becomes) change_.becomes = answer.version;
    // A server whose every answer names another version tells nothing by that.
    if (compare_versions(*change_.becomes, answer.version) == VersionMatch::changed)
        return {Code::other_content, std::string(describe(Code::resource_changed))};
    // There is no such block in it.
    const bool is_shorter = answer.version.size >= 0 && answer.version.size < worker.check->end;
    return is_shorter ? Result(Code::size_differs) : Result();
}

// A redirect may lead to a protocol of other ways than the address's own. True where the job learns only now
// that answers do not name the bytes that they give.
bool JobPolicy::follow_protocol(const SourceAnswer& answer) {
    if (!version_known_) return false;
    tells_time_ = tells_time_ || tells_time_alone(answer.address);
    if (blind_ || tells_place(answer.address)) return false;
    blind_ = true;
    if (mirrors_.are_several() || encoded_ || mixes_ || verify_joints_) return true;
    verify_joints_ = true;
    if (has_earlier_ && !accepted_once_) doubt_what_is_there();
    return true;
}

// Holds the answer against the first one's.
Result JobPolicy::check_version(const Worker& worker, const SourceAnswer& answer, VersionMatch& match) {
    const bool several = mirrors_.are_several();
    Mirror& mirror = mirrors_.at(worker.mirror);
    ResourceVersion known;
    if (version_known_) known = version_;
    // Of the rest each server has its own idea.
    if (several) {
        const std::int64_t size = known.size;
        known = {};
        known.size = size >= 0 ? size : whole_size_;
        if (mirror.version_known) known = mirror.version;
        if (known.size < 0) known.size = size;
    }
    if (job_.sources && job_.sources->size >= 0) known.size = job_.sources->size;
    if (is_no_version(mirror, answer.version)) {
        const std::string type =
            answer.version.media_type.empty() ? "another type" : answer.version.media_type;
        return {Code::other_content, "The server sends something other than the file (" + type + ")."};
    }
    if (!fits_pieces(job_.sources, whole_decides_, answer.version.size))
        return {Code::size_differs,
                "The server's file has another size than that of which the hashes of its pieces are."};
    if (!mirror.first) mirror.first = answer.version;
    if (!version_known_ && known.size < 0) return {};
    // Cut off at the size that only one of two mirrors told it might be another file's beginning: such a
    // mirror may give the whole, once nobody else gives anything.
    const bool is_size_shared = (version_.size < 0) == (answer.version.size < 0);
    const bool is_decided = !version_known_ || hash_decides_ || only_one_;
    if (several && !is_size_shared && !is_decided && !gave_all(worker)) {
        mirror.only_alone = true;
        return Code::cannot_resume;
    }
    match = compare(known, answer.version);
    if (match != VersionMatch::changed) return {};
    // A server whose date moves from answer to answer names no version by it: where it names the known date
    // again, now or after a stop, the bytes decide.
    if (!several && differ_by_date_alone(known, answer.version))
        version_.strong_date = job_.validators.strong_date = false;
    const bool size = known.size >= 0 && answer.version.size >= 0 && known.size != answer.version.size;
    const Code code = size ? Code::size_differs : Code::resource_changed;
    note(Direction::error, describe(code));
    return code;
}

// Whether the worker's mirror gave everything in front of the worker.
bool JobPolicy::gave_all(const Worker& worker) const {
    const std::vector<int> givers = origins_.of(0, worker.position);
    return givers.size() == 1 && givers.front() == worker.mirror;
}

// A page, say, in place of the file.
bool JobPolicy::is_no_version(const Mirror& mirror, const ResourceVersion& answer) const {
    const ResourceVersion* const earlier = version_known_ ? &version_ : previous_ ? &*previous_ : nullptr;
    if (!mirrors_.are_several()) return earlier != nullptr && is_other_content(*earlier, answer);
    if (mirror.first) return is_other_content(*mirror.first, answer);
    return earlier != nullptr && is_page_instead(*earlier, answer);
}

// One connection from zero asked for the whole once more: nothing of what came before is kept.
Verdict JobPolicy::begins_anew(const Worker& worker, const SourceAnswer& answer) {
    if (is_no_version(mirrors_.at(worker.mirror), answer.version))
        return {Verdict::Next::refuse,
                {Code::other_content, "The server sends something other than the file."}};
    const bool is_other_size = job_.sources && job_.sources->size >= 0 && answer.version.size >= 0 &&
                               job_.sources->size != answer.version.size;
    if (is_other_size || !fits_pieces(job_.sources, whole_decides_, answer.version.size))
        return {Verdict::Next::refuse, Code::size_differs};
    if (answer.granted != 0) return {Verdict::Next::refuse, Code::range_ignored};
    if (compare_versions(version_, answer.version) == VersionMatch::changed) {
        ++restarts_;
        notice_ = message_text(Message::server_newer);
        note(Direction::note, notice_);
    }
    version_known_ = false;
    return {Verdict::Next::adopt, {}};
}

void JobPolicy::accept(Worker& worker, const SourceAnswer& answer, VersionMatch match) {
    Mirror& mirror = mirrors_.at(worker.mirror);
    const bool is_news = !answer.whole && !std::exchange(mirror.ranges_proven, true);
    mirror.ranges_promised = mirror.ranges_promised || answer.ranges_promised;
    mirror.ignored_ranges = 0;
    mirror.answered = true;
    if (!mirror.version_known) mirror.version = answer.version;
    if (!mirror.first) mirror.first = answer.version;
    mirror.version_known = true;
    mirror.effective = answer.address;
    if (match == VersionMatch::same && others_receive(worker, worker.mirror))
        mirrors_.serve_further(worker.mirror);
    if (is_news) note(Direction::note, message_text(Message::can_resume));
    // A server that ignored one range and answers another can resume after all.
    if (!answer.whole) mirror.no_ranges = false;
    if (!answer.whole && job_.whole_file == 0) only_one_ = false;
    if (std::exchange(continued_, false)) note(Direction::note, message_text(Message::same_file));
    worker.answer = answers_.open();
    // The validators of one mirror say nothing of another's.
    if (match == VersionMatch::same && (!blind_ || answer.whole) && !mirrors_.are_several())
        answers_.unite(worker.answer, AnswerBook::earlier);
    worker.receiving = true;
    worker.open_at = -1;
    accepted_once_ = true;
    notice_.clear();
    trouble_ = {};
}

void JobPolicy::adopt(Worker& worker, const SourceAnswer& answer, const std::u16string& path) {
    // A size that the server does not tell, but a metafile, is held against the end that is found: cut off
    // there, another file would have it, too.
    const std::int64_t size = answer.version.size;
    encoded_ = answer.encoded;
    version_ = answer.version;
    version_known_ = true;
    likely_size_ = answer.likely_size;
    previous_.reset();
    job_.validators = {version_.etag, version_.last_modified, version_.strong_date, version_.media_type};
    job_.path = path;
    job_.file_size = size;
    worker.segment->end = size >= 0 ? size : unknown_end;
    worker.limit = worker.segment->end;
    blind_ = !tells_place(answer.address);
    tells_time_ = tells_time_alone(answer.address);
    if (!mirrors_.are_several())
        verify_joints_ = (blind_ || !has_strong_validator(version_)) && !encoded_ && !mixes_;
    // Whatever nobody wrote down is this version's.
    answers_.clear();
    unsure_before_ = sampled_ = is_end_found_ = false;
    plain_blocks_ = 0;
    // Of what never rests the answer is known: asked behind each last byte it would never be there.
    version_asked_ = restarts_ > most_restarts;
    last_checks_ = {};
    change_ = {};
    checks_.clear();
    worker.answer = answers_.open();
    answers_.unite(worker.answer, AnswerBook::earlier);
    if (size < 0) note(Direction::note, message_text(Message::size_unknown));
    size_reported_ = !only_one_ && size > 0 && !encoded_ && !answer.ranges_denied;
}

// Everything in front of what the connection receives is there.
bool JobPolicy::receives_from_start(const Worker& worker) const {
    return worker.brings_bytes() && worker.segment != nullptr &&
           !segments_.is_missing(0, worker.segment->start);
}

// The bytes that the connection in front of everything receives are worth more than an answer that begins
// anew.
bool JobPolicy::is_received_from_start() const {
    return std::ranges::any_of(segments_.workers(),
                               [&](const Worker* worker) { return receives_from_start(*worker); });
}

// The server gave the whole resource although a later part was asked for.
Verdict JobPolicy::cannot_resume(Worker& worker, const SourceAnswer& answer, VersionMatch match,
                                 const PolicyRules& rules) {
    const auto refuse = [](Result why) { return Verdict{Verdict::Next::refuse, std::move(why)}; };
    Mirror& mirror = mirrors_.at(worker.mirror);
    const bool others = others_receive(worker);
    if (worker.check) return refuse(Code::range_ignored);
    if (!rules.may_begin_anew) {
        note(Direction::error, message_text(Message::cannot_resume));
        return refuse(Code::cannot_resume);
    }
    if (!mirrors_.are_several() && others) {
        if (!mirror.ranges_proven && is_received_from_start()) {
            note(Direction::note, message_text(Message::cannot_resume));
            mirrors_.refuse_all_further(worker.mirror);
            only_one_ = true;
            size_reported_ = false;
        }
        return refuse(Code::range_ignored);
    }
    // The same resource by size and validators, or nothing of what is there is thrown away for it.
    const bool is_vague = version_.size >= 0 && answer.version.size < 0 && match != VersionMatch::same;
    if (mirrors_.are_several() && is_received_from_start()) {
        mirror.no_ranges = mirror.no_ranges || !mirror.ranges_proven;
        return refuse(mirror.no_ranges ? Code::cannot_resume : Code::range_ignored);
    }
    if (!mirrors_.are_several() && version_known_ && is_vague)
        return refuse(
            {Code::other_content, "The server sends something of unknown size in place of a part."});
    const bool is_believed = !mirror.ranges_proven || mirror.ignored_ranges++ >= most_ignored_ranges;
    if (!is_believed) {
        note(Direction::error, message_text(Message::partial_refused));
        return refuse(Code::range_ignored);
    }
    mirror.no_ranges = true;
    for (int other = 0; other < mirrors_.count(); ++other) {
        if (mirrors_.is_usable(other) && !mirrors_.at(other).no_ranges) return refuse(Code::cannot_resume);
    }
    return take_over(worker);
}

// The worker's answer, which has no parts, is the only choice: the others end, and it goes on from zero.
Verdict JobPolicy::take_over(Worker& worker) {
    note(Direction::note, message_text(Message::cannot_resume));
    const bool another = only_one_ && std::ranges::any_of(segments_.workers(), [&](const Worker* other) {
                             return other != &worker && other->has_work();
                         });
    // The others may have written everything in the meantime: then the job is about to end well.
    if (another || is_all_there()) return {Verdict::Next::refuse, Code::handed_over};
    only_one_ = taking_over_ = true;
    for (Worker* other : segments_.workers()) {
        if (other != &worker && other->has_work()) retire(*other);
    }
    return {Verdict::Next::take_whole, {}};
}

void JobPolicy::begin_whole(Worker& worker) {
    job_.whole_file = 1;
    taking_over_ = false;
    segments_.begin_anew();
    SegmentBook::assign(*job_.segments.front(), worker);
    version_known_ = verify_joints_ = continued_ = size_reported_ = false;
    checks_.clear();
    mirrors_.at(worker.mirror).answered = true;
    worker.receiving = accepted_once_ = true;
}

void JobPolicy::begin_anew() {
    const bool whole = std::exchange(restart_whole_, false);
    const bool is_restart = restart_.has_value();
    restart_.reset();
    // Where parts are not to be had the file is the same one still.
    whole_size_ = whole && mirrors_.are_several() ? version_.size : -1;
    if (is_restart && !whole) {
        notice_ = message_text(Message::server_newer);
        note(Direction::note, notice_);
        mixes_ = false;
        if (++restarts_ > most_restarts) {
            // Nothing holds still long enough for two answers of one version. A hash may tell whether parts
            // of two fit after all; else one single answer brings the whole.
            mixes_ = hash_decides_ && !std::exchange(mixed_before_, true);
            if (!mixes_) {
                only_one_ = true;
                job_.whole_file = 1;
            }
        }
    }
    if (whole) {
        only_one_ = true;
        job_.whole_file = 1;
    }
    if (version_known_) previous_ = version_;
    mirrors_.pardon_different();
    mirrors_.forget_answers();
    forget_pieces();
    verify_joints_ = mirrors_.are_several() && !(job_.sources && job_.sources->pieces);
    segments_.begin_anew();
    answers_.clear();
    checks_.clear();
    unsure_before_ = sampled_ = false;
    last_checks_ = {};
    change_ = {};
    job_.file_size = -1;
    version_known_ = size_reported_ = encoded_ = continued_ = has_earlier_ = false;
    contradictions_ = differing_checks_ = late_refusals_ = 0;
}

// The bytes between the end of the segment in front and this one's beginning are in the file.
std::int64_t JobPolicy::overlap_before(const Worker& worker, bool most) const {
    if (!verify_joints_ || worker.segment == nullptr) return 0;
    // Only what was handed to the system can be read back.
    const std::int64_t at = worker.segment->start;
    if (worker.position != at) return 0;
    return std::clamp<std::int64_t>(at - segments_.there_from(at), 0, most ? most_of_joint : joint_before);
}

std::int64_t JobPolicy::overlap_behind(const Worker& worker, bool most) const {
    if (!verify_joints_ || worker.segment == nullptr) return 0;
    const std::int64_t end = worker.segment->end;
    const std::int64_t there = segments_.there_until(end) - end;
    for (const Worker* other : segments_.workers()) {
        const bool is_next = other->segment != nullptr && other->segment->start == end && other != &worker;
        if (there == 0 && is_next && other->brings_bytes() && end < other->segment->end) return -1;
    }
    return std::clamp<std::int64_t>(there, 0, most ? most_of_joint : joint_behind);
}

void JobPolicy::agreed(const Worker& worker, std::int64_t begin, std::int64_t end, bool is_plain) {
    // The bytes that were compared with may have been thrown away meanwhile.
    if (segments_.is_missing(begin, end)) return;
    if (worker.check && worker.check->of_change) {
        if (is_plain) return;
        change_.fits_new = change_.fits_new || worker.check->match == VersionMatch::changed;
        change_.fits_old = change_.fits_old || worker.check->match == VersionMatch::same;
        return;
    }
    contradictions_ = 0;
    if (worker.check && worker.check->last && !is_plain) {
        if (worker.check->again) last_checks_.is_mixture = true;
        last_checks_.agreed = worker.check;
    }
    if (verify_joints_) answers_.agreed(worker.answer, begin, end, is_plain);
    if (is_plain && worker.check && (worker.check->by_another || worker.check->last))
        replace_plain_check(*worker.check);
}

}  // namespace vantlow
