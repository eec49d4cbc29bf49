// How everything that waits is told to end.
#pragma once

#include <atomic>
#include <chrono>
#include <optional>
#include <stop_token>

#include "base/result.h"
#include "platform/wake.h"

namespace vantlow {

/// One stop object of an application, a job or a connection. A request travels to every source that was made
/// with this one as its parent, and wakes every wait that watches it. Once requested it stays requested.
/// A parent outlives its children. Any thread may call.
class StopSource {
  public:
    StopSource() = default;
    explicit StopSource(StopSource& parent);  // NOLINT(google-explicit-constructor): no copy, a child
    StopSource(const StopSource&) = delete;
    StopSource& operator=(const StopSource&) = delete;

    /// Asks everything that watches this source to end; the first reason stays. `stopped` unless the stop
    /// concerns one connection only.
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
