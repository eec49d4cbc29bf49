// How a wait ends: by its time (Deadline), by an event of the system (WakeEvent), by a request that travels
// downwards (StopSource).
#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

#include "base/mutex.h"
#include "base/result.h"

namespace vantlow {

/// A moment that lies so many milliseconds ahead; a negative time means never.
class Deadline {
  public:
    explicit Deadline(std::chrono::milliseconds at_most) noexcept
        : span_(at_most < longest ? at_most : longest) {
        if (span_.count() > 0) end_ = std::chrono::steady_clock::now() + span_;
    }

    /// The time that is left in milliseconds, rounded up so that a wait does not end early; -1: no end.
    [[nodiscard]] int left() const noexcept {
        if (span_.count() <= 0) return span_.count() == 0 ? 0 : -1;
        const auto rest =
            std::chrono::ceil<std::chrono::milliseconds>(end_ - std::chrono::steady_clock::now());
        return rest.count() > 0 ? static_cast<int>(rest.count()) : 0;
    }

  private:
    // The longest time that the systems' waits accept: more than three weeks.
    static constexpr std::chrono::milliseconds longest{INT_MAX};
    std::chrono::milliseconds span_;
    std::chrono::steady_clock::time_point end_{};
};

/// An event of the operating system: once set it stays set, and wakes everybody who waits for it, now and
/// later. The system is asked for one by the first wait only: most events of short jobs never see any. Any
/// thread may call any operation.
class WakeEvent {
  public:
    WakeEvent() = default;
    ~WakeEvent();
    WakeEvent(const WakeEvent&) = delete;
    WakeEvent& operator=(const WakeEvent&) = delete;

    void set() noexcept;
    /// True when the event is set before the time is over. A negative time waits for ever.
    bool wait(std::chrono::milliseconds at_most) const noexcept;

    /// The system's own handle (a descriptor or a HANDLE), for the waits of this folder only; -1 where there
    /// is none. Every later call gives the same.
    [[nodiscard]] std::intptr_t native() const noexcept;

  private:
    static constexpr std::intptr_t unmade = -2;
    static constexpr std::intptr_t none = -1;  ///< the system had no event left: flag_ is polled then

    // The system's part.
    static std::intptr_t make() noexcept;  ///< `none` when it has none left
    static void close(std::intptr_t native) noexcept;
    static void raise(std::intptr_t native) noexcept;

    /// Waits by looking at flag_ every 20 ms, for a system that had no event left.
    bool poll_flag(const Deadline& deadline) const noexcept;

    mutable std::atomic<std::intptr_t> native_{unmade};
    std::atomic<bool> flag_{false};
};

class StopSource;

/// The part of a StopCallback that is the same for every function: StopSource calls it.
class StopWatcher {
  public:
    virtual ~StopWatcher() = default;
    StopWatcher(const StopWatcher&) = delete;
    StopWatcher& operator=(const StopWatcher&) = delete;

  protected:
    explicit StopWatcher(const StopSource& source) noexcept : source_(source) {}
    /// From here on run() may be called, by whichever thread; at once where the stop was requested before.
    void attach();
    /// From here on it is not called, and no other thread is in it any more.
    void detach();
    virtual void run() noexcept = 0;

  private:
    friend class StopSource;
    const StopSource& source_;
    StopWatcher* before_ = nullptr;
    StopWatcher* behind_ = nullptr;
    bool waits_ = false;
};

/// One stop object of an application, a job or a connection. A request travels to every source that was made
/// with this one as its parent, and wakes every wait that watches it. Once requested it stays requested.
/// A parent outlives its children. Any thread may call.
///
/// std::stop_source is not used, nor std::condition_variable_any with its tokens: the C++ library that the
/// Windows build has waits for a callback's end with a semaphore that loses wake-ups, and then hangs for
/// ever.
class StopSource {
  public:
    StopSource() = default;
    ~StopSource() = default;
    explicit StopSource(StopSource& parent);  // NOLINT(google-explicit-constructor): no copy, a child
    StopSource(const StopSource&) = delete;
    StopSource& operator=(const StopSource&) = delete;

    /// Asks everything that watches this source to end; the first reason is kept. The reason is `stopped`
    /// unless the stop concerns one connection only.
    void request(Code reason = Code::stopped) noexcept;

    [[nodiscard]] bool requested() const noexcept { return reason() != Code::ok; }
    /// The reason; Code::ok while nothing was requested.
    [[nodiscard]] Code reason() const noexcept { return reason_.load(std::memory_order_acquire); }
    /// Set from the request on.
    [[nodiscard]] const WakeEvent& wake() const noexcept { return wake_; }

