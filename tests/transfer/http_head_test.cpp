#include "transfer/http/head.h"

#include <gtest/gtest.h>

#include <functional>

namespace vantlow {
namespace {

HttpHead parsed(const std::string& fields, const std::string& status_line = "HTTP/1.1 200 OK") {
    auto head = parse_head(status_line + "\r\n" + fields + "\r\n");
    EXPECT_TRUE(head.ok()) << fields << head.failure().message();
    return head.ok() ? *head : HttpHead{};
}

TEST(HttpHead, EndsAtTheFirstEmptyLineHoweverLinesEnd) {
    const struct {
        const char* bytes;
        std::size_t end;
    } cases[] = {
        {"HTTP/1.1 200 OK\r\nA: b\r\n\r\nrest", 25},
        {"HTTP/1.1 200 OK\nA: b\n\nrest", 22},
        {"HTTP/1.1 200 OK\nA: b\r\n\nrest", 23},
        {"HTTP/1.1 200 OK\r\nA: b\n\r\nrest", 24},
        {"HTTP/1.1 200 OK\r\nA: b\r\n", std::string::npos},
        {"HTTP/1.1 200 OK\r\nA: b\r\n\r", std::string::npos},
        {"HTTP/1.1 200 OK\r\nA: b\r\r\n", std::string::npos},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(find_head_end(c.bytes), c.end) << c.bytes;
        // Whatever part came first, two bytes back are enough to go on searching.
        const std::string_view bytes = c.bytes;
        for (std::size_t i = 2; i < std::min(bytes.size(), c.end); ++i) {
            EXPECT_EQ(find_head_end(bytes.substr(0, i)), std::string::npos) << bytes.substr(0, i);
            EXPECT_EQ(find_head_end(bytes, i - 2), c.end) << bytes << " from " << i;
        }
    }
}

TEST(HttpHead, ReadsStatusLines) {
    const struct {
        const char* line;
        int status;
        const char* reason;
        int minor_version;
        bool keep_alive;
    } cases[] = {
        {"HTTP/1.1 200 OK", 200, "OK", 1, true},
        {"HTTP/1.0 404 Not Found", 404, "Not Found", 0, false},
        {"HTTP/1.1 206", 206, "", 1, true},
        {"HTTP/1.1 206 ", 206, "", 1, true},
        {"HTTP/1.1 503   Come back  ", 503, "Come back", 1, true},
        {"HTTP/1.1 200 \xC3\x9C", 200, "\xC3\x9C", 1, true},
        {"HTTP/1.1 999 Strange", 999, "Strange", 1, true},
    };
    for (const auto& c : cases) {
        const HttpHead head = parsed("", c.line);
        EXPECT_EQ(head.status, c.status) << c.line;
        EXPECT_EQ(head.reason, c.reason) << c.line;
        EXPECT_EQ(head.minor_version, c.minor_version) << c.line;
        EXPECT_EQ(head.keep_alive, c.keep_alive) << c.line;
    }
    for (const char* line :
         {"", "<html>", "SSH-2.0-OpenSSH", "HTTP/1.1", "HTTP/1.1 ", "HTTP/1.1 20", "HTTP/1.1 2000 OK",
          "HTTP/1.1 abc", "HTTP/1.1 -20 OK", "HTTP/1.1 +20 OK", "HTTP/1.1 099 OK", "HTTP/1.1 200OK"}) {
        const auto head = parse_head(std::string(line) + "\r\nContent-Length: 1\r\n\r\n");
        EXPECT_FALSE(head.ok()) << line;
        EXPECT_EQ(head.failure().code, Code::server_error) << line;
        EXPECT_FALSE(head.failure().detail.empty()) << line;
    }
    EXPECT_FALSE(parse_head("").ok());
}

TEST(HttpHead, RecognisesItsFieldsInAnyLetterCase) {
    const HttpHead head = parsed(
        "SERVER: Apache/2 (Unix)\r\n"
        "lOcAtIoN: /Next?Q=1\r\n"
        "Content-Type: Text/HTML; charset=utf-8; Name=\"An; Index.html\"\r\n"
        "CONTENT-DISPOSITION: Attachment; filename=\"A.zip\"\r\n"
        "content-range:bytes 100-199/1000\r\n"
        "Content-Length:\t100  \r\n"
        "last-modified: Sun, 06 Nov 1994 08:49:37 GMT\r\n"
        "ETag: W/\"Abc\"\r\n"
        "Accept-Ranges: Bytes\r\n"
        "Retry-After: 120\r\n"
        "Date: Sun, 06 Nov 1994 08:49:38 GMT\r\n"
        "icy-metaint:8192\r\n"
        "a line without the mark of a field\r\n"
        "X-Content-Length: 7\r\n"
        "Empty:\r\n",
        "HTTP/1.1 206 Partial Content");
    EXPECT_EQ(head.server, "Apache/2 (Unix)");
    EXPECT_EQ(head.location, "/Next?Q=1");
    EXPECT_EQ(head.content_type, "text/html");
    EXPECT_EQ(head.content_type_name, "An; Index.html");
    EXPECT_EQ(head.content_disposition, "Attachment; filename=\"A.zip\"");
    EXPECT_TRUE(head.range_unit_bytes);
    EXPECT_EQ(head.range_first, 100);
    EXPECT_EQ(head.range_last, 199);
    EXPECT_EQ(head.range_total, 1000);
    EXPECT_EQ(head.length, 100);
    EXPECT_EQ(head.last_modified, "Sun, 06 Nov 1994 08:49:37 GMT");
    EXPECT_EQ(head.etag, "W/\"Abc\"");
    EXPECT_EQ(head.accept_ranges, AcceptRanges::bytes);
    EXPECT_EQ(head.retry_after, 120);
    EXPECT_EQ(head.date, "Sun, 06 Nov 1994 08:49:38 GMT");
    EXPECT_EQ(head.icy_metaint, 8192);
    EXPECT_EQ(parsed("Content-Type: image/png\r\n").content_type_name, "");
    EXPECT_EQ(parsed("Content-Type: image/png; name=a.png\r\n").content_type_name, "a.png");
    EXPECT_EQ(parsed("Accept-Ranges: none\r\n").accept_ranges, AcceptRanges::none);
    EXPECT_EQ(parsed("Accept-Ranges: lines\r\n").accept_ranges, AcceptRanges::unsaid);
    const HttpHead dated = parsed("Retry-After: Sun, 06 Nov 1994 08:49:37 GMT\r\n");
    EXPECT_EQ(dated.retry_after, std::nullopt);
    EXPECT_EQ(dated.retry_after_date, "Sun, 06 Nov 1994 08:49:37 GMT");
}

TEST(HttpHead, ReadsContentRanges) {
    using Number = std::optional<std::int64_t>;
    struct Case {
        const char* value;
        bool bytes;
        Number first, last, total;
    };
    constexpr std::int64_t much = 9223372036854775807;
    const Case cases[] = {
        {"bytes 0-99/100", true, 0, 99, 100},
        {"BYTES 5-9/*", true, 5, 9, {}},
        {"bytes */100", true, {}, {}, 100},
        {"bytes=5-9/10", true, 5, 9, 10},  // seen from servers
        {"bytes  5 - 9 / 10", true, 5, 9, 10},
        {"bytes 5-9223372036854775806/9223372036854775807", true, 5, much - 1, much},
        {"bytes 5-9/9223372036854775808", true, 5, 9, {}},
        {"items 0-99/100", false, 0, 99, 100},
        {"bytes 0-99", true, {}, {}, {}},
        {"bytes -5-9/10", true, {}, {}, 10},
        {"bytes 0x5-9/10", true, {}, 9, 10},
        {"bytes", false, {}, {}, {}},
        {"", false, {}, {}, {}},
    };
    for (const Case& c : cases) {
        const HttpHead head = parsed("Content-Range: " + std::string(c.value) + "\r\n");
        EXPECT_EQ(head.range_unit_bytes, c.bytes) << c.value;
        EXPECT_EQ(head.range_first, c.first) << c.value;
        EXPECT_EQ(head.range_total, c.total) << c.value;
        EXPECT_EQ(head.range_last, c.last) << c.value;
    }
}

// RFC 9112, 6.3: a length that is in doubt is none to work with.
TEST(HttpHead, TakesNoDoubtfulBodyLength) {
    EXPECT_EQ(parsed("Content-Length: 9223372036854775807\r\n").length, 9223372036854775807);
    EXPECT_EQ(parsed("Content-Length: 0\r\n").length, 0);
    EXPECT_EQ(parsed("Content-Length: 5\r\nContent-Length: 5\r\n").length, 5);
    EXPECT_EQ(parsed("Content-Length: 5, 5\r\n").length, 5);
    EXPECT_EQ(parsed("Content-Size: 7\r\n").length, 7);
    EXPECT_EQ(parsed("Content-Type: a/b\r\n").length, std::nullopt);
    for (const char* fields :
         {"Content-Length: 5\r\nContent-Length: 6\r\n", "Content-Length: 5, 6\r\n", "Content-Length: -1\r\n",
          "Content-Length: +5\r\n", "Content-Length: 5 5\r\n", "Content-Length: 0x10\r\n",
          "Content-Length: 9223372036854775808\r\n", "Content-Length: five\r\n", "Content-Length: \r\n"}) {
        const auto head = parse_head("HTTP/1.1 200 OK\r\n" + std::string(fields) + "\r\n");
        EXPECT_FALSE(head.ok()) << fields;
        EXPECT_EQ(head.failure().code, Code::server_error) << fields;
    }
    const HttpHead both = parsed("Content-Length: 5\r\nTransfer-Encoding: Chunked\r\n");
    EXPECT_TRUE(both.chunked);
    EXPECT_EQ(both.length, std::nullopt);
    EXPECT_FALSE(parsed("Transfer-Encoding: identity\r\n").chunked);
    const HttpHead packed = parsed("Content-Length: 5\r\nTransfer-Encoding: x-gzip, chunked\r\n");
    EXPECT_EQ(packed.transfer_coding, ContentCoding::gzip);
    EXPECT_EQ(packed.length, std::nullopt);
    for (const char* coding : {"compress", "gzip, gzip", "br, chunked"}) {
        const auto head =
            parse_head("HTTP/1.1 200 OK\r\nTransfer-Encoding: " + std::string(coding) + "\r\n\r\n");
        EXPECT_EQ(head.failure().code, Code::unsupported) << coding;
    }
}

TEST(HttpHead, KnowsWhetherTheConnectionStays) {
    const struct {
        const char* status_line;
        const char* fields;
        bool stays;
    } cases[] = {
        {"HTTP/1.1 200 OK", "", true},
        {"HTTP/1.1 200 OK", "Connection: close\r\n", false},
        {"HTTP/1.1 200 OK", "Connection: Upgrade, CLOSE\r\n", false},
        {"HTTP/1.1 200 OK", "Connection: close, keep-alive\r\n", false},  // RFC 9112, 9.3: close decides
        {"HTTP/1.1 200 OK", "Connection: close\r\nConnection: keep-alive\r\n", false},
        {"HTTP/1.0 200 OK", "", false},
        {"HTTP/1.0 200 OK", "Connection: Keep-Alive\r\n", true},
        {"HTTP/1.0 200 OK", "Proxy-Connection: keep-alive\r\n", true},
        {"HTTP/1.1 200 OK", "Connection: closely\r\n", true},
    };
    for (const auto& c : cases)
        EXPECT_EQ(parsed(c.fields, c.status_line).keep_alive, c.stays) << c.status_line << c.fields;
}

TEST(HttpHead, TellsContentCodingsApart) {
    using enum ContentCoding;
    const std::pair<const char*, ContentCoding> cases[] = {
        {"GZIP", gzip},
        {"x-gzip", gzip},
        {"Deflate", deflate},
        {"", identity},
        {"identity", identity},
        {"identity, identity", identity},
        {"none", identity},
        {"UTF-8", identity},
        {"aws-chunked", identity},
        {"aws-chunked,gzip", gzip},
        {"gzip,", gzip},
        {"br", other},
        {"zstd", other},
        {"whatever", other},
        // Twice packed: undoing one of them would give a wrong file.
        {"gzip, gzip", other},
        {"br, gzip", other},
    };
    for (const auto& [value, coding] : cases) {
        EXPECT_EQ(parsed("Content-Encoding: " + std::string(value) + "\r\n").coding, coding) << value;
    }
    EXPECT_EQ(parsed("Content-Encoding: identity\r\nContent-Encoding: identity\r\n").coding, identity);
    EXPECT_EQ(parsed("Content-Encoding: br\r\nContent-Encoding: gzip\r\n").coding, other);
}

TEST(HttpHead, TakesCookiesSchemesAndContinuedLines) {
    const HttpHead head = parsed(
        "Set-Cookie: a=1; Expires=Wed, 09 Jun 2021 10:18:14 GMT; Domain=example.org; Path=/x\r\n"
        "Set-Cookie: b=2\r\n"
        "WWW-Authenticate: NTLM\r\n"
        "WWW-Authenticate: Basic realm=\"a, b\"\r\n"
        "WWW-Authenticate: Bearer x\r\n"
        "Proxy-Authenticate: DIGEST realm=\"r\", nonce=\"n\"\r\n"
        "Content-Disposition: attachment;\r\n"
        " \t filename=a.zip\r\n"
        "ETag: \"x\"\r\n");
    ASSERT_EQ(head.cookies.size(), 2U);
    EXPECT_EQ(head.cookies[0].pair, "a=1");
    EXPECT_EQ(head.cookies[0].expires, "Wed, 09 Jun 2021 10:18:14 GMT");
    EXPECT_EQ(head.cookies[0].domain, "example.org");
    EXPECT_EQ(head.cookies[0].path, "/x");
    EXPECT_EQ(head.cookies[1].pair, "b=2");
    EXPECT_EQ(head.server_schemes, (std::vector<std::string>{"ntlm", "basic"}));
    EXPECT_EQ(head.proxy_schemes, (std::vector<std::string>{"digest"}));
    EXPECT_EQ(head.content_disposition, "attachment; filename=a.zip");
    EXPECT_EQ(head.etag, "\"x\"");
}

TEST(HttpHead, ShowsTheLogItsLinesWithoutCookies) {
    const auto lines =
        head_lines_for_log("HTTP/1.1 200 OK\r\nSET-COOKIE: id=secret\r\nA: b\n c\r\n\r\nbody\r\n");
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0], "HTTP/1.1 200 OK");
    EXPECT_EQ(lines[1].find("secret"), std::string::npos);
    EXPECT_EQ(lines[2], "A: b c");
    // A cookie stays one where its line is continued or has a blank before the colon.
    // So does a login in an address.
    for (const char* bytes : {"HTTP/1.1 302 Found\r\nLocation: http://me:secret@h/a?b@c\r\n\r\n",
                              "HTTP/1.1 200 OK\r\nSet-Cookie:\r\n id=secret\r\n\r\n",
                              "HTTP/1.1 200 OK\r\nSet-Cookie : id=secret\r\n\r\n"}) {
        for (const std::string& line : head_lines_for_log(bytes)) {
            EXPECT_EQ(line.find("secret"), std::string::npos) << line;
        }
    }
}

