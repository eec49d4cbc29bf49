#include "bt/peer/request_window.h"

#include "bt/peer/peer_wire.h"

namespace vantlow {
namespace {

// A rate is taken over so long, and replaces this part of the one before.
constexpr std::chrono::milliseconds measure{500};
constexpr double weight_of_new = 0.5;
// Slow start ends when a measure brings less than this beyond the last one.
constexpr double still_growing = 1.05;

}  // namespace

void RequestWindow::came(std::uint32_t bytes, std::uint32_t owed, Clock::time_point now) noexcept {
    since_ = now;
    waits_ = owed > 0;
    if (bytes_ == 0 && rate_ == 0) measured_ = std::max(measured_, now - measure);
    bytes_ += bytes;
    if (slow_start_) depth_ = std::min(depth_ + 1, most_);
    const auto passed = now - measured_;
    if (passed < measure) return;
    const double speed = static_cast<double>(bytes_) / std::chrono::duration<double>(passed).count();
    if (rate_ > 0 && speed < rate_ * still_growing) slow_start_ = false;
    rate_ = rate_ == 0 ? speed : rate_ + (speed - rate_) * weight_of_new;
    measured_ = now;
    bytes_ = 0;
    if (slow_start_) return;
    const double wanted = rate_ * static_cast<double>(held.count()) / block_size;
    depth_ = static_cast<std::uint32_t>(
        std::clamp(wanted, static_cast<double>(least), static_cast<double>(most_)));
}

}  // namespace vantlow
