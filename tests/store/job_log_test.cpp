#include "store/job_log.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "base/text.h"

namespace vantlow {
namespace {

TEST(CJobLog, keeps_the_last_thousand_lines) {
    CJobLog log;
    for (int i = 0; i < 1500; ++i) log.line(Direction::note, std::to_string(i));
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 1000U);
    EXPECT_EQ(lines.front().text, "500");
    EXPECT_EQ(lines.back().text, "1499");
    EXPECT_GT(lines.back().time, 1'600'000'000'000LL) << "milliseconds";
}

TEST(CJobLog, lets_nothing_through_that_moves_a_cursor_or_breaks_a_line) {
    CJobLog log;
    log.line(Direction::received,
             "Server: \x1B[2J\r\n\tx\x7F\xC2\x9Bq\xE2\x80\xA8z\xFF\xC3 \xF0\x9F\x98\x80");
    EXPECT_EQ(log.lines()[0].text, "Server:  [2J   x  q z?? \xF0\x9F\x98\x80");
}

TEST(CJobLog, cuts_long_lines_between_characters) {
    for (const std::string& character : {std::string("a"), std::string("\xC3\xA4"),
                                         std::string("\xE4\xBD\xA0"), std::string("\xF0\x9F\x98\x80")}) {
        std::string text = "x";
        while (text.size() < 2 * CLogNode::max_length) text += character;
        CJobLog log;
        log.line(Direction::sent, text);
        const std::string kept = log.lines()[0].text;
        EXPECT_LE(kept.size(), CLogNode::max_length);
        EXPECT_GT(kept.size(), CLogNode::max_length - 4);
        EXPECT_TRUE(is_utf8(kept));
        EXPECT_TRUE(text.starts_with(kept));
    }
}

TEST(CJobLog, hands_on_each_line_once_and_one_at_a_time) {
    std::atomic<int> inside{0};
    int heard = 0;
    CJobLog log([&](const CLogNode& node) {
        EXPECT_EQ(inside.fetch_add(1), 0);
        EXPECT_EQ(node.direction, Direction::error);
        ++heard;
        inside.fetch_sub(1);
    });
    {
        std::vector<std::jthread> writers;
        for (int i = 0; i < 4; ++i) {
            writers.emplace_back([&log] {
                for (int k = 0; k < 500; ++k) log.line(Direction::error, "line");
            });
        }
    }
    EXPECT_EQ(heard, 2000);
    EXPECT_EQ(log.lines().size(), 1000U);
}

}  // namespace
}  // namespace vantlow
