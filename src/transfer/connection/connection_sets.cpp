#include "transfer/connection/connection_sets.h"

#include <algorithm>

namespace vantlow {

void CConnectionSet::add(CConnectionNode& node) {
    const MutexLock guard(lock_);
    nodes_.push_back(&node);
}

void CConnectionSet::remove(CConnectionNode& node) noexcept {
    const MutexLock guard(lock_);
    nodes_.erase(std::remove(nodes_.begin(), nodes_.end(), &node), nodes_.end());
}

int CConnectionSet::count_active() {
    const MutexLock guard(lock_);
    int count = 0;
    for (const CConnectionNode* node : nodes_) {
        if (node->active.load(std::memory_order_relaxed))
            count += node->connections.load(std::memory_order_relaxed);
    }
    return count;
}

std::int64_t ConnectionSets::share_of(std::int64_t limit) {
    const int active = count_active();
    return active > 0 ? std::max<std::int64_t>(limit / active, 1) : -1;
}

}  // namespace vantlow
