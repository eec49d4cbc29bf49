// How a wait ends: by its time (Deadline), by an event of the system (WakeEvent), by a request that travels
// downwards (StopSource).
#pragma once

#include <atomic>
#include <chrono>
#include <climits>
#include <cstdint>
#include <optional>
#include <stop_token>

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

/// One stop object of an application, a job or a connection. A request travels to every source that was made
/// with this one as its parent, and wakes every wait that watches it. Once requested it stays requested.
/// A parent outlives its children. Any thread may call.
class StopSource {
  public:
    StopSource() = default;
    explicit StopSource(StopSource& parent);  // NOLINT(google-explicit-constructor): no copy, a child
    StopSource(const StopSource&) = delete;
    StopSource& operator=(const StopSource&) = delete;

    /// Asks everything that watches this source to end; the first reason is kept. The reason is `stopped`
    /// unless the stop concerns one connection only.
    void request(Code reason = Code::stopped) noexcept;

    [[nodiscard]] bool requested() const noexcept { return source_.stop_requested(); }
    /// The reason; Code::ok while nothing was requested.
    [[nodiscard]] Code reason() const noexcept { return reason_.load(std::memory_order_acquire); }
    /// For std::condition_variable_any and std::stop_callback.
    [[nodiscard]] std::stop_token token() const noexcept { return source_.get_token(); }
    /// Set from the request on.
    [[nodiscard]] const WakeEvent& wake() const noexcept { return wake_; }

    /// Sleeps; true when the sleep was cut short by a request (or one was there before).
    bool wait_for(std::chrono::milliseconds time) const noexcept { return wake_.wait(time); }

  private:
    struct Forward {
        StopSource* child;
        StopSource* parent;
        void operator()() const noexcept { child->request(parent->reason()); }
    };

    std::stop_source source_;
    std::atomic<Code> reason_{Code::ok};
    WakeEvent wake_;
    std::optional<std::stop_callback<Forward>> from_parent_;  // last: it may fire while it is made
};

}  // namespace vantlow
