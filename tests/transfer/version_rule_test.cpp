#include "transfer/job/version_rule.h"

#include <gtest/gtest.h>

namespace vantlow {
namespace {

TEST(VersionRule, TellsVersionsApart) {
    using enum VersionMatch;
    struct Case {
        const char* name;
        ResourceVersion known;
        ResourceVersion answer;
        VersionMatch match;
    };
    const Case cases[] = {
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
    for (const Case& c : cases) EXPECT_EQ(compare_versions(c.known, c.answer), c.match) << c.name;
}

TEST(VersionRule, TellsOtherContentFromAnotherVersion) {
    const ResourceVersion file{900, "mon", "\"a\"", true, "application/zip"};
    const ResourceVersion bare{900, "", "", false, ""};
    struct Case {
        const char* name;
        ResourceVersion known;
        ResourceVersion answer;
        bool other;
    };
    const Case cases[] = {
        {"a page", file, {20, "", "", false, "text/html"}, true},
        {"a page with validators of its own", file, {20, "tue", "\"p\"", true, "text/html"}, true},
        {"a page in place of what told nothing", bare, {20, "", "", false, "text/html"}, true},
        {"a new version", file, {950, "tue", "\"b\"", true, "application/zip"}, false},
        {"another type with the same tag", file, {900, "tue", "\"a\"", true, "application/x-zip"}, false},
        {"validators are gone, and the size", file, {20, "", "", false, ""}, true},
        {"validators are gone", file, {900, "", "", false, ""}, false},
        {"another size, and nothing else was told", bare, {950, "", "", false, ""}, false},
    };
    for (const Case& c : cases) EXPECT_EQ(is_other_content(c.known, c.answer), c.other) << c.name;
    EXPECT_TRUE(is_strong_date(1000, 1060));
    EXPECT_FALSE(is_strong_date(1000, 1059));
}

}  // namespace
}  // namespace vantlow