    /// Sleeps; true when the sleep was cut short by a request (or one was there before).
    bool wait_for(std::chrono::milliseconds time) const noexcept { return wake_.wait(time); }

  private:
    friend class StopWatcher;

    /// Passes the parent's request on.
    class Forward final : public StopWatcher {
      public:
        Forward(StopSource& child, const StopSource& parent)
            : StopWatcher(parent), child_(child), parent_(parent) {
            attach();
        }
        ~Forward() override { detach(); }

      private:
        void run() noexcept override { child_.request(parent_.reason()); }
        StopSource& child_;
        const StopSource& parent_;
    };

    /// The next watcher to be called, taken off the list; null when there is none. The one before is done.
    StopWatcher* next_watcher() const;

    std::atomic<Code> reason_{Code::ok};
    WakeEvent wake_;
    mutable Mutex mutex_;
    mutable Condition ran_;
    mutable StopWatcher* first_ VANTLOW_GUARDED_BY(mutex_) = nullptr;
    mutable const StopWatcher* running_ VANTLOW_GUARDED_BY(mutex_) = nullptr;
    mutable std::thread::id runner_ VANTLOW_GUARDED_BY(mutex_);
    std::optional<Forward> from_parent_;  // last: it may fire while it is made
};

/// Calls the function once, when the stop is requested, on the thread that requests it, or at once where it
/// was requested before. The function throws nothing and does not wait. Behind the destructor no thread is in
/// it; it may be destroyed by the function itself. The source outlives the object.
template <class Function>
class StopCallback final : public StopWatcher {
  public:
    StopCallback(const StopSource& source, Function function)
        : StopWatcher(source), function_(std::move(function)) {
        attach();
    }
    ~StopCallback() override { detach(); }

  private:
    void run() noexcept override { function_(); }
    Function function_;
};

/// A condition whose waits a stop ends, too. It outlives those who wait. Any thread may call.
class StopCondition {
  public:
    StopCondition() = default;
    StopCondition(const StopCondition&) = delete;
    StopCondition& operator=(const StopCondition&) = delete;

    void notify_one() {
        const std::lock_guard own(mutex_);
        condition_.notify_one();
    }
    void notify_all() {
        const std::lock_guard own(mutex_);
        condition_.notify_all();
    }

    /// Waits, with the lock given back meanwhile, until `is_so` holds, the stop is requested or the time is
    /// over; returns what `is_so` says at the end. Nobody else's lock is held.
    template <class Lock, class Predicate>
    bool wait_until(MutexLock<Lock>& guard, const StopSource& stop,
                    std::chrono::steady_clock::time_point until, Predicate is_so) {
        const StopCallback wake(stop, [this] { notify_all(); });
        return wait_on(guard, &stop, until, is_so);
    }
    template <class Lock, class Duration, class Predicate>
    bool wait_for(MutexLock<Lock>& guard, const StopSource& stop, const Duration& at_most, Predicate is_so) {
        return wait_until(guard, stop, std::chrono::steady_clock::now() + at_most, std::move(is_so));
    }
    template <class Lock, class Predicate>
    bool wait(MutexLock<Lock>& guard, const StopSource& stop, Predicate is_so) {
        return wait_until(guard, stop, std::chrono::steady_clock::time_point::max(), std::move(is_so));
    }
    /// The same where no stop is to end the wait.
    template <class Lock, class Duration, class Predicate>
    bool wait_for(MutexLock<Lock>& guard, const Duration& at_most, Predicate is_so) {
        return wait_on(guard, nullptr, std::chrono::steady_clock::now() + at_most, is_so);
    }
    template <class Lock, class Predicate>
    void wait(MutexLock<Lock>& guard, Predicate is_so) {
        wait_on(guard, nullptr, std::chrono::steady_clock::time_point::max(), is_so);
    }

  private:
    template <class Lock, class Predicate>
    bool wait_on(MutexLock<Lock>& guard, const StopSource* stop, std::chrono::steady_clock::time_point until,
                 Predicate& is_so) VANTLOW_NO_ANALYSIS {
        // Longer ones are beyond the clocks that some systems wait by.
        constexpr std::chrono::hours longest{24};
        while (!is_so()) {
            const auto now = std::chrono::steady_clock::now();
            if (now >= until) return false;
            {
                // Taken before the caller's lock is given back: nothing that happens then is missed.
                std::unique_lock own(mutex_);
                if (stop != nullptr && stop->requested()) return false;
                guard.unlock();
                condition_.wait_until(own, std::min(until, now + longest));
            }
            guard.lock();
        }
        return true;
    }

    std::mutex mutex_;
    std::condition_variable condition_;
};

}  // namespace vantlow
