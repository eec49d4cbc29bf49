// The memory file, the busy lock, messages and results.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "base/busy_lock.h"
#include "base/codes.h"
#include "base/mem_file.h"
#include "base/result.h"
#include "base/string_table.h"

namespace vantlow {
namespace {

using namespace std::string_view_literals;

TEST(CQoMemFile, writes_little_endian_and_grows_in_whole_steps) {
    CQoMemFile file(64);
    file.write_u8(0x01);
    file.write_u16(0x2345);
    file.write_u32(0x6789ABCD);
    file.write_u64(0xFEDCBA9876543210ULL);
    EXPECT_EQ(to_hex(file.bytes()), "014523cdab89671032547698badcfe");
    const std::vector<std::byte> piece(100);
    for (int i = 0; i < 50; ++i) {
        file.write(piece);
        EXPECT_EQ(file.capacity() % 64, 0U);
    }
    EXPECT_EQ(file.size(), 5015U);
    file.clear();
    file.reserve(10000);
    EXPECT_EQ(file.size(), 0U);
    const auto* place = file.bytes().data();
    for (int i = 0; i < 100; ++i) file.write(piece);
    EXPECT_EQ(file.bytes().data(), place) << "moved in spite of its room";
}

TEST(BusyLock, lets_one_in_at_a_time) {
    BusyLock lock;
    int guarded = 0;  // a data race here is a thread sanitizer's finding, a lost count everybody's
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&] {
                for (int k = 0; k < 500; ++k) {
                    const std::lock_guard guard(lock);
                    ++guarded;
                }
            });
        }
    }
    EXPECT_EQ(guarded, 2000);
}

std::atomic<int> pumped{0};

TEST(BusyLock, keeps_its_waiter_pumping_and_stays_taken_while_forced) {
    BusyLock lock;
    BusyLock::set_pump([] { ++pumped; });
    lock.lock();
    EXPECT_FALSE(lock.try_lock());
    lock.force_lock();
    std::jthread waiter([&lock] {
        lock.lock();
        lock.unlock();
    });
    while (pumped.load() < 3) std::this_thread::yield();
    lock.unlock();
    EXPECT_FALSE(lock.try_lock()) << "the forced holder is still there";
    lock.unlock();
    waiter.join();
    BusyLock::set_pump(nullptr);
    EXPECT_TRUE(lock.try_lock());
}

TEST(StringTable, fills_places_by_their_turn_and_never_reads_past_its_arguments) {
    EXPECT_EQ(message(Message::connecting_to, {"host"sv, 80}), "Connecting to host:80");
    EXPECT_EQ(message(Message::connecting_to_ip, {127, 0, 0, 1, 8080}), "Connecting to 127.0.0.1:8080");
    EXPECT_EQ(message(Message::finished_at, {std::int64_t{5000000000}}), "Finished at 5000000000");
    EXPECT_EQ(message(Message::connecting_to, {"100%s"sv}), "Connecting to 100%s:")
        << "arguments are no formats";
    EXPECT_EQ(message(Message::connected, {"more"sv, 1}), "Connected.");
}

// As a newer version's file may hold one.
TEST(Result, a_code_that_nobody_knows_is_final_and_has_a_sentence) {
    EXPECT_EQ(kind_of(static_cast<Code>(-12345)), Kind::final);
    EXPECT_FALSE(describe(static_cast<Code>(-12345)).empty());
}

}  // namespace
}  // namespace vantlow
