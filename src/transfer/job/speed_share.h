// A connection's share of the speed limits: the program's, from the settings as they are now, and its job's.
#pragma once

#include <algorithm>

#include "store/settings.h"
#include "transfer/connection/connection_sets.h"
#include "transfer/connection/pacer.h"

namespace vantlow {

/// The speed limit of one job. Any thread may call; outlives the job's connections.
struct JobPace {
    std::atomic<std::int64_t> limit{0};  ///< bytes a second for all of its connections; 0: none of its own
    CConnectionSet connections;          ///< the job's

    /// One connection's share; -1: no limit.
    [[nodiscard]] std::int64_t share() {
        const std::int64_t most = limit.load(std::memory_order_relaxed);
        if (most <= 0) return -1;
        return std::max<std::int64_t>(most / std::max(connections.count_active(), 1), 1);
    }
};

/// Belongs to one connection's thread. The settings are looked at again whenever one of them changes.
class SettingsShare : public SpeedShare {
  public:
    SettingsShare(const Settings& settings, ConnectionSets& sets, JobPace& job)
        : settings_(settings), sets_(sets), job_(job) {}

    [[nodiscard]] std::int64_t bytes_per_second() override {
        if (const std::uint64_t version = settings_.version(); version != seen_) {
            seen_ = version;
            limit_ = settings_.flag(setting::limit) ? settings_.number(setting::speed_limit) : -1;
        }
        const std::int64_t of_all = limit_ < 0 ? -1 : sets_.share_of(limit_);
        const std::int64_t of_job = job_.share();
        return of_all < 0 || of_job < 0 ? std::max(of_all, of_job) : std::min(of_all, of_job);
    }

  private:
    const Settings& settings_;
    ConnectionSets& sets_;
    JobPace& job_;
    std::uint64_t seen_ = 0;
    std::int64_t limit_ = -1;
};

}  // namespace vantlow
