// The rules of time: when a week plan and the entries of a job's own timetable let it run.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "store/job.h"
#include "store/settings.h"

namespace vantlow {

namespace setting {
inline constexpr NumberSetting week{
    u"Schedule",
    u"Week",
    0,
    0,
    127,
    "the days on which downloads that start by schedule run, as a sum: 1 Sunday, 2 Monday, 4 "
    "Tuesday, 8 Wednesday, 16 Thursday, 32 Friday, 64 Saturday; 0: there is no week plan"};
inline constexpr TextSetting start_time{u"Schedule", u"StartTime", u"00:00",
                                        "the time of day at which they start on these days (22:00)"};
inline constexpr TextSetting stop_time{
    u"Schedule", u"StopTime", u"00:00",
    "the time of day at which they stop; where it is not behind the start: on the following day"};
}  // namespace setting

/// The values of CJobNode::start_mode.
namespace start_mode {
inline constexpr std::int32_t by_hand = 0;
inline constexpr std::int32_t at_once = 1;
inline constexpr std::int32_t by_schedule = 2;  ///< by its own entries, else by the week plan
}  // namespace start_mode

/// The values of CScheduleNode::action.
namespace schedule_action {
inline constexpr std::int32_t start = 1;
inline constexpr std::int32_t stop = 2;
}  // namespace schedule_action

inline constexpr std::int64_t seconds_of_day = 86400;
/// The shortest span after which an entry may come again, seconds.
inline constexpr std::int64_t shortest_span = 60;

/// Tells the time of day. The rules below read no clock themselves.
class WallClock {
  public:
    constexpr WallClock() = default;
    WallClock(const WallClock&) = delete;
    WallClock& operator=(const WallClock&) = delete;
    virtual ~WallClock() = default;
    /// Seconds since 1970.
    [[nodiscard]] virtual std::int64_t now() const;
    /// Seconds that the local time is ahead of UTC at a moment (seconds since 1970). For the thread of the
    /// engine.
    [[nodiscard]] virtual std::int64_t offset(std::int64_t at) const;
};
inline const WallClock system_wall_clock{};

/// The moment of a local time: `day` counted from 1970-01-01, `seconds` since midnight as a clock on the wall
/// shows them. A time that does not come on that day, because clocks are put forward, means the moment at
/// which it would have come; of one that comes twice the first is meant.
std::int64_t moment_of(std::int64_t day, std::int64_t seconds, const WallClock& clock);
/// The local day of a moment, counted from 1970-01-01.
std::int64_t local_day(std::int64_t at, const WallClock& clock);

/// The week plan.
struct WeekPlan {
    std::int32_t days = 0;   ///< bit 0 Sunday ... bit 6 Saturday, on which it starts; 0: there is none
    std::int64_t start = 0;  ///< seconds since midnight, local time
    std::int64_t stop = 0;   ///< where it is not behind `start`: on the following day
    bool operator==(const WeekPlan&) const = default;
};
WeekPlan week_plan_of(const Settings& settings);

/// A plan at a moment.
struct PlanState {
    bool runs = false;                 ///< jobs may run
    std::optional<std::int64_t> next;  ///< when that changes; none: never
    bool operator==(const PlanState&) const = default;
};
PlanState state_at(const WeekPlan& plan, std::int64_t now, const WallClock& clock);

/// The first moment behind `now` at which an entry acts; none: never again.
std::optional<std::int64_t> next_moment(const CScheduleNode& entry, std::int64_t now, const WallClock& clock);
/// The last moment at which it acted, or had to, not behind `now`.
std::optional<std::int64_t> last_moment(const CScheduleNode& entry, std::int64_t now, const WallClock& clock);

/// The entries of a job as values.
using JobTimes = std::vector<CScheduleNode>;
JobTimes times_of(const CJobNode& job);

/// A person's wish when a job is to run.
struct JobSchedule {
    bool by_plan = false;  ///< by the week plan; then it has no times of its own
    JobTimes times;        ///< none, and not by the plan: whenever its turn comes

    [[nodiscard]] bool is_set() const noexcept { return by_plan || !times.empty(); }
    /// True where it waits for a moment at which it starts.
    [[nodiscard]] bool starts_by_itself() const noexcept;
};
JobSchedule schedule_of(const CJobNode& job);
/// Gives the job its entries and its start mode.
void set_schedule(CJobNode& job, const JobSchedule& schedule);

/// The next action of some entries.
struct NextAction {
    std::int32_t action = 0;
    std::int64_t at = 0;
    bool operator==(const NextAction&) const = default;
};
std::optional<NextAction> next_action(const JobTimes& times, std::int64_t now, const WallClock& clock);

}  // namespace vantlow
