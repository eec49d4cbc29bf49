// Cookies (who may set them, who gets them, for how long) and hosts that want TLS only: kept for the run.
#include <gtest/gtest.h>

#include <array>

#include "platform/file.h"
#include "platform/process.h"
#include "runtime/host_names.h"
#include "transfer/http/cookie_jar.h"
#include "transfer/http/head.h"
#include "transfer/http/strict_hosts.h"

namespace vantlow {
namespace {

constexpr std::int64_t now = 1'000'000'000;

std::vector<SetCookie> set_by(const std::string& value) {
    const auto head = parse_head("HTTP/1.1 200 OK\r\nSet-Cookie: " + value + "\r\n\r\n");
    return head.ok() ? head->cookies : std::vector<SetCookie>{};
}

TEST(CookieJar, GivesACookieToThoseItIsFor) {
    struct Case {
        const char* set;
        CookieTarget from;
        CookieTarget to;
        const char* sent;
    };
    const CookieTarget www{"www.Example.com", "/a/b?c=/d", false};
    const CookieTarget tls{"www.example.com", "/a/b", true};
    const std::array cases{
        Case{"n=v", www, www, "n=v"},
        Case{"n=v", www, {"www.example.com", "/a/other", false}, "n=v"},
        Case{"n=v", www, {"www.example.com", "/ab", false}, ""},
        Case{"n=v", www, {"below.www.example.com", "/a/b", false}, ""},
        Case{"n=v; Domain=.example.com; path=/", www, {"other.example.com", "/", false}, "n=v"},
        Case{"n=v; domain=example.com; path=/", www, {"badexample.com", "/", false}, ""},
        Case{"n=v; domain=other.com; path=/", www, {"other.com", "/", false}, ""},
        Case{"n=v; domain=com; path=/", www, {"any.com", "/", false}, ""},
        Case{"n=v; domain=0.0.1; path=/", {"127.0.0.1", "/", false}, {"127.0.0.1", "/", false}, ""},
        Case{"n=v; Secure", tls, www, ""},
        Case{"n=v; Secure", tls, tls, "n=v"},
        Case{"n=v; Secure", www, tls, ""},
        Case{"__Host-n=v; Secure; path=/", tls, tls, "__Host-n=v"},
        Case{"__Host-n=v; Secure; path=/; domain=example.com", tls, tls, ""},
        Case{"n=v; max-age=0", www, www, ""},
        Case{"n=v; max-age=10; expires=Thu, 01 Jan 1970 00:00:00 GMT", www, www, "n=v"},
        Case{"n=v; expires=Thu, 01-Jan-70 00:00:10 GMT", www, www, ""},
        Case{"n=v; path=relative", www, www, "n=v"},
        Case{"=v", www, www, ""},
        Case{"n", www, www, ""},
    };
    for (const Case& one : cases) {
        CookieJar jar;
        jar.take(set_by(one.set), one.from, now);
        EXPECT_EQ(jar.cookies_for(one.to, now), one.sent) << one.set << " to " << one.to.host << one.to.path;
    }
}

TEST(CookieJar, ReplacesOrdersAndForgets) {
    CookieJar jar;
    const CookieTarget site{"h.example", "/a/b/c", false};
    for (const char* set : {"a=1; path=/", "b=1; path=/a/b", "c=1; path=/; max-age=5", "a=2; path=/"})
        jar.take(set_by(set), site, now);
    EXPECT_EQ(jar.cookies_for(site, now), "b=1; a=2; c=1");
    EXPECT_EQ(jar.cookies_for(site, now + 5), "b=1; a=2");
    jar.take(set_by("b=; path=/a/b; max-age=-1"), site, now);
    EXPECT_EQ(jar.cookies_for(site, now), "a=2; c=1");
    for (int i = 0; i < 4000; ++i) jar.take(set_by("n" + std::to_string(i) + "=v; path=/"), site, now);
    EXPECT_EQ(jar.cookies_for(site, now).find("a=2"), std::string::npos) << "the oldest went";
    EXPECT_NE(jar.cookies_for(site, now).find("n3999=v"), std::string::npos);
    EXPECT_EQ(join_cookies("a=1; b=2", "b=3; c=4"), "a=1; b=2; c=4");
    EXPECT_EQ(join_cookies("", " c=4 ;"), "c=4");
}

TEST(CookieJar, KnowsWhoseADomainIs) {
    const LibraryTables tables = load_libraries(folder_of(program_path()));
    if (tables.names.Names_IsPublicSuffix == nullptr) GTEST_SKIP() << "built without libpsl";
    const HostNameScope names(tables.names);
    const struct {
        const char* domain;
        const char* from;
        const char* to;
        const char* sent;
    } cases[] = {
        {"co.uk", "www.shop.co.uk", "other.co.uk", ""},
        {"shop.co.uk", "www.shop.co.uk", "img.shop.co.uk", "n=v"},
        {"github.io", "me.github.io", "you.github.io", ""},
        // A suffix may keep its own cookie, for itself alone.
        {"github.io", "github.io", "github.io", "n=v"},
        {"github.io", "github.io", "you.github.io", ""},
    };
    for (const auto& one : cases) {
        CookieJar jar;
        jar.take(set_by(std::string("n=v; path=/; domain=") + one.domain), {one.from, "/", true}, now);
        EXPECT_EQ(jar.cookies_for({one.to, "/", true}, now), one.sent) << one.from << " to " << one.to;
    }
}

TEST(CookieJar, TakesNothingInTheClearThatStandsInForASecureCookie) {
    const CookieTarget tls{"www.h.example", "/a/b", true};
    const struct {
        const char* set;
        const char* host;
        const char* sent;
    } cases[] = {
        {"n=evil; path=/a", "www.h.example", "n=1"},
        {"n=evil; path=/a/b", "www.h.example", "n=1"},
        {"n=evil; path=/a; domain=h.example", "other.h.example", "n=1"},
        {"n=; path=/a; max-age=0", "www.h.example", "n=1"},
        {"n=fine; path=/", "www.h.example", "n=1; n=fine"},  // stands behind it, and for other folders
        {"m=fine; path=/a", "www.h.example", "n=1; m=fine"},
    };
    for (const auto& one : cases) {
        CookieJar jar;
        jar.take(set_by("n=1; secure; path=/a; max-age=100"), tls, now);
        jar.take(set_by(one.set), {one.host, "/a/b", false}, now);
        EXPECT_EQ(jar.cookies_for(tls, now), one.sent) << one.set;
    }
    CookieJar jar;
    jar.take(set_by("n=1; secure; path=/a; max-age=100"), tls, now);
    jar.take(set_by("n=2; path=/a"), {"www.h.example", "/", false}, now + 100);
    EXPECT_EQ(jar.cookies_for(tls, now + 100), "n=2") << "the secure one has ended";
    jar.take(set_by("n=3; path=/a"), tls, now + 100);
    EXPECT_EQ(jar.cookies_for(tls, now + 100), "n=3");
}

TEST(CookieJar, ReadsCookiesTxt) {
    CookieJar jar;
    jar.add(parse_cookies_txt("# Netscape HTTP Cookie File\r\n"
                              ".site.example\tTRUE\t/\tFALSE\t0\tall\t1\r\n"
                              "#HttpOnly_www.site.example\tFALSE\t/x\tTRUE\t2000000000\tone\t2\n"
                              "www.site.example\tFALSE\t/\tFALSE\t5\told\t3\n"
                              "www.site.example FALSE / FALSE 0 blanks 4\n"
                              "www.site.example\tFALSE\t/\tFALSE\t0\tempty\n"),
            now);
    EXPECT_EQ(jar.cookies_for({"www.site.example", "/x/y", true}, now), "one=2; all=1; empty=");
    EXPECT_EQ(jar.cookies_for({"www.site.example", "/x/y", false}, now), "all=1; empty=");
    EXPECT_EQ(jar.cookies_for({"b.site.example", "/", false}, now), "all=1");
    EXPECT_TRUE(jar.begin_file(u"f"));
    EXPECT_FALSE(jar.begin_file(u"f"));
}

TEST(CookieJar, ReadsDatesAsServersWriteThem) {
    for (const char* text : {"Sun, 06 Nov 1994 08:49:37 GMT", "Sunday, 06-Nov-94 08:49:37 GMT",
                             "Sun Nov  6 08:49:37 1994", "06 november 1994, 08:49:37"})
        EXPECT_EQ(parse_cookie_date(text), 784111777) << text;
    for (const char* text : {"", "soon", "06 Nov 1994", "06 Nov 1994 25:00:00", "32 Nov 1994 08:49:37"})
        EXPECT_FALSE(parse_cookie_date(text)) << text;
}

TEST(StrictHosts, go_by_what_the_host_says) {
    const struct {
        const char* field;
        const char* from;
        const char* asked;
        bool strict;
    } cases[] = {
        {"max-age=10", "h.example", "H.EXAMPLE.", true},
        {"max-age=10", "h.example", "www.h.example", false},
        {"max-age=10; includeSubDomains", "h.example", "a.www.h.example", true},
        {"max-age=10; includeSubDomains", "h.example", "badh.example", false},
        {"max-age=10; includeSubDomains", "www.h.example", "h.example", false},
        {" IncludeSubDomains ; MAX-AGE = \"10\" ; other=1;", "h.example", "www.h.example", true},
        {"max-age=99999999999999", "h.example", "h.example", true},
        {"max-age=0", "h.example", "h.example", false},
        {"max-age=10; max-age=20", "h.example", "h.example", false},
        {"max-age=-1", "h.example", "h.example", false},
        {"includeSubDomains", "h.example", "h.example", false},
        {"", "h.example", "h.example", false},
        {"max-age=10", "127.0.0.1", "127.0.0.1", false},
        {"max-age=10", "::1", "::1", false},
    };
    for (const auto& one : cases) {
        StrictHosts hosts;
        hosts.take(one.field, one.from, now);
        EXPECT_EQ(hosts.contains(one.asked, now + 9), one.strict) << one.field << " of " << one.from;
    }
}

TEST(StrictHosts, end_change_their_mind_and_are_not_too_many) {
    StrictHosts hosts;
    hosts.take("max-age=10; includeSubDomains", "h.example", now);
    EXPECT_FALSE(hosts.contains("h.example", now + 10));
    hosts.take("max-age=10", "h.example", now);
    EXPECT_FALSE(hosts.contains("www.h.example", now));
    hosts.take("rubbish", "h.example", now);
    EXPECT_TRUE(hosts.contains("h.example", now));
    for (int i = 0; i < 1200; ++i) hosts.take("max-age=20", "h" + std::to_string(i), now);
    EXPECT_FALSE(hosts.contains("h.example", now));
    EXPECT_TRUE(hosts.contains("h1199", now));
    hosts.take("max-age=0", "h1199", now);
    EXPECT_FALSE(hosts.contains("h1199", now));
}

}  // namespace
}  // namespace vantlow
