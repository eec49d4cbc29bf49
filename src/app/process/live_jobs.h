// The figures of the jobs that run now, measured once for all panes.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <unordered_map>

#include "app/terminal/speed_meter.h"
#include "base/guid.h"
#include "engine/engine.h"

namespace vantlow {

/// One running job, as it was measured last.
struct LiveJob {
    std::int64_t done = 0;   ///< bytes of the file that are there
    std::int64_t size = -1;  ///< bytes; -1: unknown
    double speed = 0;        ///< bytes a second
    int connections = 0;     ///< that receive now
    std::u16string path;     ///< empty while undecided
    std::string waits;       ///< why nothing moves; empty while something does
    bool awaits_place = false;

    [[nodiscard]] std::int64_t seconds_left() const noexcept;  ///< -1: unknown
};

/// Belongs to the engine's thread.
class LiveJobs {
  public:
    using Time = std::chrono::steady_clock::time_point;

    explicit LiveJobs(const Engine& engine) : engine_(engine) {}
    /// Looks at all running jobs; where none runs any more all speeds are 0. At most four times a second;
    /// sooner calls do nothing.
    void look(Time now);

    /// Null where the job does not run, also when it ended since the last look.
    [[nodiscard]] const LiveJob* find(const CJobNode& job) const;
    [[nodiscard]] const LiveJob* find(const Guid& job) const;
    [[nodiscard]] const auto& all() const noexcept { return jobs_; }
    [[nodiscard]] double down() const noexcept { return down_.bytes_per_second(); }
    [[nodiscard]] double up() const noexcept { return up_.bytes_per_second(); }
    /// Body bytes taken from the network since the program started.
    [[nodiscard]] std::int64_t received() const noexcept { return received_; }

  private:
    struct Entry : LiveJob {
        SpeedMeter meter;
        std::int64_t received = 0;
        std::uint64_t round = 0;
    };
    const Engine& engine_;
    std::unordered_map<Guid, Entry, GuidHash> jobs_;
    void count_sent(const RunningJob& running);

    SpeedMeter down_;
    SpeedMeter up_;
    std::int64_t received_ = 0;
    std::int64_t sent_ = 0;
    std::unordered_map<Guid, std::int64_t, GuidHash> sent_by_;  ///< in the run of each job
    std::uint64_t round_ = 0;
    Time last_{};
};

}  // namespace vantlow
