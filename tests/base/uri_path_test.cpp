#include "base/text.h"

#include <gtest/gtest.h>

namespace vantlow {
namespace {

TEST(RemoveDotSegments, does_as_the_standard_says) {
    const struct {
        const char* path;
        const char* without;
    } cases[] = {
        {"/a/b/c/./../../g", "/a/g"},
        {"mid/content=5/../6", "mid/6"},
        {"/", "/"},
        {"", ""},
        {"/.", "/"},
        {"/..", "/"},
        {"/../../x", "/x"},
        {"/a/..", "/"},
        {"/a/b/.", "/a/b/"},
        {"/a//../b", "/a/b"},
        {"//etc/f", "//etc/f"},
        {"/a/%2E%2e/.%2e/b", "/b"},
        {"/.../.a/..b/%2Ec", "/.../.a/..b/%2Ec"},
        {"/a/../b?c/../d", "/b?c/../d"},
        {"/a/..?x", "/?x"},
        {"../x", "/x"},
        {"..", ""},
    };
    for (const auto& c : cases) EXPECT_EQ(remove_dot_segments(c.path), c.without) << c.path;
}

}  // namespace
}  // namespace vantlow
