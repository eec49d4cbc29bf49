#include "app/terminal/progress_lines.h"

#include <gtest/gtest.h>

#include <limits>

#include "base/text.h"

namespace vantlow {
namespace {

constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();

// Columns of the characters that these tests use, from nothing but their blocks; -1 for any other, control
// characters among them.
int columns_in_test(std::string_view utf8) {
    int columns = 0;
    const std::u16string text = to_utf16(utf8);
    for (const char16_t c : text) {
        const bool high_half = c >= 0xD83C && c <= 0xD83E;
        const bool low_half = c >= 0xDC00 && c <= 0xDFFF;
        if (c >= 0x0300 && c <= 0x036F) continue;
        if ((c >= 0x20 && c < 0x7F) || (c >= 0xC0 && c < 0x250) || c == u'…' || high_half || low_half) {
            columns += 1;  // an emoji has two halves and two columns
        } else if ((c >= 0x3041 && c <= 0x9FFF) || (c >= 0xAC00 && c <= 0xD7A3) ||
                   (c >= 0xFF01 && c <= 0xFF60)) {
            columns += 2;
        } else {
            return -1;
        }
    }
    return columns;
}

std::string without_colours(const std::string& line) {
    std::string plain;
    for (std::size_t i = 0; i < line.size(); ++i) {
        if (line[i] == '\x1b') {
            i = line.find('m', i);
        } else {
            plain += line[i];
        }
    }
    return plain;
}

std::vector<JobLine> all_kinds_of_jobs() {
    std::vector<JobLine> jobs;
    for (const std::string& name :
         {std::string("a"), std::string(), std::string("debian-12.11.0-amd64-netinst.iso"),
          std::string(300, 'x') + ".tar.gz", std::string("日本語の長いファイル名でございます.zip"),
          std::string("ﾃｽﾄ한국어파일이름입니다만더길게.mkv").substr(9),
          std::string(
              "e\u0301te\u0301 a\u0300 la mer e\u0302tre u\u0308ber de\u0301ja\u0300 vu\u0323\u0307.ogg"),
          std::string("👨\u200D👩\u200D👧 family ❤\uFE0F👍🏽.png").substr(0, 25),
          std::string("日a本b語c日a本b語c日a本b語c"),
          std::string("bad\x1b[31m\xC2\x9B"
                      "2J\r\n\x7F\xFF\xC3.bin"),
          std::string("\u0301\u0301\u0301"), std::string("x\u202Egpj.exe\u2028y"),
          std::string(200, '\xCC')}) {
        jobs.push_back({name, {}, 0});
    }
    for (std::size_t i = 0; i < jobs.size(); ++i) {
        JobProgress& progress = jobs[i].progress;
        progress.size = i % 3 == 0 ? -1 : i % 3 == 1 ? largest : 1047527423;
        progress.done = i % 4 == 0 ? 0 : progress.size < 0 ? largest : progress.size / 7;
        progress.connections = static_cast<int>(i % 3);
        progress.missing = {{progress.size / 7, progress.size / 2, true},
                            {progress.size / 2 + 1, largest, false}};
        jobs[i].speed = i % 5 == 0 ? 0 : i % 5 == 1 ? 1e300 : i % 5 == 2 ? 0.6 : 1047527423.0;
    }
    return jobs;
}

TEST(ProgressLines, NoLineIsEverLongerThanTheTerminal) {
    const auto jobs = all_kinds_of_jobs();
    const Totals small = {3, 12, 5, 1, 1 << 20, 5e6};
    const Totals large = {1000000, 1000000000000, 999999999999, 123456789, largest, 1e300};
    for (int width = 0; width <= 260; ++width) {
        for (const Totals& totals : {Totals{}, small, large}) {
            const auto plain = render_progress(jobs, totals, width, false);
            const auto coloured = render_progress(jobs, totals, width, true);
            ASSERT_EQ(plain.size(), jobs.size() + 1);
            for (std::size_t i = 0; i < plain.size(); ++i) {
                const int columns = columns_in_test(plain[i]);
                ASSERT_GE(columns, width > 0 ? 1 : 0) << width << ": " << plain[i];
                ASSERT_LE(columns, width) << plain[i];
                ASSERT_EQ(without_colours(coloured[i]), plain[i]);
                const bool job_line = i < jobs.size();
                if (job_line && width >= 20) {
                    // Same fields at the same places, whatever the names are made of.
                    ASSERT_EQ(columns, columns_in_test(plain[0])) << width << ": " << plain[i];
                    ASSERT_TRUE(plain[i].find("% ") != std::string::npos || plain[i].ends_with('%') ||
                                plain[i].find(" --") != std::string::npos)
                        << plain[i];
                }
            }
        }
    }
}

TEST(ProgressLines, ShowAsMuchAsThereIsRoomFor) {
    JobLine job{"debian-12.11.0-amd64-netinst.iso", {}, 12.34 * 1048576};
    job.progress.size = 1503238554;
    job.progress.done = job.progress.size / 4 - 1;
    job.progress.connections = 2;
    job.progress.missing = {{job.progress.size / 4, job.progress.size / 2, true},
                            {job.progress.size * 3 / 4, job.progress.size, false}};
    const Totals totals = {1, 2, 3, 1, 5 << 20, 2048};
    const struct {
        int width;
        std::string job, totals;
    } cases[] = {
        {9, "debi….iso", "3/7"},
        {19, "debian…st.iso   24%", "3/7       2.0 KiB/s"},
        {40, "debian…t.iso   24%  12.3 MiB/s      1:28", "3/7, 1 failed        2.0 KiB/s"},
        {79, "debian-12.…etinst.iso   24%   1.4 GiB  12.3 MiB/s      1:28  [####>...####....]",
         "3 of 7 done, 1 failed         5.0 MiB   2.0 KiB/s"},
        {110,
         "debian-12.11.0-amd64-netinst.iso             24%   1.4 GiB  12.3 MiB/s      1:28  "
         "[######>......######.......]",
         "1 running, 2 waiting, 3 done, 1 failed             5.0 MiB   2.0 KiB/s"},
    };
    for (const auto& entry : cases) {
        const auto lines = render_progress({job}, totals, entry.width, false);
        EXPECT_EQ(lines[0], entry.job);
        EXPECT_EQ(lines[1], entry.totals);
    }
}

// The job's line at full width, from the percentage on.
std::string fields_of(const JobProgress& progress, double speed, bool colour = false) {
    const std::string line = render_progress({{"n", progress, speed}}, {}, 79, colour)[0];
    return line.substr(line.find_first_not_of(" n"));
}

TEST(ProgressLines, SayOnlyWhatIsKnown) {
    const auto job = [](std::int64_t size, std::int64_t done, std::vector<JobProgress::Missing> missing) {
        JobProgress progress;
        progress.size = size;
        progress.done = done;
        progress.missing = std::move(missing);
        return progress;
    };
    const struct {
        JobProgress progress;
        double speed;
        std::string expected;
    } cases[] = {
        {job(-1, 0, {}), 0, "--       0 B          --        --  [                ]"},
        {job(-1, 3 << 20, {{3 << 20, largest, true}}), 1024,
         "--   3.0 MiB   1.0 KiB/s        --  [                ]"},
        {job(0, 0, {}), 0, "100%       0 B          --        --  [################]"},
        // Less than everything is never 100 %, and what is missing is always seen.
        {job(largest, largest - 1, {{largest - 1, largest, false}}), 1,
         "99%   8.0 EiB       1 B/s      0:01  [###############.]"},
        {job(1 << 20, 1 << 20, {}), 5, "100%   1.0 MiB       5 B/s      0:00  [################]"},
        {job(1 << 20, 2 << 20, {}), 5, "100%   1.0 MiB       5 B/s        --  [################]"},
        {job(1000, 0, {{0, 1000, false}}), 0.001, "0%    1000 B          --        --  [................]"},
        // More cells than bytes: each byte has several.
        {job(4, 2, {{1, 2, true}, {3, 4, false}}), 1,
         "50%       4 B       1 B/s      0:02  [####>>>>####....]"},
        {job(1600, 800,
             {{150, 200, true}, {400, 950, true}, {950, 1000, false}, {1400, 1550, false}, {7, 7, true}}),
         2, "50%   1.6 KiB       2 B/s      6:40  [#>##>.....####..]"},
    };
    for (const auto& entry : cases) EXPECT_EQ(fields_of(entry.progress, entry.speed), entry.expected);
}

TEST(ProgressLines, ColoursTellStates) {
    JobProgress progress;
    progress.size = 16;
    progress.done = 4;
    progress.missing = {{4, 16, true}};
    const std::string held_up = "\x1b[33m25%\x1b[0m";
    EXPECT_TRUE(fields_of(progress, 0, true).find(held_up) != std::string::npos) << "no connection";
    progress.connections = 1;
    EXPECT_TRUE(fields_of(progress, 0, true).ends_with("[\x1b[32m####\x1b[0m\x1b[36m>\x1b[0m...........]"));
    EXPECT_TRUE(fields_of(progress, 0, true).find(held_up) == std::string::npos);
    progress.notice = "The connection broke.";
    EXPECT_TRUE(fields_of(progress, 0, true).find(held_up) != std::string::npos);
    const auto totals = render_progress({}, {.running = 1, .failed = 2}, 79, true);
    EXPECT_TRUE(totals[0].starts_with("1 running, \x1b[31m2 failed\x1b[0m ")) << totals[0];
}

TEST(ProgressLines, ManyJobsShareALine) {
    std::vector<JobLine> jobs(most_job_lines + 1, {"n", {}, 0});
    const auto lines = render_progress(jobs, {}, 79, false);
    ASSERT_EQ(lines.size(), most_job_lines + 2);
    EXPECT_EQ(lines[most_job_lines], "and 1 more");
    jobs.pop_back();
    EXPECT_EQ(render_progress(jobs, {}, 79, false).size(), most_job_lines + 1);
    // Never more lines than there is room for, and every job is in one of them.
    const struct {
        std::size_t jobs;
        int height;
        std::size_t lines;
        const char* more;
    } cases[] = {{20, 11, 11, "and 11 more"}, {10, 11, 11, nullptr},   {11, 11, 11, "and 2 more"},
                 {30, 40, 22, "and 10 more"}, {3, 2, 2, "and 3 more"}, {3, 1, 1, nullptr}};
    for (const auto& c : cases) {
        jobs.assign(c.jobs, {"n", {}, 0});
        const auto drawn = render_progress(jobs, {}, 79, false, c.height);
        ASSERT_EQ(drawn.size(), c.lines) << c.jobs << " in " << c.height;
        if (c.more != nullptr) {
            EXPECT_EQ(drawn[drawn.size() - 2], c.more);
        }
    }
}

TEST(ProgressLines, SayWhatAJobWaitsFor) {
    using namespace std::chrono_literals;
    const Clock::time_point now{};
    JobProgress progress;
    EXPECT_EQ(wait_text(progress, now), "");
    progress.waiting_for = "HTTP/1.1 503 Busy";
    progress.attempts = 7;
    progress.next_try = now + 11900ms;
    EXPECT_EQ(wait_text(progress, now), "retry 7 in 0:12: HTTP/1.1 503 Busy");
    EXPECT_EQ(wait_text(progress, now + 12s), "retry 7: HTTP/1.1 503 Busy");
    const JobLine job{"name.iso", progress, 0, wait_text(progress, now)};
    EXPECT_EQ(render_progress({job}, {}, 79, false)[0],
              "name.iso                 --  retry 7 in 0:12: HTTP/1.1 503 Busy");
    EXPECT_EQ(render_progress({job}, {}, 40, false)[0], "name.iso        --  retry 7 in… 503 Busy");
}

}  // namespace
}  // namespace vantlow
