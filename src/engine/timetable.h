// The jobs that start and stop by the clock, and what is due of them.
#pragma once

#include <cstdint>
#include <optional>
#include <unordered_map>
#include <vector>

#include "engine/schedule.h"

namespace vantlow {

/// Remembers the next moment of each job with entries of its own, and who goes by the week plan. Knows no
/// store: its owner hands the jobs in when they come, change and go. One thread.
class Timetable {
  public:
    explicit Timetable(const WallClock& clock) : clock_(clock) {}

    /// Takes a job in as it is now.
    void take(const CJobNode& job);
    void forget(const Guid& job) { jobs_.erase(job); }
    void clear() { jobs_.clear(); }

    struct Due {
        Guid job;
        bool start = false;  ///< else it stops
        /// True at the moment itself; false where a job came in that should run at this time, or should not.
        bool at_its_time = false;
        bool again = false;  ///< a finished job starts anew
    };
    /// The actions that are due, each job once. To be called every second or so; an action that was handed
    /// out is not due any more. Entries that were meant once and came to nothing, because the program did not
    /// run, are due at the next call; of others only those that come while the program runs are.
    std::vector<Due> due(const WeekPlan& plan);

  private:
    struct Entry {
        JobTimes times;         ///< none: it goes by the plan
        std::int64_t seen = 0;  ///< actions until then are over, but for those that are meant once
        std::optional<std::int64_t> next;
        bool is_new = true;
    };
    void look_at(const WeekPlan& plan, std::int64_t now, bool was_set_back);
    [[nodiscard]] std::optional<Due> due_of(Entry& entry, std::int64_t now) const;

    const WallClock& clock_;
    std::unordered_map<Guid, Entry, GuidHash> jobs_;
    std::int64_t last_ = 0;  ///< when it was asked last
    WeekPlan plan_;
    PlanState plan_state_;
    bool plan_is_new_ = false;
    bool plan_turned_ = false;  ///< it began or ended to run jobs
};

/// True where a job with these times, or by the plan where there are none, is meant to run at a moment: what
/// comes next is its stop.
bool may_run(const JobTimes& times, const WeekPlan& plan, std::int64_t now, const WallClock& clock);

}  // namespace vantlow
