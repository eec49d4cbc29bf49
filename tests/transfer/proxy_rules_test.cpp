// Which proxy an address goes through.
#include "transfer/job/proxy_rules.h"

#include <gtest/gtest.h>

#include <array>

#include "store/proxies.h"

namespace vantlow {
namespace {

TEST(ProxyRules, HostsThatNeedNoProxyAreReachedDirectly) {
    struct Case {
        const char* list;
        const char* host;
        std::uint16_t port;
        bool direct;
    };
    const std::array cases{
        Case{"", "a.example", 80, false},
        Case{"*", "a.example", 80, true},
        Case{"example", "a.example", 80, true},
        Case{".example", "a.example", 80, true},
        Case{".A.EXAMPLE.", "a.example", 80, true},
        Case{"ample", "a.example", 80, false},
        Case{"b.example, a.example", "a.example", 80, true},
        Case{"a.example:8080", "a.example", 80, false},
        Case{"a.example:80", "a.example", 80, true},
        Case{"127.0.0.1", "127.0.0.1", 80, true},
        Case{"0.0.1", "127.0.0.1", 80, false},
        Case{"10.0.0.0/8", "10.200.3.4", 80, true},
        Case{"10.0.0.0/8", "11.0.0.1", 80, false},
        Case{"192.168.4.0/22", "192.168.7.255", 80, true},
        Case{"192.168.4.0/22", "192.168.8.0", 80, false},
        Case{"10.0.0.0/99", "10.0.0.0", 80, false},
        Case{"10.0.0.0/8", "10.example", 80, false},
        Case{"::1", "::1", 80, true},
        Case{"[::1]:81", "::1", 80, false},
        Case{"fd00::/8", "fdff::1", 80, true},
    };
    for (const Case& one : cases) {
        ProxyRules rules;
        rules.set_direct(one.list);
        EXPECT_EQ(rules.is_direct(one.host, one.port), one.direct) << one.list << " " << one.host;
    }
}

TEST(ProxyRules, EachSchemeHasItsProxy) {
    ProxyRules rules;
    const auto proxy = [](const char16_t* text) { return proxy_plan(*parse_proxy(text)); };
    rules.set("http", proxy(u"http://one:1"));
    rules.set("ftp", proxy(u"socks4://two:2"));
    EXPECT_EQ(rules.choose("http", "h", 80).host, "one");
    EXPECT_EQ(rules.choose("sftp", "h", 22).port, 2);
    EXPECT_FALSE(rules.choose("https", "h", 443).is_used());
    rules.set("", proxy(u"socks5h://us%40er:p%3Aw@[::2]"));
    EXPECT_EQ(proxy(u"socks://s").kind, ProxyPlan::socks5);
    EXPECT_EQ(proxy(u"socks://s").port, 1080);
    const ProxyPlan& all = rules.choose("https", "h", 443);
    EXPECT_EQ(all.kind, ProxyPlan::socks5);
    EXPECT_EQ(all.host, "::2");
    EXPECT_EQ(all.port, 1080);
    EXPECT_EQ(all.user, "us@er");
    EXPECT_EQ(all.password, "p:w");
}

TEST(ProxyAddress, IsReadAsItIsWritten) {
    for (const char16_t* bad :
         {u"", u"socks6://h:1", u"http://", u"http://h:1/path", u"http://h:0", u"h:99999"})
        EXPECT_FALSE(parse_proxy(bad));
    const auto node = parse_proxy(u"CONNECT://a%2Fb:c@[::1]:8");
    ASSERT_TRUE(node);
    EXPECT_EQ(node->kind, CProxyNode::http_tunnel);
    EXPECT_EQ(proxy_text(*node), u"connect://a%2Fb@[::1]:8");
    EXPECT_EQ(proxy_text_with_password(*node), u"connect://a%2Fb:c@[::1]:8");
    EXPECT_EQ(parse_proxy(u"h:3128")->kind, CProxyNode::http);
    EXPECT_EQ(proxy_text(*parse_proxy(u"socks4a://h")), u"socks4://h:1080");
}

}  // namespace
}  // namespace vantlow
