// A connection's share of the program's speed limit, from the settings as they are now.
#pragma once

#include "store/settings.h"
#include "transfer/connection/connection_sets.h"
#include "transfer/connection/pacer.h"

namespace vantlow {

/// Belongs to one connection's thread. The settings are looked at again whenever one of them changes.
class SettingsShare : public SpeedShare {
  public:
    SettingsShare(const Settings& settings, ConnectionSets& sets) : settings_(settings), sets_(sets) {}

    [[nodiscard]] std::int64_t bytes_per_second() override {
        if (const std::uint64_t version = settings_.version(); version != seen_) {
            seen_ = version;
            limit_ = settings_.flag(setting::limit) ? settings_.number(setting::speed_limit) : -1;
        }
        return limit_ < 0 ? -1 : sets_.share_of(limit_);
    }

  private:
    const Settings& settings_;
    ConnectionSets& sets_;
    std::uint64_t seen_ = 0;
    std::int64_t limit_ = -1;
};

}  // namespace vantlow
