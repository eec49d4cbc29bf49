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
        thread = std::thread([hook = thread_fault_hook, work = std::move(work)] {
            const HookInPlace in_place(hook);
            work();
        });
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
        Work& work = *work_;
        MutexLock guard(work.mutex);
        work.ended.wait(guard, [&]() VANTLOW_REQUIRES(work.mutex) { return work.done; });
    }
    work_.reset();
}

Result ThreadPool::start(Running& running, std::function<void()> work) {
    running.join();
    running.work_ = std::make_shared<Running::Work>();
    running.work_->run = std::move(work);
    if (FaultHook* const hook = thread_fault_hook; hook != nullptr) {
        running.work_->run = [hook, given = std::move(running.work_->run)] {
            const HookInPlace in_place(hook);
            given();
        };
    }
    MutexLock guard(mutex_);
    if (idle_.empty()) {
        const auto worker = workers_.emplace_back(std::make_shared<Worker>());
        worker->next = running.work_;
        Result started = start_thread(worker->thread, [this, worker] { serve(worker); });
        if (!started.ok()) {
            workers_.pop_back();
            running.work_.reset();
        }
        return started;
    }
    const std::shared_ptr<Worker> worker = std::move(idle_.back());
    idle_.pop_back();
    worker->next = running.work_;
    // Without the lock, which the worker takes first. It may have done the work and be gone by now: the
    // pointer keeps what is notified.
    guard.unlock();
    worker->woken.notify_one();
    return {};
}

void ThreadPool::serve(const std::shared_ptr<Worker>& worker) {
    const HookInPlace none(nullptr);  // each work brings its starter's
    MutexLock guard(mutex_);
    for (;;) {
        const auto is_wanted = [&]() VANTLOW_REQUIRES(mutex_) { return worker->next || closing_; };
        if (!worker->woken.wait_for(guard, idle_life_, is_wanted)) {
            std::thread before = take_out(worker);
            guard.unlock();
            if (before.joinable()) before.join();
            return;
        }
        const std::shared_ptr<Running::Work> work = std::exchange(worker->next, nullptr);
        if (!work) return;
        guard.unlock();
        work->run();
        work->run =
            nullptr;  // releases what the work holds on its own thread, before anybody hears that it is done
        // Idle first: who has joined this work and starts the next finds this thread.
        guard.lock();
        idle_.push_back(worker);
        guard.unlock();
        {
            const MutexLock ending(work->mutex);
            work->done = true;
        }
        work->ended.notify_all();
        guard.lock();
    }
}

// An idle thread ends. It cannot join itself, so it is given the one that ended before it, to join that.
std::thread ThreadPool::take_out(const std::shared_ptr<Worker>& worker) {
    std::erase(idle_, worker);
    std::erase(workers_, worker);
    return std::exchange(leaving_, std::move(worker->thread));
}

}  // namespace vantlow
