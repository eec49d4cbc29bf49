#include "platform/wake.h"

#include <algorithm>
#include <thread>

#include "platform/deadline.h"

namespace vantlow {

bool WakeEvent::poll_flag(const Deadline& deadline) const noexcept {
    constexpr std::chrono::milliseconds step{20};
    for (;;) {
        if (flag_.load(std::memory_order_acquire)) return true;
        const int left = deadline.left();
        if (left == 0) return false;
        std::this_thread::sleep_for(left < 0 ? step : std::min(step, std::chrono::milliseconds(left)));
    }
}

}  // namespace vantlow
