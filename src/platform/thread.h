// Threads, which the system may refuse, and a pool of them for short pieces of work.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "base/mutex.h"
#include "base/result.h"

namespace vantlow {

/// Starts a thread. Fails, with a sentence, where the system has none left; `thread` then still runs nothing.
Result start_thread(std::thread& thread, std::function<void()> work);

/// Keeps idle threads for some seconds, for the next piece of work. Any thread may call. The pool outlives
/// everything that it runs; its destructor joins all of its threads.
class ThreadPool {
  public:
    explicit ThreadPool(std::chrono::milliseconds idle_life = std::chrono::seconds(10))
        : idle_life_(idle_life) {}
    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;
    ~ThreadPool();

    /// One piece of work under way, as its starter sees it. Like std::thread it must be joined before it is
    /// destroyed; the destructor does that.
    class Running {
      public:
        Running() = default;
        Running(Running&&) = default;
        Running& operator=(Running&&) = delete;
        ~Running() { join(); }
        /// Returns when the work is done; at once when there is none.
        void join();

      private:
        friend class ThreadPool;
        struct Work {
            std::function<void()> run;
            Mutex mutex;
            bool done VANTLOW_GUARDED_BY(mutex) = false;
            Condition ended;
        };
        std::shared_ptr<Work> work_;
    };

    /// Begins the work on an idle thread, or on a new one; it never waits for other work. Fails where the
    /// system has no further thread; nothing runs then.
    Result start(Running& running, std::function<void()> work);

  private:
    struct Worker {
        std::shared_ptr<Running::Work> next;  ///< guarded by mutex_
        Condition woken;
        std::thread thread;
    };
    void serve(const std::shared_ptr<Worker>& worker);
    std::thread take_out(const std::shared_ptr<Worker>& worker) VANTLOW_REQUIRES(mutex_);

    const std::chrono::milliseconds idle_life_;

    Mutex mutex_;
    bool closing_ VANTLOW_GUARDED_BY(mutex_) = false;
    std::vector<std::shared_ptr<Worker>> idle_
        VANTLOW_GUARDED_BY(mutex_);  ///< the one that stopped last is taken first
    std::vector<std::shared_ptr<Worker>> workers_ VANTLOW_GUARDED_BY(mutex_);
    std::thread leaving_ VANTLOW_GUARDED_BY(mutex_);  ///< the one that ended last; the next to end joins it
};

}  // namespace vantlow
