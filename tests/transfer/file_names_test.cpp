#include "transfer/job/file_names.h"

#include <gtest/gtest.h>

#include <set>

#include "base/text.h"

namespace vantlow {
namespace {

std::string free_among(const std::u16string& name, const std::set<std::u16string>& taken) {
    return to_utf8(
        free_name(name, [&](const std::u16string& candidate) { return taken.contains(candidate); }));
}

TEST(FreeName, CountsOnFromTheNumberThatIsThere) {
    struct Case {
        std::u16string name;
        std::set<std::u16string> taken;
        const char* free;
    };
    const Case cases[] = {
        {u"a.zip", {u"a.zip"}, "a(1).zip"},
        {u"a.zip", {u"a.zip", u"a(1).zip", u"a(3).zip"}, "a(2).zip"},
        {u"a(7).zip", {u"a(7).zip"}, "a(8).zip"},
        {u"a(7).zip", {u"a(7).zip", u"a(8).zip"}, "a(9).zip"},
        {u"a(0).zip", {u"a(0).zip"}, "a(1).zip"},
        {u"a", {u"a"}, "a(1)"},
        {u"a(9)", {u"a(9)"}, "a(10)"},
        {u".profile", {u".profile"}, ".profile(1)"},
        {u"a.tar.gz", {u"a.tar.gz"}, "a.tar(1).gz"},
        {u"a(2)(3).zip", {u"a(2)(3).zip"}, "a(2)(4).zip"},
        // What is no number in parentheses stays part of the name.
        {u"a(x).zip", {u"a(x).zip"}, "a(x)(1).zip"},
        {u"a().zip", {u"a().zip"}, "a()(1).zip"},
        {u"a(-1).zip", {u"a(-1).zip"}, "a(-1)(1).zip"},
        {u"a(1) b.zip", {u"a(1) b.zip"}, "a(1) b(1).zip"},
        {u"a 7).zip", {u"a 7).zip"}, "a 7)(1).zip"},
        {u"a(99999999999999999999).zip", {u"a(99999999999999999999).zip"}, "a(99999999999999999999)(1).zip"},
        {u"\u65e5\u672c.zip", {u"\u65e5\u672c.zip"}, "\xE6\x97\xA5\xE6\x9C\xAC(1).zip"},
    };
    for (const Case& c : cases) EXPECT_EQ(free_among(c.name, c.taken), c.free) << to_utf8(c.name);
}

}  // namespace
}  // namespace vantlow
