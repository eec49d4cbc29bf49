// The job's connections: as many as are worth it, slow ones replaced, those that ended let go.
#include <algorithm>

#include "transfer/job/main_thread.h"
#include "transfer/job/work_rule.h"

namespace vantlow {

// Joins the sub threads that ended, or all of them.
void CTransferMainThread::reap(bool all) {
    std::vector<CTransferSubThread*> gone;
    {
        const std::lock_guard guard(mutex_);
        gone.swap(ended_);
    }
    std::erase_if(subs_, [&](const auto& sub) {
        return all || std::find(gone.begin(), gone.end(), sub.get()) != gone.end();
    });
    if (all) {
        const std::lock_guard guard(mutex_);
        ended_.clear();
    }
}

// The job has all its bytes. A connection whose server still says so is worth a moment: it serves the next
// job.
void CTransferMainThread::let_close() {
    const auto until = from_now(std::chrono::milliseconds(250));
    const auto is_closing = [](const auto& sub) { return sub->is_closing(); };
    while (std::any_of(subs_.begin(), subs_.end(), is_closing) && Clock::now() < until) {
        wait_for_news(until);
        if (stop_.requested()) return;
        reap(false);
    }
}

void CTransferMainThread::retire_all() {
    for (auto& sub : subs_) sub->retire();
}

bool CTransferMainThread::start_one() {
    std::vector<bool> tried(static_cast<std::size_t>(mirrors_.count()));
    for (;;) {
        int mirror = MirrorSet::none;
        {
            const std::lock_guard guard(lock_);
            mirror = mirrors_.choose(job_.thread_limit(),
                                     [&](int i) { return !tried[static_cast<std::size_t>(i)]; });
        }
        if (mirror == MirrorSet::none) return false;
        if (start_with(mirror)) return true;
        // Work that this mirror may not do may be left for another.
        tried[static_cast<std::size_t>(mirror)] = true;
    }
}

bool CTransferMainThread::start_with(int mirror) {
    SubThreadHost& host = *this;
    auto sub = std::make_unique<CTransferSubThread>(
        host, SubThreadTools{services_.connections, services_.libraries, services_.settings, log_, stop_,
                             services_.threads, pace_});
    sub->mirror = mirror;
    if (!take_work(*sub)) {
        sub->mirror = MirrorSet::none;
        return false;
    }
    {
        const std::lock_guard guard(lock_);
        ++mirrors_.at(mirror).connections;
    }
    const Result started = sub->start();
    no_thread_left_ = !started.ok();
    if (!started.ok()) {
        not_started(*sub, started);
        return false;
    }
    subs_.push_back(std::move(sub));
    return true;
}

// The others go on with its part. No news, which would have it tried again at once.
void CTransferMainThread::not_started(CTransferSubThread& sub, const Result& why) {
    {
        const std::lock_guard guard(lock_);
        --mirrors_.at(sub.mirror).connections;
        sub.segment->worker = nullptr;
        sub.segment = nullptr;
    }
    const std::lock_guard guard(mutex_);
    --attached_;
    last_failure_ = why;
}

// Adds connections once the size is known: one until the server has shown that it answers ranges, then as
// many as the job and the server allow.
void CTransferMainThread::grow() {
    if (!size_reported_) return;
    std::size_t limit = 0;
    {
        const std::lock_guard guard(mutex_);
        limit = static_cast<std::size_t>(std::max(job_.thread_limit() - halted_, 0));
    }
    while (subs_.size() < limit && start_one()) {
    }
}

// A connection that is much slower than others were keeps the job waiting at its end, when there is nothing
// left to cut: it is ended, and grow() gives its segment to a new one.
void CTransferMainThread::replace_slow() {
    constexpr int most_replaced = 16;
    if (!size_reported_ || replaced_ >= most_replaced) return;
    if (subs_.size() >= static_cast<std::size_t>(job_.thread_limit())) return;
    const std::lock_guard guard(lock_);
    std::vector<PaceItem> items;
    for (const auto& segment : job_.segments) {
        const CTransferSubThread* worker = segment->worker;
        if (worker == nullptr && segment->start < segment->end)
            return;  // idle work is there: that comes first
        if (worker == nullptr) {
            items.push_back({});
            continue;
        }
        items.push_back(
            {segment->end - worker->position(), worker->bytes_per_second(), worker->is_settled()});
    }
    if (const auto slow = choose_takeover(items, best_speed_)) {
        CTransferSubThread& worker = *job_.segments[*slow]->worker;
        Mirror* mirror = worker.mirror == MirrorSet::none ? nullptr : &mirrors_.at(worker.mirror);
        if (mirror != nullptr && !mirror->ranges_proven) return;
        if (mirror != nullptr) ++mirror->failures;
        worker.retire();
        ++replaced_;
    }
}

}  // namespace vantlow
