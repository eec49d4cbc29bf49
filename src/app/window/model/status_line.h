// The status bar: speeds, counts, free space, the limit.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "app/process/live_jobs.h"
#include "engine/engine.h"
#include "store/settings.h"

namespace vantlow {

/// Belongs to the engine's thread.
class StatusLine {
  public:
    using Time = std::chrono::steady_clock::time_point;

    StatusLine(Engine& engine, const LiveJobs& live, const Settings& settings)
        : engine_(engine), live_(live), settings_(settings) {}

    /// The folder whose free space is shown; it is asked for at once and then every ten seconds at most.
    void show_folder(const std::u16string& folder);
    void tick(Time now);

    [[nodiscard]] double down() const noexcept { return live_.down(); }
    [[nodiscard]] double up() const noexcept { return live_.up(); }
    [[nodiscard]] std::size_t running() const noexcept { return engine_.running(); }
    [[nodiscard]] std::size_t waiting() const { return engine_.waiting(); }
    [[nodiscard]] std::optional<std::int64_t> free_space() const noexcept { return free_; }
    /// Bytes a second for all jobs together; none: no limit.
    [[nodiscard]] std::optional<std::int64_t> limit() const;
    /// Switches the limit on, to the rate that was set last, or off.
    Done switch_limit(bool on);

    // The parts as texts: "1.2 MiB/s" (with what is sent: "↓ 1.2 MiB/s  ↑ 30 KiB/s"), "2 running", "5
    // waiting", "12 GiB free", "Limit 500 KiB/s".
    [[nodiscard]] std::string speed_part() const;
    [[nodiscard]] std::string running_part() const;
    [[nodiscard]] std::string waiting_part() const;
    [[nodiscard]] std::string space_part() const;
    [[nodiscard]] std::string limit_part() const;

  private:
    Engine& engine_;
    const LiveJobs& live_;
    const Settings& settings_;
    std::u16string folder_;
    std::optional<std::int64_t> free_;
    Time next_look_{};
};

}  // namespace vantlow
