#include "app/terminal/progress_view.h"

#include <gtest/gtest.h>

#include <cmath>

namespace vantlow {
namespace {

// A terminal without end: what the control sequences leave on it. A line that reaches the last column goes on
// in the next row at once; rows that were broken so are broken anew when the width changes.
class Screen {
  public:
    explicit Screen(std::size_t width) : width_(width) {}

    void write(std::string_view bytes) {
        while (!bytes.empty()) {
            const char c = bytes.front();
            bytes.remove_prefix(1);
            if (c == '\x1b') {
                const auto end = bytes.find_first_of("AJKm");
                ASSERT_NE(end, std::string_view::npos);
                obey(bytes[end], std::string(bytes.substr(1, end - 1)));
                bytes.remove_prefix(end + 1);
            } else if (c == '\r') {
                column_ = 0;
            } else if (c == '\n') {
                move_down();
            } else {
                put(c);
            }
        }
    }

    void resize(std::size_t width) {
        const std::vector<std::string> before = std::move(rows_);
        ASSERT_TRUE(column_ == 0 && row_ + 1 == before.size()) << "the cursor waits below";
        rows_.clear();
        for (const std::string& row : before) {
            std::size_t at = 0;
            do rows_.push_back(row.substr(at, width));
            while ((at += width) < row.size());
        }
        row_ = rows_.size() - 1;
        width_ = width;
    }

    // The rows, without blanks at their ends and without those below the last text.
    std::string text() const {
        std::string text;
        for (const std::string& row : rows_) text += row.substr(0, row.find_last_not_of(' ') + 1) + "|";
        return text.substr(0, text.find_last_not_of('|') + 1);
    }

  private:
    void obey(char command, const std::string& parameter) {
        if (command == 'A') {
            const auto count = static_cast<std::size_t>(std::stoi(parameter));
            ASSERT_LE(count, row_) << "above the first row";
            row_ -= count;
        }
        if (command == 'K' || command == 'J') rows_[row_].resize(std::min(column_, rows_[row_].size()));
        if (command == 'J') rows_.resize(row_ + 1);
    }
    void put(char c) {
        rows_[row_].resize(std::max(rows_[row_].size(), column_ + 1), ' ');
        rows_[row_][column_++] = c;
        if (column_ < width_) return;
        column_ = 0;
        move_down();
    }
    void move_down() {
        if (++row_ == rows_.size()) rows_.emplace_back();
    }

    std::size_t width_;
    std::vector<std::string> rows_ = {""};
    std::size_t row_ = 0;
    std::size_t column_ = 0;
};

TEST(ScreenLines, AreRedrawnInPlace) {
    Screen screen(10);
    ScreenLines lines;
    screen.write("$ get\r\n");
    screen.write(lines.clear(10));
    screen.write(lines.draw({"one 1234", "two", "all"}, 10));
    EXPECT_EQ(screen.text(), "$ get|one 1234|two|all");
    screen.write(lines.draw({"\x1b[33mone\x1b[0m", "all two"}, 10));
    EXPECT_EQ(screen.text(), "$ get|one|all two");
    screen.write(lines.draw({"", "", "all"}, 10));
    EXPECT_EQ(screen.text(), "$ get|||all");
    screen.write(lines.clear(10));
    EXPECT_EQ(lines.clear(10), "");
    screen.write("end\r\n");
    EXPECT_EQ(screen.text(), "$ get|end");
    screen.write(lines.draw({"all"}, 10));
    EXPECT_EQ(screen.text(), "$ get|end|all");
}

TEST(ScreenLines, FollowTheWidthOfTheTerminal) {
    const std::vector<JobLine> jobs = {{"some-file-name-that-is-long.iso", {}, 0}, {"short", {}, 1e6}};
    const Totals totals = {.running = 2, .waiting = 3, .received = 1 << 20, .speed = 1e6};
    const auto rendered = [&](std::size_t width, bool colour) {
        auto rendered_lines = render_progress(jobs, totals, static_cast<int>(width) - 1, colour);
        for (std::string& line : rendered_lines) {
            // The screen counts bytes.
            if (const auto at = line.find("…"); at != std::string::npos) line.replace(at, 3, "~");
        }
        return rendered_lines;
    };
    for (std::size_t before = 20; before < 100; before += 3) {
        for (std::size_t after = 20; after < 100; after += 7) {
            Screen screen(before);
            ScreenLines lines;
            screen.write("$\r\n");
            screen.write(lines.draw(rendered(before, true), static_cast<int>(before)));
            screen.resize(after);
            screen.write(lines.draw(rendered(after, true), static_cast<int>(after)));
            std::string expected = "$";
            for (const std::string& line : rendered(after, false))
                expected += "|" + line.substr(0, line.find_last_not_of(' ') + 1);
            ASSERT_EQ(screen.text(), expected) << before << " to " << after;
            screen.resize(before);
            screen.write(lines.clear(static_cast<int>(before)));
            ASSERT_EQ(screen.text(), "$") << after << " to " << before;
        }
    }
}

using std::chrono::milliseconds;

// What a meter shows after `span` of an even speed, sampled every `step`.
double after(SpeedMeter& meter, SpeedMeter::Time& now, std::int64_t& bytes, double speed, milliseconds span,
             milliseconds step) {
    for (milliseconds passed{0}; passed < span; passed += step) {
        now += step;
        bytes += static_cast<std::int64_t>(speed * std::chrono::duration<double>(step).count());
        meter.update(bytes, now);
    }
    return meter.bytes_per_second();
}

TEST(SpeedMeter, FollowsTheSpeedWhateverTheDistanceOfSamples) {
    for (const milliseconds step :
         {milliseconds(1), milliseconds(100), milliseconds(500), milliseconds(1000)}) {
        SpeedMeter meter;
        SpeedMeter::Time now{};
        std::int64_t bytes = 1'000'000'000;  // an earlier run's do not count
        EXPECT_EQ(meter.update(bytes, now), 0);
        EXPECT_NEAR(after(meter, now, bytes, 1e6, milliseconds(1000), step), 1e6, 1e3)
            << "right from the start";
        EXPECT_NEAR(after(meter, now, bytes, 1e6, milliseconds(20000), step), 1e6, 1e3);
        // Three seconds later a new speed counts 1 - 1/e.
        EXPECT_NEAR(after(meter, now, bytes, 0, milliseconds(3000), step), 1e6 / std::exp(1), 5e3);
        EXPECT_LT(after(meter, now, bytes, 0, milliseconds(30000), step), 100);
    }
}

TEST(SpeedMeter, BearsOddSamples) {
    SpeedMeter meter;
    SpeedMeter::Time now{};
    EXPECT_EQ(meter.update(0, now), 0);
    EXPECT_EQ(meter.update(50'000'000, now + milliseconds(1)), 0) << "too short to tell";
    SpeedMeter even;
    SpeedMeter odd;
    for (int i = 0; i <= 100; ++i, now += milliseconds(100)) {
        const std::int64_t bytes = i * 100'000;
        even.update(bytes, now);
        odd.update(bytes, now);
        odd.update(bytes + 77, now);  // a second one of the same moment
        if (i == 50) {
            EXPECT_GE(odd.update(0, now + milliseconds(50)), 0);  // back to nothing for a moment
        }
    }
    EXPECT_NEAR(odd.bytes_per_second(), even.bytes_per_second(), 2e4);
}

}  // namespace
}  // namespace vantlow
