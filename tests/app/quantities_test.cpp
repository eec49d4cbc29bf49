#include "app/terminal/quantities.h"

#include <gtest/gtest.h>

#include <limits>

namespace vantlow {
namespace {

TEST(Quantities, RatesAreReadAsPeopleWriteThem) {
    const struct {
        std::string_view text;
        std::int64_t rate;
    } cases[] = {
        {"0", 0},
        {"131072", 131072},
        {"500K", 512000},
        {"2m", 2097152},
        {"1.5M", 1572864},
        {"1G", 1073741824},
        {"0.1k", 102},
        {"2T", 2199023255552},
        {"64kb", 65536},
        {"64KiB/s", 65536},
        {"7B/s", 7},
        {"7/S", 7},
        {"0.000001G", 1073},
        {"1.99999999999999999999999999K", 2047},
        {"4194303T", 4611684918915760128},
    };
    for (const auto& entry : cases) EXPECT_EQ(parse_rate(entry.text), entry.rate) << entry.text;
}

// A rate that cannot be read must never become "no limit" or a wrapped number.
TEST(Quantities, AllElseIsNoRate) {
    for (const std::string_view text : {"",
                                        "K",
                                        "B",
                                        "/s",
                                        ".5M",
                                        "1.",
                                        "1.M",
                                        "1.5",
                                        "1.5B",
                                        "1,5M",
                                        "1.5.5M",
                                        "-1",
                                        "+1",
                                        " 1",
                                        "1 K",
                                        "1KK",
                                        "1Ki",
                                        "1iB",
                                        "1/sB",
                                        "0x10",
                                        "1e3",
                                        "M1",
                                        "1P",
                                        "0.0000001G",
                                        "0.0001K",
                                        "8388608T",
                                        "9223372036854775808",
                                        "18014398509481985K"}) {
        EXPECT_EQ(parse_rate(text), std::nullopt) << text;
    }
}

TEST(Quantities, SizesSpeedsAndTimesFitTheirColumns) {
    constexpr std::int64_t k = 1024;
    const struct {
        std::int64_t bytes;
        std::string_view expected;
    } sizes[] = {
        {-1, "--"},
        {0, "0 B"},
        {1023, "1023 B"},
        {k, "1.0 KiB"},
        {1503238554, "1.4 GiB"},
        {k * 9994 / 100, "99.9 KiB"},
        {k * 9996 / 100, "100 KiB"},
        {k * k - 1, "1.0 MiB"},
        {k * k - k / 2 - 1, "1023 KiB"},
        {std::numeric_limits<std::int64_t>::max(), "8.0 EiB"},
    };
    for (const auto& entry : sizes) EXPECT_EQ(human_size(entry.bytes), entry.expected);
    for (std::int64_t bytes = 1; bytes < std::numeric_limits<std::int64_t>::max() / 2;
         bytes += bytes / 16 + 1) {
        EXPECT_LE(human_size(bytes).size(), 8U) << bytes;
    }
    const struct {
        double speed;
        std::string_view expected;
    } speeds[] = {{0, "--"},
                  {-3, "--"},
                  {0.4, "--"},
                  {0.5, "1 B/s"},
                  {1e6, "977 KiB/s"},
                  {1e300, "888 PiB/s"},
                  {std::numeric_limits<double>::infinity(), "888 PiB/s"},
                  {std::numeric_limits<double>::quiet_NaN(), "--"}};
    for (const auto& entry : speeds) EXPECT_EQ(human_speed(entry.speed), entry.expected);
    const struct {
        std::int64_t seconds;
        std::string_view expected;
    } times[] = {
        {-1, "--"},           {0, "0:00"},        {42, "0:42"},
        {3599, "59:59"},      {3600, "1:00:00"},  {3723, "1:02:03"},
        {359999, "99:59:59"}, {360000, "4d 04h"}, {86399999, "999d 23h"},
        {86400000, "--"},
    };
    for (const auto& entry : times) EXPECT_EQ(human_time(entry.seconds), entry.expected);
}

TEST(Quantities, MomentsForProgramsAreInUtc) {
    EXPECT_EQ(iso_time(0), "1970-01-01T00:00:00Z");
    EXPECT_EQ(iso_time(1764090309), "2025-11-25T17:05:09Z");
    EXPECT_EQ(iso_time(4107542399), "2100-02-28T23:59:59Z");
    EXPECT_EQ(iso_time_with_milliseconds(1764090309042), "2025-11-25T17:05:09.042Z");
    EXPECT_EQ(iso_time_with_milliseconds(-1), "1969-12-31T23:59:59.999Z");
}

}  // namespace
}  // namespace vantlow