TEST(HttpDate, ReadsTheThreeFormsAndNoNonsense) {
    constexpr std::int64_t known = 784111777;
    for (const char* text : {"Sun, 06 Nov 1994 08:49:37 GMT", "Sunday, 06-Nov-94 08:49:37 GMT",
                             "Sun Nov  6 08:49:37 1994", "sun, 6 NOV 1994 08:49:37 gmt"}) {
        EXPECT_EQ(parse_http_date(text), known) << text;
    }
    EXPECT_EQ(parse_http_date("Thu, 01 Jan 1970 00:00:00 GMT"), 0);
    EXPECT_EQ(parse_http_date("Tue, 29 Feb 2000 23:59:59 GMT"), 951868799);
    EXPECT_EQ(parse_http_date("Tuesday, 19-Jan-38 03:14:08 GMT"), 2147483648);
    for (const char* text :
         {"", "0", "yesterday", "Sun, 06 Nov 1994", "Sun, 31 Feb 1994 08:49:37 GMT",
          "Sun, 29 Feb 1900 08:49:37 GMT", "Sun, 00 Nov 1994 08:49:37 GMT", "Sun, 262 Nov 1994 08:49:37 GMT",
          "Sun, 4294967302 Nov 1994 08:49:37 GMT", "Sun, 06 Nov 1994 24:00:00 GMT",
          "Sun, 06 Nov 1994 08:60:00 GMT", "Sun, 06 Nov 1994 08:49 GMT", "Sun, 06 Foo 1994 08:49:37 GMT",
          "Sun, 06 Nov 99999999999 08:49:37 GMT"}) {
        EXPECT_EQ(parse_http_date(text), std::nullopt) << text;
    }
}

