// The clock that deadlines, pauses and speeds are measured by, and how whoever decides by it is told the
// time.
#pragma once

#include <chrono>

namespace vantlow {

/// Never set back, and unrelated to the time of day. Rules and books read no clock: whoever asks them hands
/// the time in, so that a test moves it.
using Clock = std::chrono::steady_clock;

/// Tells the time to objects that decide by it when nobody hands it in: how old a kept connection is, when
/// the next one may begin, how fast bytes came. A test gives them one that it moves. The deadlines of the
/// system's own waits (sockets, condition variables) are not asked of it: those pass in real time only. Any
/// thread may call.
class TimeSource {
  public:
    constexpr TimeSource() = default;
    TimeSource(const TimeSource&) = delete;
    TimeSource& operator=(const TimeSource&) = delete;
    virtual ~TimeSource() = default;
    [[nodiscard]] virtual Clock::time_point now() const noexcept { return Clock::now(); }
};

/// The real time. Without any state.
inline const TimeSource system_time{};

}  // namespace vantlow
