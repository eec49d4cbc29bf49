#include "platform/stop.h"

#include <algorithm>

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

void StopWatcher::attach() {
    {
        const MutexLock guard(source_.mutex_);
        if (!source_.requested()) {
            waits_ = true;
            behind_ = source_.first_;
            if (behind_ != nullptr) behind_->before_ = this;
            source_.first_ = this;
            return;
        }
    }
    run();
}

void StopWatcher::detach() {
    MutexLock guard(source_.mutex_);
    if (waits_) {
        (before_ != nullptr ? before_->behind_ : source_.first_) = behind_;
        if (behind_ != nullptr) behind_->before_ = before_;
        return;
    }
    // Within its own call it need not wait for its end.
    if (source_.runner_ == std::this_thread::get_id()) return;
    source_.ran_.wait(guard, [this]() VANTLOW_REQUIRES(source_.mutex_) { return source_.running_ != this; });
}

StopSource::StopSource(StopSource& parent) {
    from_parent_.emplace(*this, parent);
}

StopWatcher* StopSource::next_watcher() const {
    const MutexLock guard(mutex_);
    if (running_ != nullptr) ran_.notify_all();
    StopWatcher* const next = first_;
    running_ = next;
    runner_ = next != nullptr ? std::this_thread::get_id() : std::thread::id();
    if (next == nullptr) return nullptr;
    first_ = next->behind_;
    if (first_ != nullptr) first_->before_ = nullptr;
    next->waits_ = false;
    return next;
}

void StopSource::request(Code reason) noexcept {
    Code none = Code::ok;
    // The first request alone calls: a watcher that comes later sees the reason and calls itself.
    if (reason_.compare_exchange_strong(none, reason)) {
        while (StopWatcher* const next = next_watcher()) next->run();
    }
    wake_.set();
}

}  // namespace vantlow
