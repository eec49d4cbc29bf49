#include "transfer/job/work_rule.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <string>
#include <vector>

namespace vantlow {
namespace {

constexpr std::int64_t split = 262144;

std::string text(const std::optional<WorkTake>& take) {
    if (!take) return "nothing";
    return (take->cut ? "cut " : "whole ") + std::to_string(take->index) + " [" +
           std::to_string(take->start) + ", " + std::to_string(take->end) + ")";
}

TEST(WorkRule, ChoosesTheLargestPiece) {
    struct Case {
        const char* name;
        std::vector<WorkItem> items;
        std::optional<WorkTake> take;
    };
    const Case cases[] = {
        {"the far half of one at work", {{400000, 1000000, true}}, WorkTake{0, true, 700000, 1000000}},
        {"half of it is too little", {{500000, 1000000, true}}, {}},
        {"exactly enough", {{0, 2 * split, true}}, WorkTake{0, true, split, 2 * split}},
        {"an odd byte is lost in the half", {{0, 2 * split - 1, true}}, {}},
        {"the middle is rounded down", {{1, 600002, true}}, WorkTake{0, true, 300001, 600002}},
        {"of equals the first",
         {{0, 600000, true}, {600000, 1200000, true}},
         WorkTake{0, true, 300000, 600000}},
        {"a strictly larger later one",
         {{0, 600000, true}, {600000, 1200002, true}},
         WorkTake{1, true, 900001, 1200002}},
        {"an odd byte does not make it larger",
         {{0, 600000, true}, {600000, 1200001, true}},
         WorkTake{0, true, 300000, 600000}},
        {"an idle one is taken whole", {{0, 10, false}}, WorkTake{0, false, 0, 10}},
        {"one at work is not for so little", {{0, 10, true}}, {}},
        {"a large idle one is taken whole too", {{5, 90000000, false}}, WorkTake{0, false, 5, 90000000}},
        {"idle counts whole, at work counts half",
         {{0, 1000000, true}, {1000000, 1500001, false}},
         WorkTake{1, false, 1000000, 1500001}},
        {"and the other way round",
         {{0, 1000002, true}, {1000002, 1500002, false}},
         WorkTake{0, true, 500001, 1000002}},
        {"the largest decides, also when it gives nothing", {{0, 400000, true}, {400000, 400010, false}}, {}},
        {"nothing to do", {{10, 10, false}, {20, 20, true}}, {}},
        {"behind its own end", {{30, 20, false}, {40, 10, true}}, {}},
        {"nothing at all", {}, {}},
        {"beyond 32 bits", {{5000000000, 9000000000, true}}, WorkTake{0, true, 7000000000, 9000000000}},
        {"far beyond: no overflow",
         {{9000000000000000000, std::numeric_limits<std::int64_t>::max(), true}},
         WorkTake{0, true, 9111686018427387903, std::numeric_limits<std::int64_t>::max()}},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(text(choose_work(c.items, split)), text(c.take)) << c.name;
    }
}

// Many connections that ask again and again: every byte is somebody's exactly once, and no piece cut is too
// small.
TEST(WorkRule, NeverGivesAByteTwice) {
    std::mt19937 random(1);
    for (int round = 0; round < 50; ++round) {
        const std::int64_t size = 1 + static_cast<std::int64_t>(random() % 30000000);
        std::vector<WorkItem> items{{0, size, false}};
        std::int64_t received = 0;
        for (int step = 0; step < 2000; ++step) {
            if (random() % 2 == 0) {
                if (const auto take = choose_work(items, split)) {
                    if (take->cut) {
                        items[take->index].end = take->start;
                        items.push_back({take->start, take->end, true});
                        EXPECT_GE(take->end - take->start, split);
                        EXPECT_GE(items[take->index].end - items[take->index].start, split);
                    } else {
                        EXPECT_FALSE(items[take->index].active);
                        items[take->index].active = true;
                    }
                }
                continue;
            }
            WorkItem& item = items[random() % items.size()];
            if (random() % 10 == 0) item.active = false;  // its connection broke
            if (!item.active) continue;
            const auto bytes =
                std::min<std::int64_t>(item.end - item.start, static_cast<std::int64_t>(random() % 100000));
            item.start += bytes;
            received += bytes;
        }
        std::int64_t left = 0;
        for (const WorkItem& item : items) left += item.end - item.start;
        EXPECT_EQ(received + left, size);
    }
}

TEST(WorkRule, CountsBlocksFromTheirBase) {
    EXPECT_EQ(first_whole_block(0, 0, 1000), 0);
    EXPECT_EQ(first_whole_block(1, 0, 1000), 1);
    EXPECT_EQ(first_whole_block(1000, 0, 1000), 1);
    EXPECT_EQ(first_whole_block(1001, 0, 1000), 2);
    EXPECT_EQ(first_whole_block(1001, 1, 1000), 1);
    EXPECT_EQ(first_whole_block(9000000000, 1000000000, 4), 2000000000);
}

TEST(WorkRule, TakesOverOnlyWhatIsFarSlower) {
    constexpr std::int64_t mib = 1048576;
    EXPECT_EQ(choose_takeover({}, mib), std::nullopt);
    const std::vector<PaceItem> slow{{mib, mib, true}, {mib, 10000, true}, {mib, 20000, true}};
    EXPECT_EQ(choose_takeover(slow, mib), 1U) << "the slowest";
    EXPECT_EQ(choose_takeover(slow, 0), std::nullopt) << "with a speed that nobody knows";
    EXPECT_EQ(choose_takeover(slow, 20000), std::nullopt) << "hardly faster";
    const std::vector<PaceItem> stalled{{10, 0, true}};
    EXPECT_EQ(choose_takeover(stalled, mib), 0U) << "one that stands still";
    const std::vector<PaceItem> nearly_done{{15000, 10000, true}};
    EXPECT_EQ(choose_takeover(nearly_done, 100 * mib), std::nullopt);
    const std::vector<PaceItem> idle{{mib, 10, false}, {0, 0, true}};
    EXPECT_EQ(choose_takeover(idle, mib), std::nullopt)
        << "idle ones are taken by the other rule, empty ones by nobody";
}

}  // namespace
}  // namespace vantlow
