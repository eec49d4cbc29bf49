// The way of a running engine's changes to the disk: changes as they happen, the whole store by the clock.
#pragma once

#include <functional>
#include <string>

#include "store/job_store.h"
#include "store/settings.h"

namespace vantlow {

/// Makes the changes of one store safe. A store in memory never needs it. One thread.
class Saver {
  public:
    /// `say` gets sentences for a person: a failure, once until another reason comes, and the store's notes
    /// about its folder.
    Saver(JobStore& store, const Settings& settings, std::function<void(const std::string&)> say)
        : store_(store), settings_(settings), say_(std::move(say)), notes_said_(store.notes().size()) {}
    Saver(const Saver&) = delete;
    Saver& operator=(const Saver&) = delete;

    /// From now on the store writes behind; `wake` (any thread) asks for work(). Both outlive end().
    void begin(std::function<void()> wake);
    void end();
    /// Continues the writing that is under way.
    void work();
    /// Makes the changes safe; nobody waits for it.
    void commit();
    /// Calls `settled` when all changes until now are safe, or cannot be made safe; added jobs are taken back
    /// then.
    void settle(JobStore::Settled settled);
    /// Calls `then` once all changes until now are safe, for actions that must not happen before; nothing is
    /// taken back.
    void when_safe(std::function<void()> then);
    /// Saves the whole store in the background.
    void save_behind();
    /// Once a second.
    void tick();

  private:
    [[nodiscard]] bool writes() const noexcept { return begun_; }
    void hear(const std::string& failure);
    void say_notes();

    JobStore& store_;
    const Settings& settings_;
    std::function<void(const std::string&)> say_;
    std::size_t notes_said_;      ///< of the store's
    std::function<void()> wake_;  ///< any thread
    bool begun_ = false;
    bool at_once_ = false;  ///< a commit is being asked for
    int pause_ = 0;         ///< ticks until what failed is tried again
    std::string said_;      ///< the failure that was said last
};

}  // namespace vantlow
