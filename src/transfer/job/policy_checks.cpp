// A job's comparisons before its end: which bytes are fetched once more, and of whom, where validators do not
// show that all of the file is of one version.
#include <algorithm>
#include <random>

#include "transfer/job/policy.h"

namespace vantlow {
namespace {

// So many bytes of a block somewhere in the file are compared.
constexpr std::int64_t block = 16 * 1024;
constexpr int sampled_blocks = 3;  // beside the first and the last one
constexpr std::size_t most_parts = 8;
// So many blocks that tell nothing are made good for by others.
constexpr int most_plain_blocks = 12;
// A server reads so much of a file with one look at it.
constexpr std::int64_t read_at_once = 64 * 1024;

template <class Ranges>
std::int64_t bytes_of(const Ranges& ranges) {
    std::int64_t bytes = 0;
    for (const auto& range : ranges) bytes += range.end - range.begin;
    return bytes;
}

// The block at a place of ranges that are thought of as one.
template <class Ranges>
BlockCheck block_at(const Ranges& ranges, std::int64_t place) {
    BlockCheck check;
    for (const auto& range : ranges) {
        const std::int64_t length = range.end - range.begin;
        if (place < length) {
            check.begin = range.begin + place;
            check.end = std::min(check.begin + block, range.end);
            break;
        }
        place -= length;
    }
    return check;
}

}  // namespace

// A file that a server writes while it gives it comes as a mixture, over a single connection, too. Where the
// protocol lets one ask for the time of the last change by itself, that is done once more behind the last
// byte; true while the answer is awaited. What was read at once needs no such question.
bool JobPolicy::asks_version() {
    const bool can_tell = tells_time_ && !mirrors_.are_several() && !version_.last_modified.empty();
    if (can_tell && job_.file_size > read_at_once && !std::exchange(version_asked_, true)) {
        checks_.push_back({});
        checks_.back().only_version = true;
        effects_.news = true;
    }
    return std::ranges::any_of(checks_, [](const BlockCheck& check) { return check.only_version; });
}

// True while blocks are still to be compared with the version that the file was seen to become, or everything
// begins anew for what they tell.
bool JobPolicy::asks_about_change() {
    if (!change_.is_seen || encoded_ || job_.file_size <= read_at_once) return false;
    if (!std::exchange(change_.is_asked, true)) plan_change_checks();
    if (std::ranges::any_of(checks_, [](const BlockCheck& check) { return check.of_change; })) {
        effects_.news = true;
        return true;
    }
    change_.is_seen = false;
    if (change_.is_mixture()) {
        ask_for_restart(Code::resource_changed, false);
        return true;
    }
    if (change_.differs_from_new)
        note(Direction::note,
             "The file on the server has changed since; what was received is of one version.");
    return false;
}

// The first block and the last one, some between, and what came last: of a file that is written over the
// first ones are old and the last ones new.
void JobPolicy::plan_change_checks() {
    constexpr int most_ranges = 4;
    const auto add = [this](std::int64_t begin) {
        const std::int64_t from = std::clamp<std::int64_t>(begin, 0, job_.file_size - block);
        checks_.push_back({from, from + block});
        checks_.back().of_change = true;
    };
    add(0);
    add(job_.file_size);
    std::mt19937_64 random(seed_++);
    for (int i = 0; i < sampled_blocks; ++i)
        add(static_cast<std::int64_t>(random() % static_cast<std::uint64_t>(job_.file_size)));
    int ranges = 0;
    for (const auto& range : change_.since.from(0)) {
        if (range.end < job_.file_size && ++ranges <= most_ranges) add(range.end - block);
    }
}

void JobPolicy::drop_change_checks() {
    const auto dropped = std::erase_if(checks_, [](const BlockCheck& check) { return check.of_change; });
    if (dropped == 0 || change_.is_mixture()) return;
    change_.is_seen = false;
    note(Direction::note,
         "The file on the server has changed while it was fetched, and the new one cannot be compared: "
         "whether all bytes are of one version stays unsure.");
}

// The first block and the last one of what is there, and some between.
void JobPolicy::plan_checks(const std::vector<SegmentBook::Range>& there, bool last) {
    const std::int64_t bytes = bytes_of(there);
    if (bytes == 0 || !mirrors_.at(0).ranges_proven) return;
    std::mt19937_64 random(seed_++);
    std::vector<std::int64_t> places{0, std::max<std::int64_t>(bytes - block, 0)};
    for (int i = 0; i < sampled_blocks; ++i)
        places.push_back(static_cast<std::int64_t>(random() % static_cast<std::uint64_t>(bytes)));
    for (const std::int64_t place : places) {
        checks_.push_back(block_at(there, place));
        checks_.back().last = last;
    }
    if (!last) return;
    // Answers that only plain bytes hold together may be of several versions: each such part gives a block.
    std::size_t parts = 0;
    for (const auto& part : answers_.unsure_parts(job_.file_size)) {
        if (++parts <= most_parts) add_last_check(part);
    }
}

// Somewhere in these ranges; null where they are empty.
BlockCheck* JobPolicy::add_check(const std::vector<Origins::Range>& ranges) {
    const std::int64_t bytes = bytes_of(ranges);
    if (bytes == 0) return nullptr;
    std::mt19937_64 random(seed_++);
    checks_.push_back(
        block_at(ranges, static_cast<std::int64_t>(random() % static_cast<std::uint64_t>(bytes))));
    return &checks_.back();
}

void JobPolicy::add_last_check(const std::vector<Origins::Range>& ranges) {
    if (BlockCheck* const check = add_check(ranges)) check->last = true;
}

// A block told nothing, since two versions may have such bytes: another one of the same part may tell more.
void JobPolicy::replace_plain_check(const BlockCheck& plain) {
    if (plain_blocks_++ >= most_plain_blocks) return;
    if (plain.by_another) {
        const std::vector<int> givers = origins_.of(plain.begin, plain.end);
        if (!givers.empty()) add_mirror_check(givers.front());
        return;
    }
    const auto holds = [&](const Origins::Range& range) {
        return range.begin <= plain.begin && plain.begin < range.end;
    };
    for (const auto& part : answers_.unsure_parts(job_.file_size)) {
        if (std::ranges::any_of(part, holds)) return add_last_check(part);
    }
    add_last_check(std::vector{Origins::Range{0, job_.file_size}});
}

// Bytes of two mirrors that touch may agree by chance: where two different images have zeros, say. Some
// blocks of what each mirror gave are compared with those that another one gives: few of little.
void JobPolicy::plan_mirror_checks() {
    constexpr std::int64_t most_of_each = 4;
    constexpr std::int64_t bytes_for_one = 512 * 1024;
    constexpr std::size_t most_givers = 8;
    sampled_ = true;
    plain_blocks_ = 0;
    std::vector<int> givers = origins_.of(0, job_.file_size);
    if (givers.size() > most_givers) givers.resize(most_givers);
    for (const int giver : givers) {
        const std::int64_t bytes = bytes_of(origins_.from(giver, job_.file_size));
        const std::int64_t blocks = std::min(1 + bytes / bytes_for_one, most_of_each);
        for (std::int64_t i = 0; i < blocks; ++i) add_mirror_check(giver);
    }
    drop_vain_checks();
}

// Somewhere in what the mirror gave.
void JobPolicy::add_mirror_check(int giver) {
    if (BlockCheck* const check = add_check(origins_.from(giver, job_.file_size))) check->by_another = true;
}

// Whether the mirror may be asked for a block that others gave. One that has failed since anything came of it
// is not: the file is there, and nothing is waited for.
bool JobPolicy::may_compare(int index, const BlockCheck& check) const {
    const Mirror& mirror = mirrors_.at(index);
    if (!mirrors_.is_usable(index) || !mirrors_.gives_parts(index) || mirror.fruitless > 0) return false;
    if (!mirror.ranges_proven && !(mirror.answered && mirror.ranges_promised)) return false;
    return std::ranges::count(origins_.of(check.begin, check.end), index) == 0;
}

// Nobody may be asked now for the blocks that only confirm what is there: the job does not wait for that.
void JobPolicy::drop_checks_that_would_wait() {
    const auto works = [](const Worker* worker) { return worker->has_work(); };
    if (std::ranges::any_of(segments_.workers(), works)) return;
    if (std::erase_if(checks_, [](const BlockCheck& check) { return check.by_another; }) > 0)
        effects_.news = true;
}

// Blocks that no mirror may be asked for are not compared.
void JobPolicy::drop_vain_checks() {
    std::erase_if(checks_, [this](const BlockCheck& check) {
        if (!check.by_another || check.worker != 0) return false;
        for (int mirror = 0; mirror < mirrors_.count(); ++mirror) {
            if (may_compare(mirror, check)) return false;
        }
        return true;
    });
}

// Blocks that others compare at the moment still count.
void JobPolicy::drop_optional_checks(const Worker& asker) {
    sampled_ = true;
    const auto dropped = std::erase_if(checks_, [&](const BlockCheck& check) {
        return !check.required && (check.worker == 0 || check.worker == asker.id);
    });
    if (dropped > 0) {
        note(Direction::note,
             "The server does not tell one version of the file from another and gives no parts "
             "to compare: whether all bytes are of one version stays unsure.");
    }
}

}  // namespace vantlow
