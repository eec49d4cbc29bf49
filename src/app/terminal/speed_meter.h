// The speed at which a counter of bytes grows.
#pragma once

#include <chrono>
#include <cstdint>

namespace vantlow {

/// An exponentially smoothed speed: a sample of three seconds ago counts about a third of one of now. Samples
/// come from the caller, at any distances.
class SpeedMeter {
  public:
    using Time = std::chrono::steady_clock::time_point;

    /// Takes the counter's value at a moment not before that of the last call; returns the speed. A counter
    /// that goes back for a moment and comes again leaves no trace.
    double update(std::int64_t bytes, Time now) noexcept;

    /// Returns bytes a second, never negative; 0 until a quarter of a second was measured.
    [[nodiscard]] double bytes_per_second() const noexcept;

  private:
    bool started_ = false;
    Time last_{};
    std::int64_t last_bytes_ = 0;
    double seconds_ = 0;  ///< measured so far
    double sum_ = 0;      ///< bytes a second, smoothed from 0 on
};

}  // namespace vantlow
