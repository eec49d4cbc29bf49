#include "platform/thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "support/fault_hook.h"

namespace vantlow::test {
namespace {

void begin(ThreadPool& pool, ThreadPool::Running& running, std::function<void()> work) {
    const Result started = pool.start(running, std::move(work));
    EXPECT_TRUE(started.ok()) << started.message();
}

TEST(ThreadPool, RunsEverythingAndUsesItsThreadsAgain) {
    ThreadPool pool;
    std::mutex mutex;
    std::set<std::thread::id> threads;
    for (int i = 0; i < 50; ++i) {
        ThreadPool::Running running;
        begin(pool, running, [&] {
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
        begin(pool, one, [&] {
            if (++arrived == count) all.set_value();
            everybody.wait();  // each needs all of the others to run
        });
    }
    for (auto& one : running) one.join();
    EXPECT_EQ(arrived, count);
}

std::atomic<int> threads_ended = 0;
struct CountsEnd {
    bool used = false;
    ~CountsEnd() { ++threads_ended; }
};

TEST(ThreadPool, LetsIdleThreadsGo) {
    constexpr int count = 8;
    threads_ended = 0;
    ThreadPool pool(std::chrono::milliseconds(20));
    std::atomic<int> arrived = 0;
    {
        std::vector<ThreadPool::Running> running(count);
        for (auto& one : running) {
            begin(pool, one, [&] {
                thread_local CountsEnd mark;
                mark.used = true;
                ++arrived;
                while (arrived < count) std::this_thread::yield();
            });
        }
    }
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (threads_ended < count && std::chrono::steady_clock::now() < until) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_EQ(threads_ended, count);
    // Some leave while others are taken again.
    arrived = 0;
    for (int round = 0; round < 40; ++round) {
        ThreadPool::Running running;
        begin(pool, running, [&] { ++arrived; });
        running.join();
        std::this_thread::sleep_for(std::chrono::milliseconds(19 + round % 3));
    }
    EXPECT_EQ(arrived, 40);
}

TEST(ThreadPool, TellsWhereThereIsNoThread) {
    FailNth refused(Operation::start_thread, 1, FileFault::other);
    const HookInPlace in_place(refused);
    ThreadPool pool;
    ThreadPool::Running running;
    const Result result = pool.start(running, [] { FAIL() << "nothing may run"; });
    EXPECT_FALSE(result.ok());
    EXPECT_NE(result.message().find("thread"), std::string::npos);
    running.join();
    EXPECT_TRUE(pool.start(running, [] {}).ok()) << "the next one has a thread again";
}

// Whoever has joined may take away what the work refers to.
TEST(ThreadPool, EndsWhatTheWorkHoldsBeforeItIsJoined) {
    ThreadPool pool;
    for (int i = 0; i < 200; ++i) {
        auto held = std::make_shared<int>(i);
        const std::weak_ptr<int> watch = held;
        ThreadPool::Running running;
        begin(pool, running, [held = std::move(held)] { EXPECT_GE(*held, 0); });
        running.join();
        EXPECT_TRUE(watch.expired());
    }
}

}  // namespace
}  // namespace vantlow::test
