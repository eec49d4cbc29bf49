// The engine's operations on times: the week plan, and jobs that start and stop by the clock.
#include <algorithm>
#include <string>

#include "base/text.h"
#include "engine/engine.h"
#include "engine/schedule_texts.h"

namespace vantlow {

Done Engine::set_week_plan(const WeekPlan& plan) {
    if (plan.days < 0 || plan.days > every_day) return {Done::Fault::bad_value};
    const auto write = [this](const auto& setting, const std::string& value) {
        return set_setting(setting.section, setting.key, to_utf16(value));
    };
    // The days are last: they switch it on.
    if (Done done = write(setting::start_time, time_of_day_text(plan.start)); !done.ok()) return done;
    if (Done done = write(setting::stop_time, time_of_day_text(plan.stop)); !done.ok()) return done;
    return write(setting::week, std::to_string(plan.days));
}

std::optional<NextAction> Engine::next_action_of(const CJobNode& job) const {
    const JobSchedule schedule = schedule_of(job);
    if (!schedule.by_plan) return next_action(schedule.times, clock().now(), clock());
    const PlanState state = state_at(week_plan(), clock().now(), clock());
    if (!state.next) return std::nullopt;
    return NextAction{state.runs ? schedule_action::stop : schedule_action::start, *state.next};
}

void Engine::take_into_timetable(const StoreChange& change) {
    using What = StoreChange::What;
    if (change.what == What::job_removed) return timetable_.forget(change.identity);
    if (change.what == What::everything) {
        timetable_.clear();
        for (const CJobNode* job : store_->jobs_below(nullptr)) timetable_.take(*job);
        return;
    }
    if (change.what != What::job_added && (change.fields & StoreChange::options) == 0) return;
    const CJobNode* const job = store_->find(change.identity);
    if (job != nullptr) timetable_.take(*job);
}

// Forgets the entries that were meant once and have acted.
void Engine::drop_passed_times(CJobNode& job, bool starts) {
    const std::int64_t now = clock().now();
    const auto gone = std::erase_if(
        job.schedule, [now](const auto& entry) { return entry->weekdays == 0 && entry->time <= now; });
    if (gone == 0) return;
    // Without any of its own the job would go by the plan.
    if (job.schedule.empty() && job.start_mode == start_mode::by_schedule)
        job.start_mode = starts ? start_mode::at_once : start_mode::by_hand;
    store_->changed(job, StoreChange::options);
}

void Engine::keep_to_times() {
    for (const Timetable::Due& due : timetable_.due(week_plan())) {
        CJobNode* const job = store_->find(due.job);
        if (job == nullptr) continue;
        if (due.at_its_time) drop_passed_times(*job, due.start);
        const JobState state = job->state;
        const bool rests = state == JobState::stopped || (state == JobState::failed && due.at_its_time);
        const bool moves = state == JobState::waiting || state == JobState::running ||
                           (is_sharing(due.job) && due.at_its_time);
        const bool comes_again = due.again && state == JobState::finished;
        if (due.start && (rests || comes_again)) static_cast<void>(start(due.job));
        if (!due.start && moves) static_cast<void>(stop(due.job));
    }
}

// Brings a job whose times were just given into the state that these ask for now.
void Engine::apply_schedule(CJobNode& job) {
    const JobSchedule schedule = schedule_of(job);
    if (!runner_ || !schedule.is_set()) return;
    const bool runs = may_run(schedule.times, week_plan(), clock().now(), clock());
    const bool moves = job.state == JobState::waiting || job.state == JobState::running;
    if (!runs && moves) static_cast<void>(stop(job.identity));
    if (runs && job.state == JobState::stopped && schedule.starts_by_itself())
        static_cast<void>(start(job.identity));
}

}  // namespace vantlow
