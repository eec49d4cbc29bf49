#include "app/cli/schedule_json.h"

#include "app/process/job_view.h"
#include "app/terminal/quantities.h"
#include "base/text.h"
#include "engine/schedule_texts.h"

namespace vantlow {
namespace {

using nlohmann::ordered_json;

ordered_json days_json(std::int32_t days) {
    ordered_json list = ordered_json::array();
    const std::string text = weekdays_text(days);
    for (const std::string_view day : split(text, ',')) {
        if (!day.empty()) list.push_back(day);
    }
    return list;
}

ordered_json moment_json(const std::optional<std::int64_t>& at) {
    return at ? ordered_json(iso_time(*at)) : ordered_json(nullptr);
}

}  // namespace

std::string_view schedule_action_name(std::int32_t action) noexcept {
    return action == schedule_action::start ? "start" : "stop";
}

nlohmann::ordered_json plan_json(const Engine& engine) {
    const WeekPlan plan = engine.week_plan();
    if (plan.days == 0) return nullptr;
    const PlanState state = state_at(plan, engine.clock().now(), engine.clock());
    return {{"days", days_json(plan.days)},
            {"start", time_of_day_text(plan.start)},
            {"stop", time_of_day_text(plan.stop)},
            {"runs", state.runs},
            {"next", moment_json(state.next)}};
}

nlohmann::ordered_json schedule_json(const Engine& engine, const CJobNode& job) {
    ordered_json entries = ordered_json::array();
    for (const CScheduleNode& entry : times_of(job)) {
        ordered_json one = {{"action", schedule_action_name(entry.action)}};
        const bool is_weekly = entry.weekdays > 0;
        one["at"] = is_weekly ? time_of_day_text(entry.time) : iso_time(entry.time);
        if (is_weekly) one["days"] = days_json(entry.weekdays);
        if (entry.weekdays < 0) one["every"] = -static_cast<std::int64_t>(entry.weekdays);
        entries.push_back(std::move(one));
    }
    ordered_json next = nullptr;
    if (const auto action = engine.next_action_of(job))
        next = {{"action", schedule_action_name(action->action)}, {"at", iso_time(action->at)}};
    return {{"id", guid_text(job.identity)},
            {"plan", schedule_of(job).by_plan},
            {"entries", std::move(entries)},
            {"next", std::move(next)}};
}

}  // namespace vantlow
