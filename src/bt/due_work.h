// Work that is due now and then, and done when somebody asks for what it keeps.
#pragma once

#include <functional>

#include "base/clock.h"
#include "base/mutex.h"
#include "platform/thread.h"

namespace vantlow {

/// One piece of work at a time, on a thread of a pool, no sooner than it said the last time. Any thread may
/// call; the destructor waits for the work.
class DueWork {
  public:
    explicit DueWork(ThreadPool& threads) : threads_(threads) {}  ///< outlives the object
    ~DueWork() { running_.join(); }
    DueWork(const DueWork&) = delete;
    DueWork& operator=(const DueWork&) = delete;

    /// True for one caller when the work is due: start() or done() must follow.
    [[nodiscard]] bool claim();
    /// Has the claimed work done; it returns the time until it is due again. False, and nothing is done: the
    /// system has no thread for it.
    bool start(std::function<Clock::duration()> work);
    /// Ends a claim without a thread: due again after that time.
    void done(Clock::duration pause);
    /// Due at once, also where it is under way: then once more behind it.
    void make_due();

  private:
    ThreadPool& threads_;
    Mutex mutex_;
    bool is_claimed_ VANTLOW_GUARDED_BY(mutex_) = false;
    bool is_due_again_ VANTLOW_GUARDED_BY(mutex_) = false;  ///< make_due() came while it was claimed
    Clock::time_point next_ VANTLOW_GUARDED_BY(mutex_){};
    ThreadPool::Running running_;  ///< of whoever has claimed
};

}  // namespace vantlow
