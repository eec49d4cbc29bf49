#include "store/address.h"

#include <gtest/gtest.h>

#include "base/text.h"
#include "platform/file.h"
#include "platform/process.h"
#include "runtime/host_names.h"

namespace vantlow {
namespace {

TEST(SplitAddress, cuts_every_kind_of_address_by_the_table) {
    const struct {
        std::u16string address;
        int port;
        std::u16string server;
        std::u16string path = u"/";
        std::u16string user = u"";
        std::u16string password = u"";
    } cases[] = {
        {u"HTTP://Example/x", 80, u"HTTP://Example:80", u"/x"},
        {u"https://h", 443, u"https://h:443"},
        {u"sftp://h/", 22, u"sftp://h:22"},
        {u"ftp://host", 21, u"ftp://host:21"},
        {u"mmst://h/a", 1755, u"mmst://h:1755", u"/a"},
        {u"rtspt://h", 554, u"rtspt://h:554"},
        {u"pnm://h", 7070, u"pnm://h:7070"},
        {u"rtmp://h", 1935, u"rtmp://h:1935"},
        {u"rtmpt://h", 80, u"rtmpt://h:80"},
        {u"rtmpe://h", 1935, u"rtmpe://h:1935"},
        {u"rtmpte://h", 80, u"rtmpte://h:80"},
        {u"rtmps://h", 443, u"rtmps://h:443"},
        {u"udp://t.example/announce", 2710, u"udp://t.example:2710", u"/announce"},
        {u"http://h:8080/a", 80, u"http://h:8080", u"/a"},
        {u"host/dir/file", 21, u"ftp://host:21", u"/dir/file"},
        {u"host:2121", 21, u"ftp://host:2121"},
        {u"gopher://host/", 0, u"gopher://host/"},
        {u"http://ann:p:w@d@h/a@b", 80, u"http://h:80", u"/a@b", u"ann", u"p:w@d"},
        {u"ftp://ann@h", 21, u"ftp://h:21", u"/", u"ann"},
        {u"ann:pw@host/f", 21, u"ftp://host:21", u"/f", u"ann", u"pw"},
        {u"http://[::1]/x", 80, u"http://[::1]:80", u"/x"},
        {u"http://u:p@[::1]:81/x", 80, u"http://[::1]:81", u"/x", u"u", u"p"},
        {u"http://host?x=1", 80, u"http://host?x=1:80"},  // only a slash ends the server part
        {u"bt://abc", 6969, u"abc"},
        {u"bt://", 6969, u"bt://"},
        {u"Magnet:?xt=urn:btih:1", 6969, u"xt=urn:btih:1"},
        {u"ed2k://|file|a|1|b|/", 4661, u"ed2k://|file|a|1|b|/", u""},
        {u"metalink://", 109, u"metalink://"},
        {u"metalink://http://h/x", 109, u"http://h/x", u"http://h/x"},
    };
    for (const auto& c : cases) {
        const SplitAddress split = split_address(c.address);
        EXPECT_EQ(split.port, c.port) << testing::PrintToString(c.address);
        EXPECT_EQ(split.address, c.server);
        EXPECT_EQ(split.path, c.path) << testing::PrintToString(c.address);
        EXPECT_EQ(split.user, c.user);
        EXPECT_EQ(split.password, c.password);
        EXPECT_FALSE(split.secure);
    }
    EXPECT_TRUE(split_address(u"FTPS://host").secure);
    EXPECT_EQ(split_address(u"FTPS://host").port, 21);
}

std::string told(const std::optional<Target>& target) {
    if (!target) return "none";
    return target->scheme + " " + target->host_text() + " " + std::to_string(target->port) +
           (target->explicit_port ? "! " : " ") + target->path;
}

TEST(IsSameServer, goes_by_scheme_name_in_any_case_and_port) {
    const auto same = [](std::u16string_view a, std::u16string_view b) {
        return is_same_server(*parse_target(a), *parse_target(b));
    };
    EXPECT_TRUE(same(u"http://Mirror.Example/a", u"HTTP://ann:pw@mirror.example:80/b"));
    EXPECT_FALSE(same(u"http://mirror.example/", u"https://mirror.example/"));
    EXPECT_FALSE(same(u"http://mirror.example/", u"http://mirror.example:8080/"));
    EXPECT_FALSE(same(u"http://mirror.example/", u"http://mirror.example.org/"));
}

TEST(ParseTarget, finds_server_and_path_as_a_browser_would) {
    const struct {
        std::u16string address;
        std::string target;
    } cases[] = {
        {u"HTTP://Example/x", "http Example 80 /x"},
        {u"https://h:8443", "https h 8443! /"},
        {u"http://h:/x", "http h 80 /x"},
        {u"host:2121/f", "ftp host 2121! /f"},
        {u"http://h?q=a@b/c", "http h 80 /?q=a@b/c"},
        {u"http://h#f/x", "http h 80 /"},
        {u"http://good?@evil/", "http good 80 /?@evil/"},
        {u"http://h/a?b#c?d", "http h 80 /a?b"},
        {u"http://[2001:db8::1]:81/x", "http [2001:db8::1] 81! /x"},
        {u"http://[fe80::1%25eth0]/x", "http [fe80::1] 80 /x"},
        {u"http://ex%61mple/", "http example 80 /"},
        {u"http://h/a b\u00E4%20%zz", "http h 80 /a%20b%C3%A4%20%zz"},
        {u"http://h/a\r\nHost: evil", "http h 80 /a%0D%0AHost:%20evil"},
        {u"http://h/\"<>{}|^`", "http h 80 /%22%3C%3E%7B%7D%7C%5E%60"},
        {u"http://h/\xDCFF", "http h 80 /%FF"},  // a byte that was not UTF-8
        {u"http://h/a/./b/../c?d=/../e", "http h 80 /a/c?d=/../e"},
        {u"ftp://h/../%2e%2E/f", "ftp h 21 /f"},
        {u"http:pw@h/f", "ftp h 21 /f"},
        {u"http:80/f", "ftp http 80! /f"},
    };
    for (const auto& c : cases) EXPECT_EQ(told(parse_target(c.address)), c.target);
    EXPECT_EQ(parse_target(u"http://[fe80::1%25eth0]/")->host, "fe80::1%eth0");
}

TEST(ParseTarget, refuses_what_names_no_server) {
    for (const char16_t* address : {u"",
                                    u"http://",
                                    u"http:///x",
                                    u"http://:80/",
                                    u"http://@/",
                                    u"gopher://h/",
                                    u"magnet:?xt=1",
                                    u"bt://h/",
                                    u"ed2k://|file|",
                                    u"metalink://h",
                                    u"http://h:0/",
                                    u"http://h:65536/",
                                    u"http://h:-1/",
                                    u"http://h:8x/",
                                    u"http://h:80:81/",
                                    u"http://a b/",
                                    u"http://a\r\nb/",
                                    u"http://a%0d%0ab/",
                                    u"http://a\\b/",
                                    u"http://a%2fb/",
                                    u"http://a%00b/",
                                    u"http://::1/",
                                    u"http://[::1/",
                                    u"http://[]/",
                                    u"http://[::1]x/",
                                    u"http://[g::1]/",
                                    u"http://a]/",
                                    u"http://a<b/",
                                    u"http://a%ffb/",
                                    u"http://h%zz/",
                                    u"http://u%0d%0a:p@h/",
                                    u"ftp://u:p%0aDELE%20x@h/",
                                    u"ftp://u:p\nq@h/",
                                    u"http://u:p?w@h/",
                                    u"http:/host/x",
                                    u"FTP:\\\\host\\x",
                                    u"x@https:/y",
                                    u"https:"}) {
        EXPECT_EQ(told(parse_target(address)), "none") << testing::PrintToString(std::u16string(address));
    }
}

TEST(ParseTarget, writes_international_names_in_ascii) {
    const LibraryTables tables = load_libraries(folder_of(program_path()));
    if (tables.names.Names_ToAscii == nullptr) GTEST_SKIP() << "built without libidn2";
    {
        const HostNameScope names(tables.names);
        const struct {
            std::u16string address;
            std::string target;
        } cases[] = {
            {u"http://B\u00DCcher.example/", "http xn--bcher-kva.example 80 /"},
            {u"http://b%C3%BCcher.example:81/\u00FC", "http xn--bcher-kva.example 81! /%C3%BC"},
            {u"https://fa\u00DF.de", "https xn--fa-hia.de 443 /"},  // not "fass.de", another one's
            {u"ftp://u\u0308ber.example", "ftp xn--ber-goa.example 21 /"},
            {u"http://\u4F60\u597D\u3002cn/", "http xn--6qq79v.cn 80 /"},
            {u"http://_x.b\u00FCcher.example/", "http _x.xn--bcher-kva.example 80 /"},
            {u"http://good\uFF0Fevil.example/", "none"},  // a slash to others
            {u"http://\u2100.example/", "none"},
            {u"http://a\u00AD\u200Db\u0301c\uFFFD.example/", "none"},
            {u"http://" + std::u16string(70, u'\u00FC') + u".example/", "none"},
        };
        for (const auto& c : cases) EXPECT_EQ(told(parse_target(c.address)), c.target) << to_utf8(c.address);
    }
    EXPECT_EQ(told(parse_target(u"http://b\u00FCcher.example/")), "none");
}

TEST(WhyNoTarget, says_what_is_wrong) {
    EXPECT_EQ(why_no_target(u"http:/u:p@host/x"),
              "Invalid URL: a slash is missing, such addresses begin with \"http://\".");
    EXPECT_NE(why_no_target(u"http://u:p@b\u00FCcher.example/x").find("libnames"), std::string::npos);
    EXPECT_EQ(why_no_target(u"http://u:p@a b/x"), "Invalid URL.");
}

TEST(ParseTarget, decodes_credentials) {
    const auto target = parse_target(u"ftp://a%40b:p%3Aw%2F%E4%BD%A0@h/");
    ASSERT_TRUE(target);
    EXPECT_EQ(target->user, u"a@b");
    EXPECT_EQ(target->password, u"p:w/\u4F60");
}

TEST(ParseTarget, never_lets_a_code_page_make_a_query) {
    const auto path = [](std::u16string_view address) { return parse_target(address, false)->path; };
    EXPECT_EQ(path(u"http://h/a?b"), "/a?b");
    EXPECT_EQ(path(u"http://h/\u4F60\U0001F600").find('?'), std::string::npos);
}

TEST(WithoutCredentials, hides_them_also_where_the_address_is_wrong) {
    const struct {
        std::u16string address;
        std::u16string shown;
    } cases[] = {
        {u"http://u:p@h:81/a@b?c#d", u"http://h:81/a@b?c#d"},
        {u"FTP://u@h", u"FTP://h"},
        {u"u:p@h/f", u"h/f"},
        {u"http://h/x@y", u"http://h/x@y"},
        {u"http://h?m=a@b", u"http://h?m=a@b"},
        {u"gopher://u:p@h/", u"gopher://h/"},
        {u"ftp://u:p#w/d@h/f", u"ftp://h/f"},
        {u"http://u:p@/x", u"http:///x"},
        {u"u:p@h/f?next=http://i/", u"h/f?next=http://i/"},
        {u"x@ftp://user:password@h/f", u"h/f"},
        {u"magnet:?dn=a@b", u"magnet:?dn=a@b"},
    };
    for (const auto& c : cases) EXPECT_EQ(without_credentials(c.address), c.shown);
}

}  // namespace
}  // namespace vantlow
