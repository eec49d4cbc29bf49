#include "transfer/job/retry_rule.h"

#include <gtest/gtest.h>

namespace vantlow {
namespace {

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
    struct Case {
        const char* name;
        RetryCase given;
        milliseconds wait;
    };
    const Case cases[] = {
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
    for (const Case& c : cases) {
        const RetryDecision decision = decide_retry(c.given);
        EXPECT_FALSE(decision.give_up) << c.name;
        EXPECT_EQ(decision.wait.count(), c.wait.count()) << c.name;
        EXPECT_EQ(decision.is_announced(), c.wait >= seconds(1)) << c.name;
    }
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

}  // namespace
}  // namespace vantlow