TEST(HttpRedirect, JoinsWhatServersSend) {
    struct Case {
        const char* location;
        const char* target;
    };
    const RedirectBase base{"http", "example.org", 8080, "/dir/page?q=/x/y"};
    const Case cases[] = {
        {"http://other.net/a", "http://other.net/a"},
        {"HTTPS://other.net/a?b#c", "HTTPS://other.net/a?b"},
        {"ftp://f/x", "ftp://f/x"},
        {"ftps://f/x", "ftps://f/x"},
        {"sftp://f/x", "sftp://f/x"},
        {"mms://f/x", "mms://f/x"},
        {"mmst://f/x", "mmst://f/x"},
        {"rtsp://f/x", "rtsp://f/x"},
        {"rtspt://f/x", "rtspt://f/x"},
        {"pnm://f/x", "pnm://f/x"},
        {"http:\\\\other.net\\a\\b", "http://other.net/a/b"},
        {"/abs", "http://example.org:8080/abs"},
        {"\\abs\\x", "http://example.org:8080/abs/x"},
        {"//other.net/a", "http://other.net/a"},
        {"\\\\other.net\\a", "http://other.net/a"},
        {"rel", "http://example.org:8080/dir/rel"},
        {"./rel", "http://example.org:8080/dir/rel"},
        {"../rel", "http://example.org:8080/rel"},
        {"../../../rel", "http://example.org:8080/rel"},
        {"a/./b/../c/..", "http://example.org:8080/dir/a/"},
        {"/a/../../b?c/../d", "http://example.org:8080/b?c/../d"},
        {"//other.net/%2e%2e/a", "http://other.net/a"},
        {"http://other.net?a/../b", "http://other.net?a/../b"},
        {"ftp://f/a/./b/../c", "ftp://f/a/c"},
        {"?other=1", "http://example.org:8080/dir/page?other=1"},
        {"rel?next=http://a/b", "http://example.org:8080/dir/rel?next=http://a/b"},
        {"\\a?b=\\c", "http://example.org:8080/a?b=/c"},
        {"/a:b", "http://example.org:8080/a:b"},
        // Schemes that are not followed, and nothing to follow.
        {"javascript:alert(1)", ""},
        {"data:text/plain,x", ""},
        {"file:///etc/passwd", ""},
        {"FILE:\\\\\\etc\\passwd", ""},
        {"", ""},
        {"#top", ""},
    };
    for (const Case& c : cases) EXPECT_EQ(resolve_redirect(c.location, base), c.target) << c.location;

    EXPECT_EQ(resolve_redirect("/a", {"https", "example.org", 443, "/"}), "https://example.org/a");
    EXPECT_EQ(resolve_redirect("/a", {"https", "example.org", 80, "/"}), "https://example.org:80/a");
    EXPECT_EQ(resolve_redirect("/a", {"http", "example.org", 443, "/"}), "http://example.org:443/a");
    EXPECT_EQ(resolve_redirect("a", {"http", "[::1]", 80, "/"}), "http://[::1]/a");
    EXPECT_EQ(resolve_redirect("//other/a", {"https", "example.org", 443, "/"}), "https://other/a");
}

}  // namespace
}  // namespace vantlow
