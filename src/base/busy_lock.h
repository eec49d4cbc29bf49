// The lock of a job: a busy counter that is waited for in small sleeps.
#pragma once

#include <atomic>
#include <chrono>
#include <thread>

#include "base/mutex.h"

namespace vantlow {

/// A busy counter under a short critical section. Whoever finds it taken dispatches at most one pending
/// window message of its own thread and sleeps 1 ms, so that a thread with windows stays alive while it
/// waits. Hold it for a few instructions only: never across a socket, a file or a callback. Any thread may
/// call.
class VANTLOW_CAPABILITY("busy lock") BusyLock {
  public:
    /// Dispatches at most one pending window message of the calling thread. Nothing where there are no
    /// windows.
    using Pump = void (*)();
    static void set_pump(Pump pump) noexcept { pump_.store(pump); }

    void lock() VANTLOW_ACQUIRE() {
        for (;;) {
            if (try_lock()) return;
            if (Pump pump = pump_.load()) pump();
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    /// One attempt; false at once when the lock is taken.
    bool try_lock() VANTLOW_TRY_ACQUIRE(true) {
        const MutexLock guard(critical_);
        if (counter_.load(std::memory_order_acquire) > 0) return false;
        counter_.fetch_add(1, std::memory_order_acquire);
        return true;
    }
    /// Counts one more holder without waiting, whoever else holds it.
    void force_lock() noexcept VANTLOW_ACQUIRE() { counter_.fetch_add(1, std::memory_order_acquire); }
    void unlock() noexcept VANTLOW_RELEASE() { counter_.fetch_sub(1, std::memory_order_release); }

  private:
    inline static std::atomic<Pump> pump_{nullptr};
    Mutex critical_;
    std::atomic<int> counter_{0};
};

}  // namespace vantlow
