#include "engine/name_keeper.h"

#include <algorithm>
#include <utility>

namespace vantlow {

void NameKeeper::wait_for(Naming naming, const std::function<void()>& wake) {
    const auto entry = std::make_shared<Entry>();
    static_cast<Naming&>(*entry) = std::move(naming);
    {
        const MutexLock guard(mutex_);
        new_.push_back(entry);
    }
    wake();
    MutexLock guard(mutex_);
    changed_.wait(guard, [&entry] { return entry->done; });
}

NameKeeper::Waiting NameKeeper::take() {
    const MutexLock guard(mutex_);
    Waiting waiting(new_.begin(), new_.end());
    std::move(new_.begin(), new_.end(), std::back_inserter(taken_));
    new_.clear();
    return waiting;
}

void NameKeeper::let_go(const Waiting& taken) {
    {
        const MutexLock guard(mutex_);
        std::erase_if(taken_, [&taken](const std::shared_ptr<Entry>& entry) {
            entry->done = entry->done || std::find(taken.begin(), taken.end(), entry) != taken.end();
            return entry->done;
        });
    }
    changed_.notify_all();
}

}  // namespace vantlow
