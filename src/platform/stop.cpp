#include "platform/stop.h"

#include <algorithm>
#include <thread>

namespace vantlow {

bool WakeEvent::poll_flag(const Deadline& deadline) const noexcept {
    // A person does not notice a stop that comes so much later.
    constexpr std::chrono::milliseconds step{20};
    for (;;) {
        if (flag_.load(std::memory_order_acquire)) return true;
        const int left = deadline.left();
        if (left == 0) return false;
        std::this_thread::sleep_for(left < 0 ? step : std::min(step, std::chrono::milliseconds(left)));
    }
}

StopSource::StopSource(StopSource& parent) {
    from_parent_.emplace(parent.token(), Forward{this, &parent});
}

void StopSource::request(Code reason) noexcept {
    Code none = Code::ok;
    reason_.compare_exchange_strong(none, reason, std::memory_order_acq_rel);
    source_.request_stop();
    wake_.set();
}

}  // namespace vantlow
