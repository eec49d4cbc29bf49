#include "transfer/job/queue.h"

#include <ctime>

namespace vantlow {

CJobQueue::~CJobQueue() = default;

CJobQueue::Id CJobQueue::add(std::unique_ptr<CJobNode> job, RunOptions options,
                             CJobLog::Listener log_listener) {
    const Id id = next_id_++;
    waiting_.push_back({id, std::move(job), std::move(options), std::move(log_listener)});
    return id;
}

std::vector<CJobQueue::Id> CJobQueue::start_waiting() {
    std::vector<Id> started;
    const auto most = static_cast<std::size_t>(services_.settings.number(setting::max_jobs));
    while (!waiting_.empty() && running_.size() < most && !services_.stop.requested()) {
        Waiting& next = waiting_.front();
        auto running = std::make_unique<Running>();
        running->job = std::move(next.job);
        running->log = std::make_unique<CJobLog>(next.listener);
        running->node.job = running->job.get();
        running->node.started = static_cast<std::int64_t>(std::time(nullptr));
        const Id id = next.id;
        running->thread = std::make_unique<CTransferMainThread>(*running->job, services_, next.options,
                                                                *running->log, [this, id] {
                                                                    {
                                                                        const std::lock_guard guard(mutex_);
                                                                        ended_.push_back(id);
                                                                    }
                                                                    changed_.notify_all();
                                                                    if (on_end_) on_end_();
                                                                });
        const Result began = running->thread->start();
        if (!began.ok() && !running_.empty()) {
            // A thread is free at the latest when one of these ends.
            running->thread.reset();
            next.job = std::move(running->job);
            break;
        }
        if (!began.ok()) running->thread->end_unstarted(began);
        running_.emplace(id, std::move(running));
        waiting_.pop_front();
        started.push_back(id);
    }
    return started;
}

std::vector<CJobQueue::Ended> CJobQueue::wait(std::chrono::milliseconds at_most) {
    std::vector<Id> ids;
    {
        std::unique_lock guard(mutex_);
        changed_.wait_for(guard, at_most, [this] { return !ended_.empty(); });
        ids.swap(ended_);
    }
    std::vector<Ended> ended;
    for (const Id id : ids) {
        const auto at = running_.find(id);
        at->second->thread->join();
        Ended entry{id, nullptr, at->second->thread->outcome()};
        at->second->thread.reset();
        entry.job = std::move(at->second->job);
        running_.erase(at);
        ended.push_back(std::move(entry));
    }
    return ended;
}

std::vector<CJobQueue::Ended> CJobQueue::drop_waiting() {
    std::vector<Ended> dropped;
    for (Waiting& entry : waiting_) {
        JobOutcome outcome;
        outcome.result = Code::stopped;
        dropped.push_back({entry.id, std::move(entry.job), std::move(outcome)});
    }
    waiting_.clear();
    return dropped;
}

std::vector<CJobQueue::Id> CJobQueue::running_ids() const {
    std::vector<Id> ids;
    for (const auto& [id, running] : running_) ids.push_back(id);
    return ids;
}

}  // namespace vantlow
