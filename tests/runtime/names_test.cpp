#include <gtest/gtest.h>

#include <array>

#include "platform/file.h"
#include "platform/process.h"
#include "runtime/host_names.h"

namespace vantlow {
namespace {

TEST(HostNames, library_knows_whose_a_domain_is) {
    const LibraryTables tables = load_libraries(folder_of(program_path()));
    if (tables.names.Names_IsPublicSuffix == nullptr) GTEST_SKIP() << "built without libpsl";
    const HostNameScope names(tables.names);
    for (const char* suffix : {"com", "co.uk", "CO.UK.", "github.io", "xn--55qx5d.cn", "anything.ck"})
        EXPECT_TRUE(is_public_suffix(suffix)) << suffix;
    for (const char* own : {"example.com", "example.co.uk", "who.github.io", "www.ck"})
        EXPECT_FALSE(is_public_suffix(own)) << own;
    std::array<char, 8> little{};
    EXPECT_EQ(tables.names.Names_ToAscii("b\xC3\xBC"
                                         "cher.example",
                                         little.data(), little.size()),
              0U);
    EXPECT_EQ(ascii_host("\xFF.example"), std::nullopt);
}

TEST(HostNames, without_the_library_only_ascii_and_dots_count) {
    EXPECT_EQ(ascii_host("Host_1.example"), "Host_1.example");
    EXPECT_EQ(ascii_host("b\xC3\xBC"
                         "cher.example"),
              std::nullopt);
    EXPECT_TRUE(is_public_suffix("com"));
    EXPECT_FALSE(is_public_suffix("co.uk"));
}

}  // namespace
}  // namespace vantlow
