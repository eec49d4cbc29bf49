#include "platform/thread_pool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

namespace vantlow::test {
namespace {

TEST(ThreadPool, RunsEverythingAndUsesItsThreadsAgain) {
    ThreadPool pool;
    std::mutex mutex;
    std::set<std::thread::id> threads;
    for (int i = 0; i < 50; ++i) {
        ThreadPool::Running running;
        pool.start(running, [&] {
            const std::lock_guard guard(mutex);
            threads.insert(std::this_thread::get_id());
        });
    }
    EXPECT_EQ(threads.size(), 1u);
}

TEST(ThreadPool, NeverLetsWorkWaitForOtherWork) {
    ThreadPool pool;
    constexpr int count = 16;
    std::atomic<int> arrived = 0;
    std::promise<void> all;
    const auto everybody = all.get_future().share();
    std::vector<ThreadPool::Running> running(count);
    for (auto& one : running) {
        pool.start(one, [&] {
            if (++arrived == count) all.set_value();
            everybody.wait();  // each needs all of the others to run
        });
    }
    for (auto& one : running) one.join();
    EXPECT_EQ(arrived, count);
}

// Whoever has joined may take away what the work refers to.
TEST(ThreadPool, EndsWhatTheWorkHoldsBeforeItIsJoined) {
    ThreadPool pool;
    for (int i = 0; i < 200; ++i) {
        auto held = std::make_shared<int>(i);
        const std::weak_ptr<int> watch = held;
        ThreadPool::Running running;
        pool.start(running, [held = std::move(held)] { EXPECT_GE(*held, 0); });
        running.join();
        EXPECT_TRUE(watch.expired());
    }
}

}  // namespace
}  // namespace vantlow::test
