// Requests to stop, those whom they call and those who wait for them.
#include "platform/stop.h"

#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <vector>

namespace vantlow {
namespace {

using namespace std::chrono_literals;

// Takes a time that depends on the round, so that the rounds together try every order of two threads.
void linger(int round) {
    std::atomic<int> turn = round * 7919 % 8000;
    while (turn.fetch_sub(1, std::memory_order_relaxed) > 0) {
    }
}

TEST(StopSource, TravelsDownwardsWithItsFirstReason) {
    StopSource program;
    StopSource job(program);
    StopSource connection(job);
    StopSource other(program);
    std::vector<int> called;
    const StopCallback on_connection(connection, [&] { called.push_back(1); });
    other.request(Code::transient);
    job.request(Code::unsupported);
    program.request();
    EXPECT_EQ(connection.reason(), Code::unsupported);
    EXPECT_EQ(other.reason(), Code::transient);
    EXPECT_EQ(program.reason(), Code::stopped);
    EXPECT_TRUE(connection.wait_for(0ms));
    const StopCallback late(connection, [&] { called.push_back(2); });
    EXPECT_EQ(called, (std::vector{1, 2}));
    EXPECT_EQ(StopSource(program).reason(), Code::stopped) << "a child that comes later";
}

TEST(StopCallback, IsOverWhenItIsDestroyed) {
    for (int round = 0; round < 500; ++round) {
        StopSource stop;
        std::atomic<bool> entered{false};
        std::atomic<bool> left{false};
        auto call = [&] {
            entered = true;
            linger(round);
            left = true;
        };
        auto callback = std::make_unique<StopCallback<decltype(call)>>(stop, call);
        std::thread asking([&] { stop.request(); });
        if (round % 3 != 0) {
            while (!entered) {
            }
        }
        callback.reset();
        EXPECT_EQ(left, entered) << round;
        asking.join();
    }
    // One that goes away within its own call, and takes others with it.
    StopSource stop;
    auto nothing = [] {};
    auto other = std::make_unique<StopCallback<decltype(nothing)>>(stop, nothing);
    std::unique_ptr<StopWatcher> itself;
    auto go = [&] {
        other.reset();
        itself.reset();
    };
    itself = std::make_unique<StopCallback<decltype(go)>>(stop, go);
    stop.request();
    EXPECT_EQ(itself, nullptr);
}

TEST(StopCondition, IsWokenByWhateverComesFirst) {
    for (int round = 0; round < 400; ++round) {
        StopSource stop;
        Mutex mutex;
        StopCondition changed;
        bool is_there = false;
        auto waiting = std::async(std::launch::async, [&] {
            MutexLock guard(mutex);
            return changed.wait(guard, stop, [&] { return is_there; });
        });
        linger(round);
        if (round % 2 == 0) {
            stop.request();
        } else {
            const MutexLock guard(mutex);
            is_there = true;
            changed.notify_all();
        }
        ASSERT_EQ(waiting.wait_for(30s), std::future_status::ready) << round;
        EXPECT_EQ(waiting.get(), is_there) << round;
    }
    const StopSource stop;
    Mutex mutex;
    MutexLock guard(mutex);
    StopCondition changed;
    EXPECT_FALSE(changed.wait_for(guard, stop, 1ms, [] { return false; }));
    EXPECT_FALSE(changed.wait_for(guard, 1ms, [] { return false; }));
    EXPECT_TRUE(changed.wait_for(guard, stop, 1h, [] { return true; }));
}

}  // namespace
}  // namespace vantlow
