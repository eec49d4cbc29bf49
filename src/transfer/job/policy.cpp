// Who works on what, and when the job is complete.
#include "transfer/job/policy.h"

#include <algorithm>

#include "base/string_table.h"
#include "transfer/job/source.h"
#include "transfer/job/work_rule.h"

namespace vantlow {
namespace {

// So many bytes are compared to each side of a joint where nothing but bytes can tell.
constexpr std::int64_t joint_reach = 4 * 1024;
constexpr std::size_t most_joints_at_once = 64;

void take_back_what_is_there(SegmentBook& segments, const Origins::Range& range) {
    for (const auto& there : segments.there()) {
        const std::int64_t begin = std::max(range.begin, there.begin);
        const std::int64_t end = std::min(range.end, there.end);
        if (begin < end) segments.take_back(begin, end);
    }
}

}  // namespace

JobPolicy::JobPolicy(CJobNode& job, std::uint64_t seed, bool hash_decides)
    : job_(job),
      seed_(seed),
      whole_decides_(hash_decides || (job.sources && job.sources->whole)),
      hash_decides_(whole_decides_ || (job.sources && job.sources->pieces)) {}

void JobPolicy::begin(bool continued) {
    mirrors_.begin(job_);
    continued_ = version_known_ = has_earlier_ = continued;
    if (continued) {
        const Validators& known = job_.validators;
        version_ = {job_.file_size, known.last_modified, known.etag, known.strong_date, known.media_type};
    }
    only_one_ = job_.whole_file != 0;
    if (continued && !mirrors_.are_several()) {
        mirrors_.at(0).version = version_;
        mirrors_.at(0).version_known = true;
    }
    blind_ = !tells_place(job_.address);
    tells_time_ = tells_time_alone(job_.address);
    const bool is_sure = !mirrors_.are_several() && has_strong_validator(version_);
    verify_joints_ =
        mirrors_.are_several() ? !(job_.sources && job_.sources->pieces) : continued && (blind_ || !is_sure);
    if (!continued || !verify_joints_) return;
    doubt_what_is_there();
    if (!mirrors_.are_several() && !is_sure) plan_checks(segments_.there(), false);
}

// Of an earlier run: each range was given by one answer, and nothing shows yet that they are of one version,
// nor, where answers do not name their bytes, that they are of their places.
void JobPolicy::doubt_what_is_there() {
    const std::vector<SegmentBook::Range> there = segments_.there();
    for (const auto& range : there) answers_.wrote(range.begin, range.end, answers_.open());
    const bool is_in_place = !there.empty() && (!blind_ || there.front().begin == 0);
    if (!mirrors_.are_several() && is_in_place) answers_.unite(1, AnswerBook::earlier);
}

bool JobPolicy::compares_answers() const noexcept {
    return verify_joints_ && !mirrors_.are_several();
}

void JobPolicy::retire(Worker& worker) {
    worker.retired = true;
    effects_.retire.push_back(worker.id);
}

bool JobPolicy::others_receive(const Worker& worker, int mirror) const {
    return std::ranges::any_of(segments_.workers(), [&](const Worker* other) {
        return other != &worker && other->brings_bytes() && (mirror < 0 || other->mirror == mirror);
    });
}

int JobPolicy::receiving_from(int mirror) const {
    return static_cast<int>(std::ranges::count_if(segments_.workers(), [&](const Worker* worker) {
        return worker->brings_bytes() && worker->mirror == mirror;
    }));
}

// --- The run as a whole ---

std::optional<JobPolicy::Turn> JobPolicy::look() {
    if (fatal_) return Turn{Turn::What::end, *fatal_};
    if (restart_ && !stopping_) return Turn{Turn::What::restart, *restart_};
    take_back_from_left();
    if (is_complete()) return Turn{Turn::What::end, {}};
    if (stopping_ || !needs_whole()) return std::nullopt;
    note(Direction::note, message_text(Message::cannot_resume));
    ask_for_restart(last_failure_, true);
    return Turn{Turn::What::restart, last_failure_};
}

int JobPolicy::free_chair() const {
    for (int chair = 0; chair < job_.thread_limit(); ++chair) {
        const bool is_taken = std::ranges::any_of(segments_.workers(), [&](const Worker* worker) {
            return worker->chair == chair && worker->has_work();
        });
        if (!is_taken && !halted_[static_cast<std::size_t>(chair)]) return chair;
    }
    return -1;
}

int JobPolicy::usable_chairs() const {
    int chairs = 0;
    for (int chair = 0; chair < job_.thread_limit(); ++chair) {
        if (!halted_[static_cast<std::size_t>(chair)]) ++chairs;
    }
    return chairs;
}

bool JobPolicy::may_start(int connections) const {
    if (fatal_ || restart_ || taking_over_ || exhausted_ || stopping_) return false;
    if (connections >= usable_chairs()) return false;
    if (connections == 0) return true;
    if (!size_reported_) return false;
    // While none receives one asks, so that a server in trouble is not asked by many.
    const auto& workers = segments_.workers();
    const bool any_receives =
        std::ranges::any_of(workers, [](const Worker* worker) { return worker->brings_bytes(); });
    const bool any_asks = std::ranges::any_of(
        workers, [](const Worker* worker) { return worker->has_work() && !worker->retired; });
    return mirrors_.are_several() || any_receives || !any_asks;
}

bool JobPolicy::enlist(Worker& worker, const PolicyRules& rules, Clock::time_point now) {
    worker.chair = free_chair();
    if (worker.chair < 0) return false;
    std::vector<bool> tried(static_cast<std::size_t>(mirrors_.count()));
    for (;;) {
        const int mirror = mirrors_.choose(
            job_.thread_limit(), [&](int i) { return !tried[static_cast<std::size_t>(i)]; }, now);
        if (mirror == MirrorSet::none) {
            drop_checks_that_would_wait();
            return false;
        }
        worker.mirror = mirror;
        if (take_work(worker, rules, now) == Work::taken) break;
        // Work that this mirror may not do may be left for another.
        tried[static_cast<std::size_t>(mirror)] = true;
    }
    ++mirrors_.at(worker.mirror).connections;
    segments_.enlist(worker);
    return true;
}

void JobPolicy::strike(Worker& worker, const Result& last) {
    if (worker.mirror != MirrorSet::none) --mirrors_.at(worker.mirror).connections;
    worker.mirror = MirrorSet::none;
    if (worker.segment != nullptr) worker.segment->worker = 0;
    worker.segment = nullptr;
    segments_.strike(worker);
    if (!last.ok() && last.kind() != Kind::stopped) {
        last_failure_ = last;
        if (!others_receive(worker)) trouble_ = last;
    }
    effects_.news = true;
}

std::optional<Clock::time_point> JobPolicy::next_chance(Clock::time_point now) const {
    if (exhausted_ || usable_chairs() == 0) return std::nullopt;
    const auto chance = mirrors_.next_chance();
    return chance && *chance > now ? chance : std::nullopt;
}

std::optional<Result> JobPolicy::idle_end(Clock::time_point now) const {
    if (fatal_) return std::nullopt;
    if (stopping_) return Result(Code::stopped);
    if (restart_ || next_chance(now)) return std::nullopt;
    if (last_failure_.ok()) return Result(Code::transient, "No connection is left.");
    return last_failure_;
}

void JobPolicy::end_for_good(const Result& result) {
    if (!fatal_) fatal_ = result;
    effects_.news = true;
}

void JobPolicy::fill(JobProgress& progress, Clock::time_point now) const {
    progress.notice = notice_;
    progress.restarts = restarts_;
    const bool any_receives =
        std::ranges::any_of(segments_.workers(), [](const Worker* worker) { return worker->brings_bytes(); });
    const bool is_through = is_all_there() && checks_.empty();
    if (any_receives || trouble_.ok() || stopping_ || is_through) return;
    std::optional<Clock::time_point> next = next_chance(now);
    for (const Worker* worker : segments_.workers()) {
        if (worker->has_work() && (!next || worker->next_try < *next)) next = worker->next_try;
    }
    progress.waiting_for = trouble_.message();
    progress.attempts = fruitless_;
    if (next && *next > now) progress.next_try = next;
}

// --- Taking work ---

// The segment that begins where the worker's open answer stands, and that nobody has an answer for: the
// answer flows on into it without another request.
bool JobPolicy::flows_on(Worker& worker) {
    if (worker.open_at < 0) return false;
    CJobSeg* segment = nullptr;
    if (const auto idle = segments_.starting_at(worker.open_at, false)) {
        segment = job_.segments[*idle].get();
    } else if (const auto waiting = segments_.starting_at(worker.open_at, true)) {
        segment = &segments_.cut(*waiting, worker.open_at);
    }
    if (segment == nullptr || is_suspect(worker.mirror, *segment)) return false;
    SegmentBook::assign(*segment, worker);
    worker.keeps_answer = true;
    return true;
}

bool JobPolicy::take_check(Worker& worker) {
    if (worker.mirror == MirrorSet::none) return false;
    if (mirrors_.are_several() && !mirrors_.gives_parts(worker.mirror)) return false;
    // Blocks are compared by parts of the resource: that there are such has to be shown first, unless the job
    // cannot end without the comparison.
    const bool has_parts = mirrors_.at(worker.mirror).ranges_proven;
    for (BlockCheck& check : checks_) {
        if (check.worker != 0 || segments_.is_missing(check.begin, check.end)) continue;
        if (check.by_another && !may_compare(worker.mirror, check)) continue;
        const bool may_fail = check.required || check.only_version || check.of_change || check.by_another;
        if (!has_parts && !may_fail) continue;
        check.worker = worker.id;
        worker.check = check;
        worker.begin_at(check.begin, check.end);
        return true;
    }
    return false;
}

// Cuts at the border of a piece where that leaves enough: a piece from one mirror alone can be blamed on it.
std::int64_t JobPolicy::cut_at(std::int64_t wanted, std::int64_t begin, std::int64_t split_size) const {
    if (pieces_.is_empty()) return wanted;
    const std::int64_t border = pieces_.begin_of(pieces_.piece_at(wanted));
    return border - begin >= split_size ? border : wanted;
}

// Gives the worker a segment by the rule; null when there is nothing for it.
CJobSeg* JobPolicy::choose_segment(const Worker& worker, std::int64_t split_size) {
    const bool gives_whole_only = mirrors_.are_several() && !mirrors_.gives_parts(worker.mirror);
    std::vector<WorkItem> items;
    for (const auto& segment : job_.segments) {
        const Worker* const at_work = segments_.worker_of(*segment);
        const bool suspect = !pieces_.is_empty() && pieces_.find_suspicion(segment->start) != nullptr;
        const bool fixed = at_work != nullptr ? segment->end == unknown_end || suspect || gives_whole_only
                                              : !may_serve(worker.mirror, *segment);
        const std::int64_t start = segments_.position_of(*segment);
        items.push_back({start, fixed ? start : segment->end, at_work != nullptr});
    }
    const auto take = choose_work(items, split_size);
    if (!take) return nullptr;
    if (!take->cut) return job_.segments[take->index].get();
    return &segments_.cut(take->index, cut_at(take->start, items[take->index].start, split_size));
}

Work JobPolicy::take_work(Worker& worker, const PolicyRules& rules, Clock::time_point now) {
    worker.keeps_answer = false;
    worker.next_try = now;
    const Work work = find_work(worker, rules);
    if (work == Work::later) return work;
    worker.open_at = -1;
    worker.receiving = worker.keeps_answer;
    return work;
}

Work JobPolicy::find_work(Worker& worker, const PolicyRules& rules) {
    if (fatal_ || restart_ || taking_over_ || stopping_ || worker.retired) return Work::nothing;
    // One that waited for a mirror in vain, until others had done its work, ends.
    if (worker.mirror == MirrorSet::none || !mirrors_.is_usable(worker.mirror)) return Work::nothing;
    if (flows_on(worker)) return Work::taken;
    if (worker.finished_one && rules.only_own_part) return Work::nothing;
    const auto is_taken = [](const auto& segment) { return segment->worker != 0; };
    if (only_one_ && std::ranges::any_of(job_.segments, is_taken)) return Work::nothing;
    segments_.drop_complete();
    const bool is_open = worker.open_at >= 0;
    if (is_open && !mirrors_.may_serve_more(worker.mirror)) {
        // Another request would hardly be answered: the open answer reads on to what nobody fetches, or stays
        // for what those in front may yet lose.
        CJobSeg* const gap = segments_.idle_behind(worker.open_at);
        if (gap == nullptr)
            return segments_.is_worked_on_behind(worker.open_at) ? Work::later : Work::nothing;
        SegmentBook::assign(*gap, worker);
        worker.keeps_answer = true;
        return Work::taken;
    }
    if ((!is_open || is_all_there()) && take_check(worker)) return Work::taken;
    CJobSeg* const segment = choose_segment(worker, std::max(rules.split_size, job_.min_split_size));
    if (segment == nullptr) return Work::nothing;
    SegmentBook::assign(*segment, worker);
    return Work::taken;
}

bool JobPolicy::released(Worker& worker, std::int64_t open_at, bool done, std::int64_t bytes_per_second) {
    best_speed_ = std::max(best_speed_, bytes_per_second);
    if (worker.segment != nullptr) worker.segment->worker = 0;
    worker.segment = nullptr;
    if (worker.check) {
        if (done && !worker.check->only_version && !worker.check->of_change) ++checks_made_;
        worker.check.reset();
        if (done) std::erase_if(checks_, [&](const BlockCheck& check) { return check.worker == worker.id; });
        for (BlockCheck& check : checks_) {
            if (check.worker == worker.id) check.worker = 0;
        }
    }
    // An answer that stands open counts as one that is received: it goes on in a moment.
    worker.open_at = open_at;
    worker.receiving = open_at >= 0;
    // Bytes that a connection still wrote after its own were thrown away go, too: only one answer is right.
    const bool is_of_another = answers_.first_of(worker.answer) != AnswerBook::earlier;
    if (worker.retired && only_one_ && blind_ && is_of_another)
        discard_version(answers_.first_of(worker.answer), worker);
    const bool complete = is_complete();
    // With nothing left to take the worker is about to end, which is news enough.
    effects_.news = effects_.news || !complete;
    return complete;
}

void JobPolicy::delivered(const Worker& worker, std::int64_t offset, std::int64_t bytes) {
    if (mirrors_.are_several() || !pieces_.is_empty()) origins_.add(offset, offset + bytes, worker.mirror);
    if (change_.is_seen) change_.since.add(offset, offset + bytes, 0);
    // Answers that one server's validators hold together now may be doubted later.
    if (verify_joints_ || !mirrors_.are_several()) answers_.wrote(offset, offset + bytes, worker.answer);
    if (!verify_joints_ || mirrors_.are_several()) return;
    // An answer that nothing shows to be of the first version was compared before it is written.
    if (mirrors_.at(worker.mirror).refusals > 0 && others_receive(worker, worker.mirror))
        mirrors_.serve_further(worker.mirror);
}

void JobPolicy::written(std::int64_t offset, std::int64_t bytes) {
    const std::int64_t at = segments_.advance(offset, bytes);
    if (pieces_.is_empty()) return;
    for (const std::size_t piece : find_whole_pieces(offset, at)) effects_.whole_pieces.push_back(piece);
}

void JobPolicy::end_found(Worker& worker) {
    const std::int64_t end = worker.position;
    worker.segment->end = end;
    worker.limit = end;
    job_.file_size = end;
    is_end_found_ = true;
}

void JobPolicy::replace_slow(int connections) {
    constexpr int most_replaced = 16;
    if (!size_reported_ || replaced_ >= most_replaced || connections >= job_.thread_limit()) return;
    std::vector<PaceItem> items;
    for (const auto& segment : job_.segments) {
        const Worker* const worker = segments_.worker_of(*segment);
        if (worker == nullptr && segment->start < segment->end)
            return;  // idle work is there: that comes first
        if (worker == nullptr) {
            items.push_back({});
            continue;
        }
        items.push_back({segment->end - worker->position, worker->bytes_per_second,
                         worker->receiving && worker->settled});
    }
    const auto slow = choose_takeover(items, best_speed_);
    if (!slow) return;
    Worker& worker = *segments_.worker_of(*job_.segments[*slow]);
    if (worker.retired || worker.mirror == MirrorSet::none) return;
    Mirror& mirror = mirrors_.at(worker.mirror);
    // An answer is not given up for one that may not come.
    if (!mirror.ranges_proven || !mirrors_.may_serve_more(worker.mirror)) return;
    ++mirror.failures;
    retire(worker);
    ++replaced_;
}

// --- Completion ---

bool JobPolicy::is_all_there() const {
    return !taking_over_ && to_take_back_.empty() && segments_.is_all_there();
}

bool JobPolicy::is_complete() {
    if (!is_all_there() || !pieces_.are_all_good()) return false;
    // A neighbour's bytes may still be held against one's own.
    const bool any_compares = verify_joints_ && std::ranges::any_of(job_.segments, [](const auto& segment) {
                                  return segment->worker != 0;
                              });
    if (any_compares) return false;
    if (hash_decides_) return true;
    if (asks_version() || asks_about_change()) return false;
    if (only_one_ || !verify_joints_) return true;
    drop_vain_checks();
    if (!checks_.empty()) return false;
    const std::vector<std::int64_t> joints = answers_.joints(job_.file_size);
    const bool compares_mirrors = mirrors_.are_several() && !sampled_;
    const bool is_sampled = sampled_ || answers_.unsure_parts(job_.file_size).empty();
    if (joints.empty() && is_sampled && !unsure_before_ && !compares_mirrors) return true;
    for (const std::int64_t joint : joints) {
        if (checks_.size() >= most_joints_at_once) break;
        checks_.push_back({std::max<std::int64_t>(joint - joint_reach, 0),
                           std::min(joint + joint_reach, job_.file_size), true});
    }
    if (compares_answers() && !std::exchange(sampled_, true)) plan_checks(segments_.there(), true);
    if (compares_mirrors) plan_mirror_checks();
    if (joints.empty() && checks_.empty() && !unsure_before_) return true;
    if (last_checks_.is_mixture) {
        ask_for_restart(Code::resource_changed, false);
        return false;
    }
    if (checks_.empty() && last_checks_.differed && last_checks_.agreed && !last_checks_.again) {
        last_checks_.again = true;
        checks_.push_back(*last_checks_.agreed);
        checks_.back().worker = 0;
        checks_.back().again = true;
    }
    if (!checks_.empty()) {
        effects_.news = true;
        return false;
    }
    unsure_before_ = false;
    if (last_checks_.differed) {
        note(Direction::note,
             "The file on the server has changed since; what was received is of one version as "
             "far as its parts tell where they meet.");
        return true;
    }
    note(Direction::note,
         "The server does not tell one version of the file from another: its answers were "
         "compared where they meet and at " +
             std::to_string(checks_made_) + " more places, and agree there.");
    return true;
}

void JobPolicy::open_joints(CJobNode& copy) const {
    if (!verify_joints_ || hash_decides_ || job_.file_size <= 0) return;
    SegmentBook segments(copy);
    // A later run compares nothing where the version is sure: what no comparison has shown to be of it is
    // fetched again then.
    if (!mirrors_.are_several() && has_strong_validator(version_) && !blind_) {
        for (int answer = AnswerBook::earlier + 1; answer <= answers_.count(); ++answer) {
            if (answers_.first_of(answer) != answer) continue;
            for (const auto& range : answers_.ranges_of(answer)) take_back_what_is_there(segments, range);
        }
        return;
    }
    for (const std::int64_t joint : answers_.joints(job_.file_size)) {
        const std::int64_t end = std::min(joint + joint_reach, job_.file_size);
        if (!segments_.is_missing(joint - 1, joint + 1)) segments.take_back(joint, end);
    }
}

// The pieces in a range that are now there from end to end.
std::vector<std::size_t> JobPolicy::find_whole_pieces(std::int64_t begin, std::int64_t end) {
    std::vector<std::size_t> whole;
    if (begin >= end) return whole;
    for (std::size_t piece = pieces_.piece_at(begin); piece <= pieces_.piece_at(end - 1); ++piece) {
        if (pieces_.at(piece) != PieceBook::State::missing) continue;
        if (segments_.is_missing(pieces_.begin_of(piece), pieces_.end_of(piece))) continue;
        pieces_.set(piece, PieceBook::State::waits);
        whole.push_back(piece);
    }
    return whole;
}

// Pieces that an earlier run checked still count, others that are there are to be checked.
std::vector<std::size_t> JobPolicy::begin_pieces(std::int64_t length) {
    hash_decides_ = true;
    pieces_.begin(length, job_.file_size);
    for (std::size_t piece = 0; piece < pieces_.count(); ++piece) {
        if ((job_.bit_map[piece / 8] & (0x80U >> (piece % 8))) != 0)
            pieces_.set(piece, PieceBook::State::good);
    }
    return find_whole_pieces(0, job_.file_size);
}

void JobPolicy::ignore_pieces() {
    hash_decides_ = whole_decides_;
    mixes_ = mixes_ && hash_decides_;
    const bool were_joints_sure = !verify_joints_;
    verify_joints_ = verify_joints_ || mirrors_.are_several() ||
                     ((blind_ || !has_strong_validator(version_)) && !encoded_ && !mixes_);
    if (verify_joints_ && were_joints_sure && has_earlier_ && !accepted_once_) doubt_what_is_there();
}

void JobPolicy::forget_pieces() {
    pieces_.clear();
    origins_.clear();
    to_take_back_.clear();
    job_.bit_map.clear();
    job_.bit_count = 0;
}

}  // namespace vantlow
