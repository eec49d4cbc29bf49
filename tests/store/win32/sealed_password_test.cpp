#include <gtest/gtest.h>

#include "store/proxies.h"
#include "support/fault_hook.h"
#include "support/temp_folder.h"

namespace vantlow {
namespace {

// The system encrypts passwords, and refuses now and then.
TEST(SealedPassword, IsNeitherWrittenInTheClearNorLostWhereTheSystemRefuses) {
    const test::TempFolder folder;
    const CProxyNode proxy = *parse_proxy(u"socks5://us:s\u00E9cret@h:1");
    std::string error;
    ASSERT_TRUE(save_proxies(folder.path(), {proxy}, error)) << error;
    const std::string before = folder.read(u".proxy");
    {
        test::FailNth fault(Operation::protect, 1, FileFault::access);
        const HookInPlace in_place(fault);
        EXPECT_FALSE(save_proxies(folder.path(), {proxy}, error));
        EXPECT_EQ(fault.failed(), 1);
    }
    EXPECT_FALSE(error.empty());
    EXPECT_EQ(folder.read(u".proxy"), before);

    std::vector<CProxyNode> proxies;
    {
        test::FailNth fault(Operation::protect, 1, FileFault::access);
        const HookInPlace in_place(fault);
        EXPECT_TRUE(load_proxies(folder.path(), proxies, error));
        EXPECT_EQ(fault.failed(), 1);
    }
    ASSERT_EQ(proxies.size(), 1U);
    EXPECT_EQ(proxies[0].password, u"");
    ASSERT_TRUE(save_proxies(folder.path(), proxies, error)) << error;
    EXPECT_EQ(folder.read(u".proxy"), before) << "for when the system gives it back";
}

}  // namespace
}  // namespace vantlow
