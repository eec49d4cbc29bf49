#include "engine/schedule.h"

#include <algorithm>
#include <chrono>
#include <ctime>

#include "base/text.h"
#include "engine/schedule_texts.h"

namespace vantlow {
namespace {

constexpr std::int64_t days_of_week = 7;

std::int64_t floor_divided(std::int64_t value, std::int64_t by) noexcept {
    return value / by - (value % by < 0 ? 1 : 0);
}

// 1970-01-01 was a Thursday.
bool has_day(std::int32_t days, std::int64_t day) noexcept {
    constexpr std::int64_t thursday = 4;
    const std::int64_t weekday = day + thursday - floor_divided(day + thursday, days_of_week) * days_of_week;
    return ((days >> weekday) & 1) != 0;
}

struct Window {
    std::int64_t begin = 0;
    std::int64_t end = 0;
};

// The times of a plan around a moment, merged where one begins as another one ends; in their order.
std::vector<Window> windows_around(const WeekPlan& plan, std::int64_t now, const WallClock& clock) {
    const std::int64_t today = local_day(now, clock);
    std::vector<Window> windows;
    for (std::int64_t day = today - 2; day <= today + days_of_week + 1; ++day) {
        if (!has_day(plan.days, day)) continue;
        const std::int64_t last = plan.stop > plan.start ? day : day + 1;
        const Window window{moment_of(day, plan.start, clock), moment_of(last, plan.stop, clock)};
        if (!windows.empty() && windows.back().end >= window.begin) {
            windows.back().end = std::max(windows.back().end, window.end);
        } else if (window.begin < window.end) {
            windows.push_back(window);
        }
    }
    return windows;
}

// A damaged database may hold any numbers: such an entry stays where it is and never comes.
bool is_meant(const CScheduleNode& entry) noexcept {
    constexpr std::int64_t end_of_year_9999 = 253402300799;
    const std::int64_t span = -static_cast<std::int64_t>(entry.weekdays);
    const bool is_too_often = span > 0 && span < shortest_span;
    return entry.time >= 0 && entry.time <= end_of_year_9999 && !is_too_often;
}

}  // namespace

std::int64_t WallClock::now() const {
    return static_cast<std::int64_t>(std::time(nullptr));
}

std::int64_t WallClock::offset(std::int64_t at) const {
    const std::time_t time = at;
    const std::tm* const local = std::localtime(&time);  // NOLINT(concurrency-mt-unsafe): one thread
    if (local == nullptr) return 0;
    using namespace std::chrono;
    const sys_days day = year(local->tm_year + 1900) / (local->tm_mon + 1) / local->tm_mday;
    constexpr std::int64_t minute = 60;
    return day.time_since_epoch().count() * seconds_of_day +
           (local->tm_hour * minute + local->tm_min) * minute + local->tm_sec - at;
}

std::int64_t moment_of(std::int64_t day, std::int64_t seconds, const WallClock& clock) {
    const std::int64_t local = day * seconds_of_day + seconds;
    const std::int64_t before = local - clock.offset(local - seconds_of_day);
    const std::int64_t after = local - clock.offset(local + seconds_of_day);
    if (before == after || before + clock.offset(before) == local) return before;
    return after + clock.offset(after) == local ? after : before;
}

std::int64_t local_day(std::int64_t at, const WallClock& clock) {
    return floor_divided(at + clock.offset(at), seconds_of_day);
}

WeekPlan week_plan_of(const Settings& settings) {
    const auto time = [&settings](const TextSetting& setting) {
        return parse_time_of_day(to_utf8(settings.text(setting))).value_or(0);
    };
    return {static_cast<std::int32_t>(settings.number(setting::week)), time(setting::start_time),
            time(setting::stop_time)};
}

PlanState state_at(const WeekPlan& plan, std::int64_t now, const WallClock& clock) {
    PlanState state;
    for (const Window& window : windows_around(plan, now, clock)) {
        if (window.end <= now) continue;
        state.runs = window.begin <= now;
        state.next = state.runs ? window.end : window.begin;
        // Every day around the clock: it ends behind all that was looked at.
        if (state.runs && window.end > now + days_of_week * seconds_of_day) state.next.reset();
        break;
    }
    return state;
}

std::optional<std::int64_t> next_moment(const CScheduleNode& entry, std::int64_t now,
                                        const WallClock& clock) {
    if (entry.weekdays == 0) return entry.time > now ? std::optional(entry.time) : std::nullopt;
    if (entry.weekdays < 0) {
        const std::int64_t span = -static_cast<std::int64_t>(entry.weekdays);
        return entry.time > now ? entry.time
                                : entry.time + (floor_divided(now - entry.time, span) + 1) * span;
    }
    const std::int64_t today = local_day(now, clock);
    for (std::int64_t day = today - 1; day <= today + days_of_week + 1; ++day) {
        const std::int64_t at = moment_of(day, entry.time, clock);
        if (has_day(entry.weekdays, day) && at > now) return at;
    }
    return std::nullopt;
}

std::optional<std::int64_t> last_moment(const CScheduleNode& entry, std::int64_t now,
                                        const WallClock& clock) {
    if (entry.weekdays <= 0 && entry.time > now) return std::nullopt;
    if (entry.weekdays == 0) return entry.time;
    if (entry.weekdays < 0) {
        const std::int64_t span = -static_cast<std::int64_t>(entry.weekdays);
        return entry.time + floor_divided(now - entry.time, span) * span;
    }
    const std::int64_t today = local_day(now, clock);
    for (std::int64_t day = today + 1; day >= today - days_of_week - 1; --day) {
        const std::int64_t at = moment_of(day, entry.time, clock);
        if (has_day(entry.weekdays, day) && at <= now) return at;
    }
    return std::nullopt;
}

JobTimes times_of(const CJobNode& job) {
    JobTimes times;
    for (const auto& entry : job.schedule) {
        if (is_meant(*entry)) times.push_back(*entry);
    }
    return times;
}

bool JobSchedule::starts_by_itself() const noexcept {
    return by_plan || std::ranges::find(times, schedule_action::start, &CScheduleNode::action) != times.end();
}

JobSchedule schedule_of(const CJobNode& job) {
    return {job.schedule.empty() && job.start_mode == start_mode::by_schedule, times_of(job)};
}

void set_schedule(CJobNode& job, const JobSchedule& schedule) {
    job.schedule.clear();
    if (!schedule.by_plan) {
        for (const CScheduleNode& entry : schedule.times)
            job.schedule.push_back(std::make_unique<CScheduleNode>(entry));
    }
    if (schedule.starts_by_itself()) {
        job.start_mode = start_mode::by_schedule;
    } else if (job.start_mode == start_mode::by_schedule) {
        job.start_mode = job.state == JobState::stopped ? start_mode::by_hand : start_mode::at_once;
    }
}

std::optional<NextAction> next_action(const JobTimes& times, std::int64_t now, const WallClock& clock) {
    std::optional<NextAction> next;
    for (const CScheduleNode& entry : times) {
        const auto at = next_moment(entry, now, clock);
        if (at && (!next || *at < next->at)) next = NextAction{entry.action, *at};
    }
    return next;
}

}  // namespace vantlow
