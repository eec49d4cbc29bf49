#include "app/rpc/schedule_methods.h"

#include "app/cli/engine_texts.h"
#include "app/cli/schedule_json.h"
#include "app/rpc/method_parts.h"
#include "base/text.h"
#include "engine/schedule_texts.h"

namespace vantlow {
namespace {

using rpc::Answer;
using rpc::Fault;
using rpc::Json;
using rpc::Params;

Fault refusal(std::string sentence) {
    return {rpc::fault_code::failed, std::move(sentence)};
}

std::string text_in(const Json& asked, const char* word) {
    const auto at = asked.find(word);
    return at != asked.end() && at->is_string() ? at->get<std::string>() : std::string();
}

// Days come as a text ("mon,tue", "mon-fri", "daily") or as an array of their names.
std::string days_in(const Json& asked) {
    const auto at = asked.find("days");
    if (at == asked.end() || !at->is_array()) return text_in(asked, "days");
    std::string days;
    for (const Json& one : *at) {
        if (one.is_string()) days += (days.empty() ? "" : ",") + one.get<std::string>();
    }
    return days;
}

// Of the plan and all jobs with times, or of those that are named. A job's own times can be given back.
Answer tell(const Engine& engine, Params& params) {
    std::vector<Guid> jobs;
    if (params.find(0) != nullptr) {
        jobs = find_jobs(engine, params, 0);
    } else {
        for (const CJobNode* job : engine.jobs_below(nullptr)) {
            if (schedule_of(*job).is_set()) jobs.push_back(job->identity);
        }
    }
    if (params.fault()) return *params.fault();
    Json list = Json::array();
    for (const Guid& job : jobs) {
        const CJobNode& record = *engine.find(job);
        Json one = schedule_json(engine, record);
        const TimesWish wish = wish_of(times_of(record), engine.clock());
        one.update({{"gid", rpc::gid_of(job)},
                    {"start", wish.start},
                    {"stop", wish.stop},
                    {"days", wish.days},
                    {"every", wish.every}});
        list.push_back(std::move(one));
    }
    return Json{{"plan", Json(plan_json(engine))}, {"jobs", std::move(list)}};
}

Answer set_plan(Engine& engine, Params& params) {
    WeekPlan plan = engine.week_plan();
    plan.days = 0;  // no plan is asked for
    if (params.find(0) != nullptr) {
        const Json& asked = params.options(0);
        const auto days = parse_weekdays(days_in(asked));
        if (!days) return refusal("The week plan wants days (mon,tue or mon-fri, or daily).");
        plan.days = *days;
        for (const auto& [word, time] :
             {std::pair("start", &WeekPlan::start), std::pair("stop", &WeekPlan::stop)}) {
            if (!asked.contains(word)) continue;
            const auto read = parse_time_of_day(text_in(asked, word));
            if (!read) return refusal("The week plan takes times of day (22:00).");
            plan.*time = *read;
        }
    }
    return answer_of(engine.set_week_plan(plan), "The week plan");
}

std::optional<JobSchedule> schedule_in(const Json& asked, const Engine& engine) {
    const auto flag = asked.find("plan");
    if (flag != asked.end() && flag->is_boolean() && flag->get<bool>()) return JobSchedule{true, {}};
    const auto span = asked.find("every");
    const bool comes_again = span != asked.end() && span->is_number_integer();
    const TimesWish wish{text_in(asked, "start"), text_in(asked, "stop"), days_in(asked),
                         comes_again ? span->get<std::int64_t>() : 0};
    auto times = read_times(wish, engine.clock().now(), engine.clock());
    if (!times) return std::nullopt;
    return JobSchedule{false, *std::move(times)};
}

Answer set_times(Engine& engine, Params& params) {
    const std::vector<Guid> jobs = find_jobs(engine, params, 0);
    if (params.fault()) return *params.fault();
    JobEdit edit;
    edit.schedule = schedule_in(params.options(1), engine);
    if (!edit.schedule) return refusal(std::string(times_complaint));
    return for_all(jobs, [&](const Guid& job) { return engine.change(job, edit); });
}

}  // namespace

void add_schedule_methods(rpc::MethodTable& table, Engine& engine) {
    table.add("vantlow.schedule", [&engine](Params& params) { return tell(engine, params); });
    table.add("vantlow.setWeekPlan", [&engine](Params& params) { return set_plan(engine, params); });
    table.add("vantlow.setSchedule", [&engine](Params& params) { return set_times(engine, params); });
}

}  // namespace vantlow
