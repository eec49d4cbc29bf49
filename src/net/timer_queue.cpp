#include "net/timer_queue.h"

#include <algorithm>

namespace vantlow::net {

TimerQueue::Key TimerQueue::add(Clock::time_point at, Callback call) {
    // Else a call that starts itself anew for a moment that is over would keep run_due() for ever.
    if (running_ != Clock::time_point::min()) at = std::max(at, running_ + Clock::duration(1));
    const Key key{at, count_++};
    const bool first = calls_.empty() || key < calls_.begin()->first;
    calls_.emplace(key, std::move(call));
    if (first && earlier_) earlier_();
    return key;
}

std::optional<Clock::time_point> TimerQueue::next() const noexcept {
    return calls_.empty() ? std::nullopt : std::optional(calls_.begin()->first.first);
}

std::size_t TimerQueue::run_due(Clock::time_point now, const std::atomic<bool>* ended) {
    std::size_t count = 0;
    running_ = now;
    while (!calls_.empty() && calls_.begin()->first.first <= now) {
        if (ended != nullptr && ended->load(std::memory_order_relaxed)) break;
        const Callback call = std::move(calls_.begin()->second);
        calls_.erase(calls_.begin());
        call();
        ++count;
    }
    running_ = Clock::time_point::min();
    return count;
}

void Timer::start(Clock::time_point at, Callback call) {
    cancel();
    key_ = queue_.add(at, [this, call = std::move(call)] {
        key_.reset();
        call();  // which may be the end of this timer
    });
}

void Timer::cancel() noexcept {
    if (key_) queue_.cancel(*key_);
    key_.reset();
}

}  // namespace vantlow::net
