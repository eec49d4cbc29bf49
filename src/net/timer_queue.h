// Work with its moments: a pure object that is given the time.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <utility>

#include "base/clock.h"

namespace vantlow::net {

using Callback = std::function<void()>;

/// Calls in the order of their moments; those of one moment in the order in which they were started. Belongs
/// to the loop's thread. Starting, cancelling and running one takes O(log n).
class TimerQueue {
  public:
    using Key = std::pair<Clock::time_point, std::uint64_t>;

    TimerQueue() = default;
    TimerQueue(const TimerQueue&) = delete;
    TimerQueue& operator=(const TimerQueue&) = delete;

    /// Of no effect on the order but this: a moment that is over comes behind all that run_due() is running.
    Key add(Clock::time_point at, Callback call);
    /// The call will not come. False: it came already, or was cancelled.
    bool cancel(const Key& key) noexcept { return calls_.erase(key) != 0; }
    /// The next moment at which run_due() has something to do.
    [[nodiscard]] std::optional<Clock::time_point> next() const noexcept;
    /// Makes all calls up to this moment, or until `ended` is set, and says how many these were. Calls may
    /// add and cancel others.
    std::size_t run_due(Clock::time_point now, const std::atomic<bool>* ended = nullptr);
    [[nodiscard]] std::size_t size() const noexcept { return calls_.size(); }
    /// Told when something was added in front of everything else: who sleeps until next() has to sleep less.
    void on_earlier(Callback call) { earlier_ = std::move(call); }

  private:
    std::map<Key, Callback> calls_;
    std::uint64_t count_ = 0;
    Clock::time_point running_ = Clock::time_point::min();  ///< what run_due() runs up to now
    Callback earlier_;
};

/// One call that can be started, moved and cancelled. The queue outlives it.
class Timer {
  public:
    explicit Timer(TimerQueue& queue) noexcept : queue_(queue) {}
    ~Timer() { cancel(); }
    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;

    /// Calls once at the moment, never from inside start(). An earlier start is cancelled.
    void start(Clock::time_point at, Callback call);
    void cancel() noexcept;
    [[nodiscard]] bool is_running() const noexcept { return key_.has_value(); }

  private:
    TimerQueue& queue_;
    std::optional<TimerQueue::Key> key_;
};

}  // namespace vantlow::net
