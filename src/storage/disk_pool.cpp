#include "storage/disk_pool.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "platform/thread.h"

namespace vantlow {
namespace {

constexpr std::size_t most_threads = 8;
// A post that was refused is tried again after this.
constexpr std::chrono::milliseconds refused_pause{20};

std::size_t thread_count(int wanted) {
    if (wanted > 0) return static_cast<std::size_t>(wanted);
    return std::clamp<std::size_t>(std::thread::hardware_concurrency(), 1, most_threads);
}

}  // namespace

struct DiskPool::Results {
    explicit Results(Post to) : post(std::move(to)) {}

    const Post post;
    Mutex mutex;
    std::vector<Callback> waiting VANTLOW_GUARDED_BY(mutex);
    bool under_way VANTLOW_GUARDED_BY(mutex) = false;  ///< a delivery
    bool closed VANTLOW_GUARDED_BY(mutex) = false;

    // However many results there are, one delivery carries them. False where it was refused.
    static bool send(const std::shared_ptr<Results>& self) {
        {
            const MutexLock guard(self->mutex);
            if (self->closed || self->under_way || self->waiting.empty()) return true;
            self->under_way = true;
        }
        if (self->post([self] { deliver(*self); })) return true;
        const MutexLock guard(self->mutex);
        self->under_way = false;
        return false;
    }

    static void deliver(Results& self) {
        std::vector<Callback> calls;
        {
            const MutexLock guard(self.mutex);
            self.under_way = false;
            calls.swap(self.waiting);
        }
        for (const Callback& call : calls) {
            {
                const MutexLock guard(self.mutex);
                if (self.closed) return;  // one of them stopped the pool
            }
            call();
        }
    }
};

DiskPool::DiskPool(Post post, DiskPoolRules rules)
    : rules_(rules), results_(std::make_shared<Results>(std::move(post))) {}

// Starts a thread more where there may be one; false where the pool has none.
bool DiskPool::grow() {
    if (idle_ > 0 || threads_.size() >= thread_count(rules_.threads)) return true;
    std::thread thread;
    if (start_thread(thread, [this] { run(); }).ok()) threads_.push_back(std::move(thread));
    return !threads_.empty();
}

Result DiskPool::add(Work work) {
    {
        const MutexLock guard(mutex_);
        if (ending_) return Code::stopped;
        if (!grow()) return {Code::local_file, "The system has no thread for the disk."};
        works_.push_back(std::move(work));
    }
    news_.notify_one();
    return {};
}

void DiskPool::run() {
    for (;;) {
        Work work;
        const bool sent = Results::send(results_);
        {
            MutexLock guard(mutex_);
            const auto wanted = [this]() VANTLOW_REQUIRES(mutex_) { return ending_ || !works_.empty(); };
            ++idle_;
            if (sent) {
                news_.wait(guard, wanted);
            } else {
                news_.wait_for(guard, refused_pause, wanted);
            }
            --idle_;
            if (ending_) return;
            if (works_.empty()) continue;
            work = std::move(works_.front());
            works_.pop_front();
        }
        work(stop_);
    }
}

void DiskPool::post(Callback result) {
    {
        const MutexLock guard(results_->mutex);
        if (results_->closed) return;
        results_->waiting.push_back(std::move(result));
    }
    // Where it is refused a thread of the pool tries again, or the next result takes this one along.
    if (!Results::send(results_)) news_.notify_one();
}

bool DiskPool::take(std::int64_t bytes) {
    const MutexLock guard(mutex_);
    if (held_ >= rules_.high_water) return false;
    held_ += bytes;
    return true;
}

void DiskPool::give_back(std::int64_t bytes) {
    std::vector<Callback> calls;
    {
        const MutexLock guard(mutex_);
        held_ -= bytes;
        if (held_ < rules_.low_water) calls.swap(room_calls_);
    }
    for (Callback& call : calls) post(std::move(call));
}

void DiskPool::when_room(Callback call) {
    {
        const MutexLock guard(mutex_);
        if (held_ >= rules_.low_water) {
            room_calls_.push_back(std::move(call));
            return;
        }
    }
    post(std::move(call));
}

std::int64_t DiskPool::held() const {
    const MutexLock guard(mutex_);
    return held_;
}

void DiskPool::stop() {
    stop_.request();
    std::vector<std::thread> threads;
    std::deque<Work> dropped;
    {
        const MutexLock guard(mutex_);
        ending_ = true;
        threads.swap(threads_);
        dropped.swap(works_);
    }
    {
        const MutexLock guard(results_->mutex);
        results_->closed = true;
        results_->waiting.clear();
    }
    news_.notify_all();
    for (std::thread& thread : threads) thread.join();
}

}  // namespace vantlow
