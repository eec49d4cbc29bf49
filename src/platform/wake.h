// A flag that blocking waits can wait for beside their socket.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

namespace vantlow {

class Deadline;

/// An event of the operating system: once set it stays set, and wakes everybody who waits for it, now and
/// later. Any thread may call any operation.
class WakeEvent {
  public:
    WakeEvent();
    ~WakeEvent();
    WakeEvent(const WakeEvent&) = delete;
    WakeEvent& operator=(const WakeEvent&) = delete;

    void set() noexcept;
    /// True when the event is set before the time is over. A negative time waits without end.
    bool wait(std::chrono::milliseconds at_most) const noexcept;

    /// The system's own handle (a descriptor or a HANDLE), for the waits of this folder only; -1: there is
    /// none.
    [[nodiscard]] std::intptr_t native() const noexcept { return native_; }

  private:
    /// The wait where the system gives none.
    bool poll_flag(const Deadline& deadline) const noexcept;

    std::intptr_t native_;  ///< -1 when the system had no event left: flag_ is polled then
    std::atomic<bool> flag_{false};
};

}  // namespace vantlow
