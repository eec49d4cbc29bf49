// Cookies of answers and of a cookies.txt: nothing that is sent ends its line.
#include "fuzz.h"
#include "transfer/http/cookie_jar.h"
#include "transfer/http/strict_hosts.h"

namespace vantlow::fuzz {
namespace {

bool is_one_line(std::string_view text) {
    return text.find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos;
}

}  // namespace

void run(std::string_view input) {
    parse_cookie_date(input);
    StrictHosts strict;
    strict.take(input, "www.site.example", 0);
    CHECK(!strict.contains("site.example", 0));
    const CookieTarget target{.host = "www.example.com", .path = "/folder/file", .secure = true};
    CookieJar jar;
    auto cookies = parse_cookies_txt(input);
    CHECK(cookies.size() <= input.size());
    jar.add(std::move(cookies), 1'700'000'000);
    const std::string of_file = jar.cookies_for(target, 1'700'000'000);
    const std::string head = "HTTP/1.1 200 OK\r\nset-cookie: " + std::string(input) + "\r\n\r\n";
    if (const auto answer = parse_head(head); answer.ok()) {
        jar.take(answer->cookies, target, 1'700'000'000);
        jar.take(answer->cookies, {.host = "::1", .path = "/"}, 1'700'000'000);
    }
    const std::string all = jar.cookies_for(target, 1'700'000'000);
    CHECK(is_one_line(of_file) && is_one_line(all));
    // Another server is told nothing of what this one set.
    CookieJar other;
    other.take({{.pair = std::string(take_until(input, '\n')), .domain = std::string(input)}}, target, 0);
    CHECK(other.cookies_for({.host = "www.example.org", .path = "/folder/file", .secure = true}, 0).empty());
    CHECK(other.cookies_for({.host = "com", .path = "/folder/file", .secure = true}, 0).empty());
    CHECK(is_one_line(join_cookies(of_file, all)));
}

}  // namespace vantlow::fuzz
