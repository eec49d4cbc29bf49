#include "engine/timetable.h"

#include <algorithm>

namespace vantlow {
namespace {

bool is_same(const JobTimes& a, const JobTimes& b) {
    return std::ranges::equal(a, b, [](const CScheduleNode& x, const CScheduleNode& y) {
        return x.action == y.action && x.weekdays == y.weekdays && x.time == y.time;
    });
}

bool has(const JobTimes& times, std::int32_t action) {
    return std::ranges::find(times, action, &CScheduleNode::action) != times.end();
}

}  // namespace

bool may_run(const JobTimes& times, const WeekPlan& plan, std::int64_t now, const WallClock& clock) {
    if (times.empty()) return plan.days != 0 && state_at(plan, now, clock).runs;
    const auto next = next_action(times, now, clock);
    return !next || next->action == schedule_action::stop;
}

void Timetable::take(const CJobNode& job) {
    if (job.schedule.empty() && job.start_mode != start_mode::by_schedule) return forget(job.identity);
    JobTimes times = times_of(job);
    const auto at = jobs_.find(job.identity);
    if (at != jobs_.end() && is_same(at->second.times, times)) return;
    const std::int64_t now = clock_.now();
    const auto next = next_action(times, now, clock_);
    jobs_[job.identity] = {std::move(times), now, next ? std::optional(next->at) : std::nullopt, true};
}

void Timetable::look_at(const WeekPlan& plan, std::int64_t now, bool was_set_back) {
    plan_is_new_ = plan != plan_;
    plan_turned_ = false;
    plan_ = plan;
    const bool is_over = plan_state_.next && now >= *plan_state_.next;
    if (!plan_is_new_ && !was_set_back && !is_over) return;
    const bool ran = plan_state_.runs;
    plan_state_ = state_at(plan, now, clock_);
    plan_turned_ = !plan_is_new_ && ran != plan_state_.runs;
}

std::optional<Timetable::Due> Timetable::due_of(Entry& entry, std::int64_t now) const {
    std::optional<Due> due;
    std::int64_t latest = 0;
    for (const CScheduleNode& one : entry.times) {
        const auto at = last_moment(one, now, clock_);
        if (!at || (*at <= entry.seen && one.weekdays != 0) || (due && *at < latest)) continue;
        latest = *at;
        due = Due{{}, one.action == schedule_action::start, true, one.weekdays < 0};
    }
    const bool has_both = has(entry.times, schedule_action::start) && has(entry.times, schedule_action::stop);
    if (!due && entry.is_new && has_both) due = Due{{}, may_run(entry.times, {}, now, clock_), false, false};
    const auto next = next_action(entry.times, now, clock_);
    entry.next = next ? std::optional(next->at) : std::nullopt;
    entry.seen = now;
    entry.is_new = false;
    return due;
}

std::vector<Timetable::Due> Timetable::due(const WeekPlan& plan) {
    const std::int64_t now = clock_.now();
    const bool was_set_back = now < last_;
    last_ = now;
    look_at(plan, now, was_set_back);
    std::vector<Due> all;
    for (auto& [job, entry] : jobs_) {
        if (!entry.times.empty()) {
            if (was_set_back) entry.seen = std::min(entry.seen, now);
            if (!entry.is_new && !was_set_back && (!entry.next || now < *entry.next)) continue;
            auto due = due_of(entry, now);
            if (!due) continue;
            due->job = job;
            all.push_back(*due);
        } else if (plan.days != 0) {
            if (entry.is_new || plan_is_new_ || plan_turned_)
                all.push_back({job, plan_state_.runs, plan_turned_ && !entry.is_new, false});
            entry.is_new = false;
        }
    }
    return all;
}

}  // namespace vantlow
