// `vantlow schedule`: the week plan, and the times of jobs.
#include <memory>

#include "app/cli/report.h"
#include "app/cli/schedule_json.h"
#include "app/cli/store/store_command.h"
#include "app/terminal/display_text.h"
#include "app/terminal/quantities.h"
#include "base/text.h"
#include "engine/schedule_texts.h"

namespace vantlow {
namespace {

using nlohmann::ordered_json;

struct ScheduleOptions {
    std::vector<std::string> words;  ///< set, off, plan, or ids, which may stand behind them
    bool shows = false;              ///< "show" was said
    std::string at, until, days, every;

    [[nodiscard]] bool has_times() const {
        return !at.empty() || !until.empty() || !days.empty() || !every.empty();
    }
    [[nodiscard]] std::string verb() const {
        if (shows) return "show";
        for (const char* verb : {"set", "off", "plan"}) {
            if (!words.empty() && words[0] == verb) return verb;
        }
        return has_times() ? "times" : "show";
    }
    [[nodiscard]] std::vector<std::string> ids() const {
        const bool has_verb = verb() != "times" && !words.empty() && words[0] == verb();
        return {words.begin() + (has_verb ? 1 : 0), words.end()};
    }
};

std::string plan_text(const Engine& engine) {
    const WeekPlan plan = engine.week_plan();
    if (plan.days == 0) return "There is no week plan.\n";
    const PlanState state = state_at(plan, engine.clock().now(), engine.clock());
    std::string text = "Downloads that start by schedule run on " + weekdays_text(plan.days) + " from " +
                       time_of_day_text(plan.start) + " to " + time_of_day_text(plan.stop) + ".\n";
    text += state.runs ? "They run now" : "They do not run now";
    if (state.next) text += ", until " + local_moment_text(*state.next, engine.clock());
    return text + ".\n";
}

std::string job_text(const Engine& engine, const CJobNode& job) {
    const JobSchedule schedule = schedule_of(job);
    std::string text = guid_text(job.identity) + "  ";
    if (schedule.by_plan) text += "by the week plan";
    for (const CScheduleNode& entry : schedule.times) {
        const bool is_weekly = entry.weekdays > 0;
        if (&entry != &schedule.times.front()) text += ", ";
        text += std::string(schedule_action_name(entry.action)) + " ";
        text += is_weekly ? weekdays_text(entry.weekdays) + " " + time_of_day_text(entry.time)
                          : local_moment_text(entry.time, engine.clock());
        if (entry.weekdays < 0)
            text += " and every " + human_time(-static_cast<std::int64_t>(entry.weekdays)) + " from then on";
    }
    if (!schedule.is_set()) text += "no times of its own";
    if (const auto next = engine.next_action_of(job))
        text += "; next: " + std::string(schedule_action_name(next->action)) + " " +
                local_moment_text(next->at, engine.clock());
    return text + "\n";
}

// Of the plan and all jobs with times, or of the jobs that are named.
Exit run_show(StoreCommand& command, const ScheduleOptions& options) {
    const Engine& engine = command.engine;
    bool complete = true;
    std::vector<Guid> jobs = find_jobs(command, options.ids(), complete);
    const bool all = options.ids().empty();
    if (all) {
        for (const CJobNode* job : engine.jobs_below(nullptr)) {
            if (schedule_of(*job).is_set()) jobs.push_back(job->identity);
        }
    }
    ordered_json list = ordered_json::array();
    std::string text = all ? plan_text(engine) : std::string();
    for (const Guid& id : jobs) {
        list.push_back(schedule_json(engine, *engine.find(id)));
        text += job_text(engine, *engine.find(id));
    }
    print_answer(command.global, {{"plan", plan_json(engine)}, {"jobs", std::move(list)}}, text);
    return complete ? Exit::done : Exit::failed;
}

Exit run_set(StoreCommand& command, const ScheduleOptions& options) {
    WeekPlan plan = command.engine.week_plan();
    if (!options.days.empty()) plan.days = parse_weekdays(options.days).value();
    if (!options.at.empty()) plan.start = parse_time_of_day(options.at).value();
    if (!options.until.empty()) plan.stop = parse_time_of_day(options.until).value();
    if (plan.days == 0) plan.days = every_day;
    return exit_of(command.engine.set_week_plan(plan), "The week plan");
}

Exit give(StoreCommand& command, const ScheduleOptions& options, const JobSchedule& schedule) {
    bool complete = true;
    JobEdit edit;
    edit.schedule = schedule;
    for (const Guid& job : find_jobs(command, options.ids(), complete)) {
        if (exit_of(command.engine.change(job, edit), guid_text(job)) != Exit::done) complete = false;
    }
    return complete ? Exit::done : Exit::failed;
}

Exit run_schedule(StoreCommand& command, const ScheduleOptions& options) {
    const std::string verb = options.verb();
    if (verb == "show") return run_show(command, options);
    if (verb == "set") return run_set(command, options);
    if (verb == "plan") return give(command, options, {true, {}});
    if (verb == "off" && !options.ids().empty()) return give(command, options, {});
    if (verb == "off") {
        WeekPlan plan = command.engine.week_plan();
        plan.days = 0;
        return exit_of(command.engine.set_week_plan(plan), "The week plan");
    }
    JobSchedule schedule;
    const TimesWish wish{options.at, options.until, options.days,
                         options.every.empty() ? 0 : parse_span(options.every).value().count()};
    const auto times = read_times(wish, command.engine.clock().now(), command.engine.clock());
    if (!times) return complain(std::string(times_complaint), Exit::usage);
    schedule.times = *times;
    return give(command, options, schedule);
}

Complaint check_plan(const ScheduleOptions& options) {
    const auto is_time = [](const std::string& text) { return text.empty() || parse_time_of_day(text); };
    if (!options.ids().empty()) return "set is for the week plan and takes no jobs.";
    if (!options.has_times()) return "set takes --days, --at and --until.";
    if (!options.every.empty()) return "--every is for jobs.";
    if (!is_time(options.at) || !is_time(options.until)) return "The week plan takes times of day (22:00).";
    return std::nullopt;
}

Complaint check_schedule(const ScheduleOptions& options) {
    const std::string verb = options.verb();
    if (!options.days.empty() && !parse_weekdays(options.days))
        return "--days takes days (mon,tue or mon-fri) or daily, not \"" + options.days + "\".";
    if (!options.every.empty() && !parse_span(options.every))
        return "--every takes a span of time (90s, 5m, 2h, 1d), not \"" + options.every + "\".";
    if (verb == "set") return check_plan(options);
    if (verb != "times" && options.has_times()) return verb + " takes no times.";
    if (verb == "plan" && options.ids().empty()) return "name the jobs that go by the week plan.";
    if (verb == "times" && options.ids().empty())
        return "name the jobs that these times are for, or say set.";
    return std::nullopt;
}

}  // namespace

void add_schedule_command(CommandSet& commands) {
    const auto options = std::make_shared<ScheduleOptions>();
    CLI::App& schedule = commands.add_on_data_folder(
        "schedule", "Start and stop downloads by the clock: by a week plan, or each at its own times",
        on_store([options](StoreCommand& command) { return run_schedule(command, *options); }),
        [options] { return check_schedule(*options); });
    schedule.add_option(
        "WORD", options->words,
        "set: change the plan; off: switch it off, or take the times of the jobs that follow; "
        "plan ID...: these go by the plan; ID...: give these jobs times, or show theirs");
    schedule.add_option("--at", options->at,
                        "When to start: 22:00, or 2026-11-27T22:00 (a job), in the local time");
    schedule.add_option("--until", options->until, "When to stop");
    schedule.add_option("--days", options->days, "On these days of each week: mon,tue or mon-fri, or daily");
    schedule.add_option("--every", options->every,
                        "Again after each such span (90s, 5m, 2h, 1d); what has finished is fetched anew");
    // A word of its own: else it would be the command of that name.
    CLI::App& show = *schedule.add_subcommand("show", "Show the plan and the jobs with times, or these jobs");
    show.fallthrough();
    show.add_option("ID", options->words, "The jobs' ids, or the beginnings of them");
    show.callback([options] { options->shows = true; });
}

}  // namespace vantlow
