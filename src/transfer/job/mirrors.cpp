#include "transfer/job/mirrors.h"

#include <algorithm>
#include <utility>

#include "store/address.h"

namespace vantlow {
namespace {

constexpr std::chrono::seconds longest_back_off{300};
// The pause behind a definite refusal, growing fourfold; the last of so many refusals is final.
constexpr std::chrono::seconds after_refusal{5};
constexpr int most_refusals = 3;
constexpr auto never = Clock::time_point::max();

// Left because it differed from what another one gave.
bool is_different(const Mirror& mirror) noexcept {
    return mirror.left && mirror.why.kind() == Kind::restart;
}

}  // namespace

void MirrorSet::begin(const CJobNode& job) {
    mirrors_.clear();
    only_ = none;
    const auto add = [&](const std::u16string& address, bool own_server) {
        const bool is_known = std::any_of(mirrors_.begin(), mirrors_.end(),
                                          [&](const Mirror& mirror) { return mirror.address == address; });
        if (is_known || count() >= most_mirrors) return;
        Mirror& mirror = mirrors_.emplace_back();
        mirror.address = address;
        mirror.own_server = own_server;
    };
    add(job.address, true);
    if (!job.sources) return;
    const auto own = parse_target(job.address);
    for (const std::u16string& address : job.sources->mirrors) {
        // The job's own may be written with credentials that the list lacks.
        if (without_credentials(address) == without_credentials(job.address)) continue;
        const auto target = parse_target(address);
        add(address, own && target && is_same_server(*own, *target));
    }
}

bool MirrorSet::is_usable(int mirror) const noexcept {
    return !mirrors_[static_cast<std::size_t>(mirror)].left && (only_ == none || only_ == mirror);
}

bool MirrorSet::is_any_usable() const noexcept {
    for (int i = 0; i < count(); ++i) {
        if (is_usable(i)) return true;
    }
    return false;
}

bool MirrorSet::any_gives_parts(int but) const noexcept {
    for (int i = 0; i < count(); ++i) {
        if (i != but && is_usable(i) && gives_parts(i)) return true;
    }
    return false;
}

bool MirrorSet::is_free(int index, int thread_limit, Clock::time_point now) {
    Mirror& mirror = at(index);
    if (!is_usable(index) || now < mirror.not_before) return false;
    // A mirror that nobody receives from is asked by one connection, whatever it said to further ones.
    if (mirror.connections > 0 && now < mirror.grow_at) return false;
    if (mirror.grow_at == Clock::time_point{}) {
        mirror.allowed = thread_limit;
    } else if (mirror.allowed < thread_limit && mirror.connections >= mirror.allowed) {
        // A server that refused once is asked for one more at a time.
        ++mirror.allowed;
        mirror.grow_at = now + mirror.back_off;
    }
    int limit = mirror.allowed;
    // A mirror gets one connection until it has answered, two until it has shown that it answers ranges.
    if (!mirror.answered) limit = std::min(limit, are_several() ? 1 : limit);
    if (!mirror.ranges_proven && !mirror.ranges_promised) limit = std::min(limit, 2);
    return mirror.connections < limit;
}

int MirrorSet::choose(int thread_limit, const std::function<bool(int)>& may, Clock::time_point now) {
    std::vector<MirrorItem> items;
    for (int i = 0; i < count(); ++i) {
        const bool usable = may(i) && is_free(i, thread_limit, now);
        items.push_back({at(i).connections, at(i).failures, usable});
    }
    const auto chosen = choose_mirror(items);
    return chosen ? static_cast<int>(*chosen) : none;
}

std::optional<Clock::time_point> MirrorSet::next_chance() const {
    const bool others_give_parts = any_gives_parts();
    std::optional<Clock::time_point> earliest;
    for (int i = 0; i < count(); ++i) {
        const Mirror& mirror = at(i);
        // One that gives the whole only waits for the end of the others.
        if (!is_usable(i) || (others_give_parts && !gives_parts(i))) continue;
        const auto chance =
            mirror.connections > 0 ? std::max(mirror.not_before, mirror.grow_at) : mirror.not_before;
        if (chance == never) continue;
        if (!earliest || chance < *earliest) earliest = chance;
    }
    return earliest;
}

void MirrorSet::back_off(int index, int active, std::optional<std::chrono::seconds> server_asks,
                         Clock::time_point now) {
    Mirror& mirror = at(index);
    mirror.allowed = std::max(active, 1);
    if (mirror.grow_at == never) return;
    mirror.grow_at = now + std::max(mirror.back_off, server_asks.value_or(std::chrono::seconds(0)));
    mirror.back_off = std::min(mirror.back_off * 2, longest_back_off);
}

void MirrorSet::refuse_further(int index, int active, Clock::time_point now) {
    Mirror& mirror = at(index);
    mirror.allowed = std::max(active, 1);
    if (++mirror.refusals >= most_refusals) {
        mirror.grow_at = never;
        return;
    }
    auto pause = after_refusal;
    for (int i = 1; i < mirror.refusals; ++i) pause *= 4;
    mirror.grow_at = std::max(mirror.grow_at, now + pause);
}

void MirrorSet::refuse_all_further(int index) noexcept {
    at(index).grow_at = never;
}

bool MirrorSet::may_serve_more(int index) const {
    const Mirror& mirror = mirrors_[static_cast<std::size_t>(index)];
    return is_usable(index) && mirror.refusals == 0 && mirror.grow_at != never && !mirror.no_ranges;
}

void MirrorSet::serve_further(int index) noexcept {
    Mirror& mirror = at(index);
    if (mirror.refusals == 0 && mirror.grow_at != never) return;
    mirror.refusals = 0;
    mirror.grow_at = {};
}

void MirrorSet::leave(int index, const Result& why) {
    at(index).left = true;
    at(index).why = why;
    if (only_ == index) only_ = none;
}

bool MirrorSet::pardon_different() {
    const auto pardon = [this](auto may) {
        bool any = false;
        for (Mirror& mirror : mirrors_) {
            if (!is_different(mirror) || !may(mirror)) continue;
            mirror.left = false;
            mirror.contradictions = 0;
            any = true;
        }
        return any;
    };
    return pardon([](const Mirror& mirror) { return mirror.answered; }) ||
           (!is_any_usable() && pardon([](const Mirror&) { return true; }));
}

bool MirrorSet::is_any_different() const noexcept {
    return std::any_of(mirrors_.begin(), mirrors_.end(), is_different);
}

bool MirrorSet::is_any_changed() const noexcept {
    return std::any_of(mirrors_.begin(), mirrors_.end(), [](const Mirror& mirror) {
        return is_different(mirror) && mirror.why.code != Code::size_differs;
    });
}

bool MirrorSet::recall_silent() {
    bool any = false;
    for (Mirror& mirror : mirrors_) {
        if (!mirror.left || !std::exchange(mirror.silent, false)) continue;
        mirror.left = false;
        mirror.recalled = any = true;
    }
    return any;
}

void MirrorSet::forget_answers() {
    for (Mirror& mirror : mirrors_) {
        mirror.effective.clear();
        mirror.refusals = 0;
        if (mirror.grow_at == never) mirror.grow_at = {};
        mirror.version_known = mirror.ranges_promised = mirror.ranges_proven = mirror.no_ranges =
            mirror.only_alone = false;
    }
}

bool MirrorSet::forget_way(int index) {
    Mirror& mirror = at(index);
    const bool was_led = !mirror.effective.empty() && mirror.effective != mirror.address;
    mirror.effective.clear();
    return was_led && !std::exchange(mirror.way_asked_again, true);
}

Result MirrorSet::why_none() const {
    const auto other = std::find_if(mirrors_.begin(), mirrors_.end(), [](const Mirror& mirror) {
        return mirror.left && mirror.why.code != Code::hash_differs;
    });
    if (!are_several()) return mirrors_.front().why;
    if (other == mirrors_.end()) return {Code::hash_differs, "Every mirror delivered wrong data."};
    return {other->why.code, "No mirror is left: " + other->why.message()};
}

std::optional<std::size_t> choose_mirror(std::span<const MirrorItem> items) {
    std::optional<std::size_t> chosen;
    int fewest = 0;
    for (std::size_t i = 0; i < items.size(); ++i) {
        const int load = items[i].connections + items[i].failures;
        if (!items[i].usable || (chosen && load >= fewest)) continue;
        chosen = i;
        fewest = load;
    }
    return chosen;
}

}  // namespace vantlow
