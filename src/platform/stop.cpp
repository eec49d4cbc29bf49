#include "platform/stop.h"

#include <algorithm>
#include <thread>

namespace vantlow {

WakeEvent::~WakeEvent() {
    const std::intptr_t made = native_.load(std::memory_order_acquire);
    if (made != unmade && made != none) close(made);
}

// Who makes the event looks at the flag afterwards, who sets the flag looks for the event afterwards:
// whichever is the later one raises it.
std::intptr_t WakeEvent::native() const noexcept {
    std::intptr_t known = native_.load();
    if (known != unmade) return known;
    const std::intptr_t mine = make();
    if (!native_.compare_exchange_strong(known, mine)) {
        if (mine != none) close(mine);
        return known;
    }
    if (mine != none && flag_.load()) raise(mine);
    return mine;
}

void WakeEvent::set() noexcept {
    flag_.store(true);
    const std::intptr_t made = native_.load();
    if (made != unmade && made != none) raise(made);
}

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
