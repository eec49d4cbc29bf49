#include "bt/due_work.h"

#include <utility>

namespace vantlow {

bool DueWork::claim() {
    {
        const MutexLock guard(mutex_);
        if (is_claimed_ || Clock::now() < next_) return false;
        is_claimed_ = true;
    }
    running_.join();
    return true;
}

bool DueWork::start(std::function<Clock::duration()> work) {
    return threads_.start(running_, [this, work = std::move(work)] { done(work()); }).ok();
}

void DueWork::done(Clock::duration pause) {
    const MutexLock guard(mutex_);
    is_claimed_ = false;
    next_ = std::exchange(is_due_again_, false) ? Clock::now() : Clock::now() + pause;
}

void DueWork::make_due() {
    const MutexLock guard(mutex_);
    next_ = Clock::now();
    is_due_again_ = is_claimed_;
}

}  // namespace vantlow
