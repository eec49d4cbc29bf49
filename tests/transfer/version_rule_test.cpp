#include "transfer/job/version_rule.h"

#include <gtest/gtest.h>

namespace vantlow {
namespace {

TEST(VersionRule, TellsVersionsApartByWhatServersMean) {
    using enum VersionMatch;
    struct Case {
        const char* name;
        ResourceVersion known;
        ResourceVersion answer;
        VersionMatch match;
    };
    const Case cases[] = {
        {"all the same", {9, "mon", "\"a\""}, {9, "mon", "\"a\""}, same},
        {"another mirror's tag", {9, "mon", "\"a\""}, {9, "mon", "\"b\""}, same},
        {"a tag that is gone", {9, "mon", "\"a\""}, {9, "mon", ""}, same},
        {"another date", {9, "mon", "\"a\""}, {9, "tue", "\"a\""}, changed},
        {"another size", {9, "mon", "\"a\""}, {8, "mon", "\"a\""}, changed},
        {"another size and nothing else", {9, "", ""}, {8, "", ""}, changed},
        {"a size that is not said", {9, "mon", ""}, {-1, "mon", ""}, same},
        {"a size that was not known", {-1, "mon", ""}, {9, "mon", ""}, same},
        {"an empty file that grew", {0, "", "\"a\""}, {1, "", "\"a\""}, changed},
        {"only the tag, the same", {9, "", "\"a\""}, {9, "", "\"a\""}, same},
        {"only the tag, another", {9, "", "\"a\""}, {9, "", "\"b\""}, unsure},
        {"a weak tag proves no bytes", {9, "", "W/\"a\""}, {9, "", "W/\"a\""}, unsure},
        {"weak and strong", {9, "", "W/\"a\""}, {9, "", "\"a\""}, unsure},
        {"strong and weak", {9, "", "\"a\""}, {9, "", "W/\"a\""}, unsure},
        {"a date on one side, tags equal", {9, "mon", "\"a\""}, {9, "", "\"a\""}, same},
        {"a date on one side, tags differ", {9, "", "\"a\""}, {9, "mon", "\"b\""}, unsure},
        {"the size alone", {9, "", ""}, {9, "", ""}, unsure},
        {"nothing", {}, {}, unsure},
    };
    for (const Case& c : cases) EXPECT_EQ(compare_versions(c.known, c.answer), c.match) << c.name;
}

}  // namespace
}  // namespace vantlow
