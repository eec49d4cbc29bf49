#include "app/terminal/quantities.h"

#include <gtest/gtest.h>

namespace vantlow {
namespace {

TEST(RateText, ReadsWhatPeopleWrite) {
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
TEST(RateText, RefusesAllElse) {
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

}  // namespace
}  // namespace vantlow
