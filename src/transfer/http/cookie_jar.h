// The cookies of the run (RFC 6265, and what its successor, draft-ietf-httpbis-rfc6265bis, adds for safety).
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/mutex.h"
#include "transfer/connection/keepsakes.h"
#include "transfer/http/head.h"

namespace vantlow {

/// Where cookies come from and go to.
struct CookieTarget {
    std::string host;  ///< without brackets and port
    std::string path;  ///< with its leading slash; a query is not looked at
    bool secure = false;
};

/// One cookie (RFC 6265, 5.3).
struct Cookie {
    std::string name;
    std::string value;
    std::string domain;     ///< lower case, without a leading dot
    bool host_only = true;  ///< for that host alone, not for those below it
    std::string path = "/";
    bool secure = false;       ///< over TLS only
    std::int64_t expires = 0;  ///< seconds since 1970; 0: with the run
    std::uint64_t order = 0;   ///< counts up
};

/// A date as cookies have it (RFC 6265, 5.1.1); none when it is no date.
std::optional<std::int64_t> parse_cookie_date(std::string_view text);

/// The cookies of a Netscape cookies.txt; lines that cannot be read are left out.
std::vector<Cookie> parse_cookies_txt(std::string_view text);

/// Keeps cookies. Bounded: 3,000 in all, 4 KiB each; the oldest go first. Any thread may call.
class CookieJar : public Keepsake {
  public:
    /// Takes what an answer sets, as far as its server may: for its own domain, which is no public suffix,
    /// and over TLS when it is `secure` or would take the place of one that is.
    void take(const std::vector<SetCookie>& cookies, const CookieTarget& from, std::int64_t now);
    void add(std::vector<Cookie> cookies, std::int64_t now);
    /// "name=value; name=value" for a request: longer paths first, then older ones.
    [[nodiscard]] std::string cookies_for(const CookieTarget& target, std::int64_t now) const;
    /// True for the first caller with this name: it fills the jar from that file.
    bool begin_file(const std::u16string& path);

  private:
    void put(Cookie cookie, std::int64_t now) VANTLOW_REQUIRES(mutex_);
    [[nodiscard]] bool hides_secure(const Cookie& cookie, std::int64_t now) const VANTLOW_REQUIRES(mutex_);

    mutable Mutex mutex_;
    std::map<std::string, Cookie> cookies_ VANTLOW_GUARDED_BY(mutex_);  ///< by domain, path and name
    std::set<std::u16string> files_ VANTLOW_GUARDED_BY(mutex_);
    std::uint64_t next_ VANTLOW_GUARDED_BY(mutex_) = 1;
};

/// The texts of Cookie lines in one. Of cookies with one name that of the first text stays.
std::string join_cookies(std::string_view first, std::string_view second);

/// The jars of requests that bring cookies of their own, which are somebody's login: what servers set for
/// them is sent with no others'. Bounded: the oldest go first. Any thread may call.
class CookieJars : public Keepsake {
  public:
    /// The jar of those who have the same key; it lives as long as somebody holds it.
    std::shared_ptr<CookieJar> jar_of(const std::string& key);

  private:
    Mutex mutex_;
    std::deque<std::pair<std::string, std::shared_ptr<CookieJar>>> jars_ VANTLOW_GUARDED_BY(mutex_);
};

}  // namespace vantlow
