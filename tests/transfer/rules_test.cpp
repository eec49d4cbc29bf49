// The rules that a job's policy asks: pieces of work, waits, versions, mirrors, whose bytes are where.
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "transfer/job/mirrors.h"
#include "transfer/job/origins.h"
#include "transfer/job/retry_rule.h"
#include "transfer/job/version_rule.h"
#include "transfer/job/work_rule.h"

namespace vantlow {
namespace {

constexpr std::int64_t split = 262144;

std::string text(const std::optional<WorkTake>& take) {
    if (!take) return "nothing";
    return (take->cut ? "cut " : "whole ") + std::to_string(take->index) + " [" +
           std::to_string(take->start) + ", " + std::to_string(take->end) + ")";
}

TEST(WorkRule, ChoosesTheLargestPiece) {
    const struct {
        const char* name;
        std::vector<WorkItem> items;
        std::optional<WorkTake> take;
    } cases[] = {
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
    for (const auto& c : cases) {
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

using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::seconds;

RetryCase retry(int errors, std::int64_t delay, int fruitless, std::optional<seconds> server_asks = {}) {
    RetryCase made;
    made.errors = errors;
    made.delay = delay;
    made.fruitless = fruitless;
    made.server_asks = server_asks;
    return made;
}

TEST(RetryRule, WaitsAsLongAsTheCaseAsks) {
    const struct {
        const char* name;
        RetryCase given;
        milliseconds wait;
    } cases[] = {
        {"the job's own delay, fruitful or not", retry(1, 7, 0), seconds(7)},
        {"the job's own delay does not grow", retry(50, 7, 50), seconds(7)},
        {"at once after something came", retry(1, -1, 0), milliseconds(0)},
        {"many errors in all, the last one fruitful", retry(500, -1, 0), milliseconds(0)},
        {"first fruitless", retry(1, -1, 1), seconds(1)},
        {"second", retry(2, -1, 2), seconds(2)},
        {"fifth", retry(5, -1, 5), seconds(16)},
        {"sixth", retry(6, -1, 6), seconds(30)},
        {"without end", retry(100000, -1, 2000000000), seconds(30)},
        {"no delay, fruitful", retry(1, 0, 0), milliseconds(0)},
        {"no delay hammers nobody", retry(9, 0, 9), milliseconds(200)},
        {"the server asks for more", retry(1, 7, 1, seconds(20)), seconds(20)},
        {"the server asks for less", retry(1, 7, 1, seconds(2)), seconds(7)},
        {"the server asks for nothing", retry(1, -1, 2, seconds(0)), seconds(2)},
        {"the server asks after a fruitful attempt", retry(1, -1, 0, seconds(3)), seconds(3)},
        {"the server asks for a year", retry(1, -1, 1, seconds(hours(8760))), hours(1)},
    };
    for (const auto& c : cases) {
        const RetryDecision decision = decide_retry(c.given);
        EXPECT_FALSE(decision.give_up) << c.name;
        EXPECT_EQ(decision.wait.count(), c.wait.count()) << c.name;
        EXPECT_EQ(decision.is_announced(), c.wait >= seconds(1)) << c.name;
    }
    RetryCase few = retry(1, -1, 1, seconds(3000));
    EXPECT_FALSE(decide_retry(few).is_cut);
    few.limit = 2;
    EXPECT_EQ(decide_retry(few).wait, seconds(300));
    EXPECT_TRUE(decide_retry(few).is_cut);
    RetryCase patient = retry(9, -1, 9);
    patient.longest_pause = seconds(100);
    EXPECT_EQ(decide_retry(patient).wait, seconds(100));
}

TEST(RetryRule, TriesAgainAsOftenAsTheLimitSays) {
    for (const std::int64_t limit : {0, 1, 3, 100000}) {
        RetryCase limited;
        limited.limit = limit;
        limited.errors = static_cast<int>(limit);
        EXPECT_FALSE(decide_retry(limited).give_up) << limit;
        ++limited.errors;
        EXPECT_TRUE(decide_retry(limited).give_up) << limit;
        limited.server_asks = seconds(5);
        EXPECT_TRUE(decide_retry(limited).give_up) << limit << ", whatever the server asks";
    }
    RetryCase endless;
    endless.errors = 2000000000;
    EXPECT_FALSE(decide_retry(endless).give_up);
}

TEST(VersionRule, TellsVersionsApart) {
    using enum VersionMatch;
    const struct {
        const char* name;
        ResourceVersion known;
        ResourceVersion answer;
        VersionMatch match;
    } cases[] = {
        {"strong tags, equal", {9, "mon", "\"a\""}, {9, "mon", "\"a\""}, same},
        {"strong tags, equal, another date", {9, "mon", "\"a\"", true}, {9, "tue", "\"a\"", true}, same},
        {"strong tags that differ", {9, "mon", "\"a\"", true}, {9, "mon", "\"b\"", true}, changed},
        {"another size", {9, "mon", "\"a\""}, {8, "mon", "\"a\""}, changed},
        {"a size that is not said", {9, "", "\"a\""}, {-1, "", "\"a\""}, same},
        {"weak tags, equal", {9, "", "W/\"a\""}, {9, "", "W/\"a\""}, unsure},
        {"weak tags that differ", {9, "mon", "W/\"a\"", true}, {9, "mon", "W/\"b\"", true}, changed},
        {"weak tags, equal, strong dates", {9, "mon", "W/\"a\"", true}, {9, "mon", "W/\"a\"", true}, same},
        {"one tag of two kinds", {9, "", "W/\"a\""}, {9, "", "\"a\""}, unsure},
        {"strong dates, equal", {9, "mon", "", true}, {9, "mon", "", true}, same},
        {"strong dates that differ", {9, "mon", "", true}, {9, "tue", "", true}, changed},
        {"weak dates, equal", {9, "mon", ""}, {9, "mon", "", true}, unsure},
        {"weak dates that differ", {9, "mon", ""}, {9, "tue", ""}, changed},
        {"a tag that is gone", {9, "mon", "\"a\""}, {9, "mon", ""}, unsure},
        {"the size alone", {9, "", ""}, {9, "", ""}, unsure},
        {"nothing", {}, {}, unsure},
    };
    for (const auto& c : cases) EXPECT_EQ(compare_versions(c.known, c.answer), c.match) << c.name;
}

TEST(VersionRule, TellsOtherContentFromAnotherVersion) {
    const ResourceVersion file{900, "mon", "\"a\"", true, "application/zip"};
    const ResourceVersion bare{900, "", "", false, ""};
    const struct {
        const char* name;
        ResourceVersion known;
        ResourceVersion answer;
        bool other;
    } cases[] = {
        {"a page", file, {20, "", "", false, "text/html"}, true},
        {"a page with validators of its own", file, {20, "tue", "\"p\"", true, "text/html"}, true},
        {"a page in place of what told nothing", bare, {20, "", "", false, "text/html"}, true},
        {"a new version", file, {950, "tue", "\"b\"", true, "application/zip"}, false},
        {"another type with the same tag", file, {900, "tue", "\"a\"", true, "application/x-zip"}, false},
        {"validators are gone, and the size", file, {20, "", "", false, ""}, true},
        {"validators are gone", file, {900, "", "", false, ""}, false},
        {"another size, and nothing else was told", bare, {950, "", "", false, ""}, false},
    };
    for (const auto& c : cases) EXPECT_EQ(is_other_content(c.known, c.answer), c.other) << c.name;
    EXPECT_TRUE(is_strong_date(1000, 1060));
    EXPECT_FALSE(is_strong_date(1000, 1059));
}

TEST(MirrorRule, TakesTheFewestConnectionsAndFailures) {
    struct Case {
        std::vector<MirrorItem> items;
        std::optional<std::size_t> chosen;
    };
    for (const Case& c : {Case{{{1, 0, true}, {0, 0, true}, {0, 0, true}}, 1},
                          Case{{{1, 0, true}, {0, 2, true}}, 0}, Case{{{0, 0, false}, {5, 5, true}}, 1},
                          Case{{{0, 0, false}}, std::nullopt}, Case{{}, std::nullopt}}) {
        EXPECT_EQ(choose_mirror(c.items), c.chosen);
    }
}

TEST(Origins, KnowWhoGaveWhatLast) {
    constexpr std::int64_t length = 200;
    std::mt19937 random(5);
    Origins origins;
    std::vector<int> model(length, Origins::unknown);
    for (int round = 0; round < 3000; ++round) {
        const auto begin = static_cast<std::int64_t>(random() % length);
        const auto end =
            begin + static_cast<std::int64_t>(random() % static_cast<unsigned>(length - begin + 1));
        const int mirror = static_cast<int>(random() % 4);
        const bool forget = random() % 4 == 0;
        forget ? origins.forget(begin, end) : origins.add(begin, end, mirror);
        std::fill(model.begin() + begin, model.begin() + end, forget ? Origins::unknown : mirror);
        std::vector<int> expected(model.begin() + begin / 2, model.begin() + end);
        std::ranges::sort(expected);
        expected.erase(std::unique(expected.begin(), expected.end()), expected.end());
        ASSERT_EQ(origins.of(begin / 2, end), expected) << round;
        std::int64_t bytes = 0;
        for (const auto& range : origins.from(mirror)) bytes += range.end - range.begin;
        ASSERT_EQ(bytes, std::ranges::count(model, mirror)) << round;
    }
}

}  // namespace
}  // namespace vantlow
