#include "transfer/connection/reuse.h"

#include <algorithm>

namespace vantlow {
namespace {

constexpr std::size_t most_idle = 64;
// Servers close idle connections after 5 s (Apache) to 75 s (nginx); a request on one that is about to be
// closed is repeated on a new one, which costs a round trip: not worth it for long.
constexpr std::chrono::seconds longest_idle{15};

}  // namespace

std::unique_ptr<CReuseNode> ReusePool::take(const std::string& key, const StopSource& stop) {
    // The candidates are looked at one after another, without the lock: dead ones are closed on the way.
    while (std::unique_ptr<CReuseNode> node = take_newest(key)) {
        node->attach(&stop, nullptr);
        if (node->is_quiet()) return node;
    }
    return nullptr;
}

std::unique_ptr<CReuseNode> ReusePool::take_newest(const std::string& key) {
    std::list<std::unique_ptr<CReuseNode>> stale;  // closed after the lock is given back
    const MutexLock guard(mutex_);
    const auto oldest = time_.now() - longest_idle;
    const auto fresh =
        std::find_if(idle_.begin(), idle_.end(), [&](const auto& node) { return node->since >= oldest; });
    stale.splice(stale.end(), idle_, idle_.begin(), fresh);
    const auto newest =
        std::find_if(idle_.rbegin(), idle_.rend(), [&](const auto& node) { return node->key == key; });
    if (newest == idle_.rend()) return nullptr;
    std::unique_ptr<CReuseNode> node = std::move(*newest);
    idle_.erase(std::next(newest).base());
    return node;
}

void ReusePool::keep(std::unique_ptr<CReuseNode> node) {
    node->since = time_.now();
    node->attach(nullptr, nullptr);
    std::unique_ptr<CReuseNode> surplus;
    const MutexLock guard(mutex_);
    idle_.push_back(std::move(node));
    if (idle_.size() > most_idle) {
        surplus = std::move(idle_.front());
        idle_.pop_front();
    }
}

bool ReusePool::drop_one(const std::string& server) {
    std::unique_ptr<CReuseNode> dropped;
    const MutexLock guard(mutex_);
    const auto at =
        std::find_if(idle_.begin(), idle_.end(), [&](const auto& node) { return node->server == server; });
    if (at == idle_.end()) return false;
    dropped = std::move(*at);
    idle_.erase(at);
    return true;
}

void ReusePool::clear() {
    std::list<std::unique_ptr<CReuseNode>> all;
    const MutexLock guard(mutex_);
    all.swap(idle_);
}

}  // namespace vantlow
