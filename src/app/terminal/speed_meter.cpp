#include "app/terminal/speed_meter.h"

#include <algorithm>
#include <cmath>

namespace vantlow {
namespace {

constexpr double smoothing_seconds = 3;
constexpr double least_seconds = 0.25;

// Returns the weight of the last `seconds` among all that came before.
double weight_of(double seconds) noexcept {
    return -std::expm1(-seconds / smoothing_seconds);
}

}  // namespace

double SpeedMeter::update(std::int64_t bytes, Time now) noexcept {
    const double seconds = std::chrono::duration<double>(now - last_).count();
    if (started_ && seconds <= 0) return bytes_per_second();
    if (started_) {
        const double speed = static_cast<double>(bytes - last_bytes_) / seconds;
        sum_ += weight_of(seconds) * (speed - sum_);
        seconds_ += seconds;
    }
    started_ = true;
    last_ = now;
    last_bytes_ = bytes;
    return bytes_per_second();
}

double SpeedMeter::bytes_per_second() const noexcept {
    if (seconds_ < least_seconds) return 0;
    // The sum began at 0, not at the first speed: the weight of that zero is taken out again.
    return std::max(0.0, sum_ / weight_of(seconds_));
}

}  // namespace vantlow
