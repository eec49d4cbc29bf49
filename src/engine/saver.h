// When the store is saved: soon behind what must not be forgotten, and never so often that saving becomes
// what jobs wait for.
#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "store/job_store.h"
#include "store/settings.h"

namespace vantlow {

/// Saves one store. One thread.
class Saver {
  public:
    /// `refresh` brings the records of running jobs to what may be saved; `failed` hears of a failure, once
    /// until another reason comes.
    Saver(JobStore& store, const Settings& settings, std::function<void()> refresh,
          std::function<void(const std::string&)> failed)
        : store_(store), settings_(settings), refresh_(std::move(refresh)), failed_(std::move(failed)) {}

    /// False with a sentence when it failed.
    bool save(std::string& error);
    /// What a client changed: saved at once, or with the next tick where saving takes long.
    bool save_soon(std::string& error);
    /// A job began or ended.
    void save_after_event();
    /// Once a second.
    void tick();

  private:
    JobStore& store_;
    const Settings& settings_;
    std::function<void()> refresh_;
    std::function<void(const std::string&)> failed_;
    std::chrono::steady_clock::time_point next_event_save_{};
    int pause_ = 0;     ///< ticks until a save that failed is tried again
    std::string told_;  ///< the failure that was told last
};

}  // namespace vantlow
