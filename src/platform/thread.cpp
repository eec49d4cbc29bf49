#include "platform/thread.h"

#include <algorithm>
#include <system_error>
#include <utility>

#include "platform/fault_hook.h"

namespace vantlow {
namespace {

Result refused(const std::error_code& error) {
    return {Code::transient, "The system cannot start another thread: " + error.message(), error.value()};
}

}  // namespace

Result start_thread(std::thread& thread, std::function<void()> work) {
    if (const int error = ask_hook(Operation::start_thread); error != 0)
        return refused({error, std::generic_category()});
    try {
        thread = std::thread(std::move(work));
    } catch (const std::system_error& error) {
        return refused(error.code());
    }
    return {};
}

ThreadPool::~ThreadPool() {
    {
        const MutexLock guard(mutex_);
        closing_ = true;
        for (const auto& worker : workers_) worker->woken.notify_one();
    }
    for (const auto& worker : workers_) worker->thread.join();
    if (leaving_.joinable()) leaving_.join();
}

void ThreadPool::Running::join() {
    if (!work_) return;
    {
        MutexLock guard(pool_->mutex_);
        work_->ended.wait(guard, [this] { return work_->done; });
    }
    work_.reset();
}

Result ThreadPool::start(Running& running, std::function<void()> work) {
    running.join();
    running.pool_ = this;
    running.work_ = std::make_shared<Running::Work>();
    running.work_->run = std::move(work);
    const MutexLock guard(mutex_);
    if (idle_.empty()) {
        Worker* const worker = workers_.emplace_back(std::make_unique<Worker>()).get();
        worker->next = running.work_;
        Result started = start_thread(worker->thread, [this, worker] { serve(*worker); });
        if (!started.ok()) {
            workers_.pop_back();
            running.work_.reset();
        }
        return started;
    }
    Worker* const worker = idle_.back();
    idle_.pop_back();
    worker->next = running.work_;
    // The notification stays within the lock: otherwise the worker may see the work by itself, do it and be
    // gone.
    worker->woken.notify_one();
    return {};
}

void ThreadPool::serve(Worker& worker) {
    MutexLock guard(mutex_);
    for (;;) {
        const auto is_wanted = [&]() VANTLOW_REQUIRES(mutex_) { return worker.next || closing_; };
        if (!worker.woken.wait_for(guard, idle_life_, is_wanted)) {
            std::thread before = take_out(worker);
            guard.unlock();
            if (before.joinable()) before.join();
            return;
        }
        const std::shared_ptr<Running::Work> work = std::exchange(worker.next, nullptr);
        if (!work) return;
        guard.unlock();
        work->run();
        work->run =
            nullptr;  // releases what the work holds on its own thread, before anybody hears that it is done
        guard.lock();
        work->done = true;
        idle_.push_back(&worker);
        guard.unlock();
        work->ended.notify_all();
        guard.lock();
    }
}

// An idle thread ends. It cannot join itself, so it is given the one that ended before it, to join that.
std::thread ThreadPool::take_out(Worker& worker) {
    std::erase(idle_, &worker);
    const auto at =
        std::find_if(workers_.begin(), workers_.end(), [&](const auto& one) { return one.get() == &worker; });
    const std::unique_ptr<Worker> own = std::move(*at);
    workers_.erase(at);
    return std::exchange(leaving_, std::move(own->thread));
}

}  // namespace vantlow
