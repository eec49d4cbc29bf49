// A job's connections are started where the policy wants more, let go where they ended.
#include <algorithm>

#include "transfer/job/main_thread.h"

namespace vantlow {

// Joins the sub threads that ended, or all of them.
void CTransferMainThread::reap(bool all) {
    std::vector<CTransferSubThread*> gone;
    {
        const MutexLock guard(mutex_);
        gone.swap(ended_);
    }
    std::erase_if(subs_, [&](const auto& sub) {
        return all || std::find(gone.begin(), gone.end(), sub.get()) != gone.end();
    });
    if (all) {
        const MutexLock guard(mutex_);
        ended_.clear();
    }
}

// Waits a moment, once the job has all its bytes, for connections whose servers have not said yet that this
// was all: they serve the next job.
void CTransferMainThread::let_close() {
    const auto until = now() + std::chrono::milliseconds(250);
    const auto is_closing = [](const auto& sub) { return sub->is_closing(); };
    while (std::any_of(subs_.begin(), subs_.end(), is_closing) && now() < until) {
        wait_for_news(until);
        if (stop_.requested()) return;
        reap(false);
    }
}

void CTransferMainThread::retire_all() {
    for (auto& sub : subs_) sub->retire();
}

// Adds connections: one until the server has shown that it answers ranges, then as many as the job and the
// server allow.
void CTransferMainThread::grow() {
    for (;;) {
        const int connections = static_cast<int>(subs_.size());
        const bool may = decide([&](JobPolicy& policy) {
            policy.replace_slow(connections);
            return policy.may_start(connections);
        });
        if (!may || !start_one()) return;
    }
}

bool CTransferMainThread::start_one() {
    SubThreadHost& host = *this;
    auto sub = std::make_unique<CTransferSubThread>(
        host, SubThreadTools{services_.connections, services_.libraries, services_.settings, log_, stop_,
                             services_.threads, pace_});
    const PolicyRules now_rules = rules();
    Worker& worker = sub->worker();
    worker.id = ++next_worker_;
    const bool has_work = decide([&](JobPolicy& policy) VANTLOW_REQUIRES(lock_) {
        if (!policy.enlist(worker, now_rules, now())) return false;
        by_worker_[worker.id] = sub.get();
        return true;
    });
    if (!has_work) return false;
    {
        const MutexLock guard(mutex_);
        ++attached_;
    }
    const Result started = sub->start();
    no_thread_left_ = started.ok() ? 0 : no_thread_left_ + 1;
    if (started.ok()) {
        subs_.push_back(std::move(sub));
        return true;
    }
    // The others go on with its part. That is told as no news, which would have it tried again at once.
    {
        const MutexLock guard(lock_);
        policy_.strike(worker, started);
        static_cast<void>(policy_.take_effects());
        by_worker_.erase(worker.id);
    }
    const MutexLock guard(mutex_);
    --attached_;
    return false;
}

}  // namespace vantlow
