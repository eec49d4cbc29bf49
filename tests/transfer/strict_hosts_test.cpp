#include "transfer/http/strict_hosts.h"

#include <gtest/gtest.h>

namespace vantlow {
namespace {

constexpr std::int64_t now = 1'000'000'000;

TEST(StrictHosts, go_by_what_the_host_says) {
    const struct {
        const char* field;
        const char* from;
        const char* asked;
        bool strict;
    } cases[] = {
        {"max-age=10", "h.example", "H.EXAMPLE.", true},
        {"max-age=10", "h.example", "www.h.example", false},
        {"max-age=10; includeSubDomains", "h.example", "a.www.h.example", true},
        {"max-age=10; includeSubDomains", "h.example", "badh.example", false},
        {"max-age=10; includeSubDomains", "www.h.example", "h.example", false},
        {" IncludeSubDomains ; MAX-AGE = \"10\" ; other=1;", "h.example", "www.h.example", true},
        {"max-age=99999999999999", "h.example", "h.example", true},
        {"max-age=0", "h.example", "h.example", false},
        {"max-age=10; max-age=20", "h.example", "h.example", false},
        {"max-age=-1", "h.example", "h.example", false},
        {"includeSubDomains", "h.example", "h.example", false},
        {"", "h.example", "h.example", false},
        {"max-age=10", "127.0.0.1", "127.0.0.1", false},
        {"max-age=10", "::1", "::1", false},
    };
    for (const auto& one : cases) {
        StrictHosts hosts;
        hosts.take(one.field, one.from, now);
        EXPECT_EQ(hosts.contains(one.asked, now + 9), one.strict) << one.field << " of " << one.from;
    }
}

TEST(StrictHosts, end_change_their_mind_and_are_not_too_many) {
    StrictHosts hosts;
    hosts.take("max-age=10; includeSubDomains", "h.example", now);
    EXPECT_FALSE(hosts.contains("h.example", now + 10));
    hosts.take("max-age=10", "h.example", now);
    EXPECT_FALSE(hosts.contains("www.h.example", now));
    hosts.take("rubbish", "h.example", now);
    EXPECT_TRUE(hosts.contains("h.example", now));
    for (int i = 0; i < 1200; ++i) hosts.take("max-age=20", "h" + std::to_string(i), now);
    EXPECT_FALSE(hosts.contains("h.example", now));
    EXPECT_TRUE(hosts.contains("h1199", now));
    hosts.take("max-age=0", "h1199", now);
    EXPECT_FALSE(hosts.contains("h1199", now));
}

}  // namespace
}  // namespace vantlow
