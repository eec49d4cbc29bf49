#include "transfer/http/cookie_jar.h"

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

#include "base/text.h"
#include "platform/socket.h"
#include "runtime/host_names.h"

namespace vantlow {
namespace {

constexpr std::size_t most_cookies = 3000;
constexpr std::size_t longest_cookie = 4096;

bool is_address(std::string_view host) {
    return SocketAddress::from_literal(host, 0).has_value();
}

bool is_below(std::string_view host, std::string_view domain) {
    return host.size() > domain.size() && host.ends_with(domain) &&
           host[host.size() - domain.size() - 1] == '.' && !is_address(host);
}

std::string_view plain_path(std::string_view path) {
    return path.substr(0, path.find_first_of("?#"));
}

// The folder of a request's path, without the slash at its end (5.1.4).
std::string default_path(std::string_view path) {
    path = plain_path(path);
    const auto slash = path.rfind('/');
    return slash == 0 || slash == std::string_view::npos ? "/" : std::string(path.substr(0, slash));
}

bool path_matches(std::string_view path, std::string_view cookie) {
    path = plain_path(path);
    if (!path.starts_with(cookie)) return false;
    return path.size() == cookie.size() || cookie.ends_with('/') || path[cookie.size()] == '/';
}

bool is_clean(std::string_view text) {
    return std::none_of(text.begin(), text.end(),
                        [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; });
}

// Whether the server of this target may set a cookie for the domain that it names (5.3).
bool take_domain(const SetCookie& set, const CookieTarget& from, Cookie& cookie) {
    const std::string host = ascii_lower(from.host);
    std::string domain = ascii_lower(set.domain);
    if (domain.starts_with('.')) domain.erase(0, 1);
    cookie.domain = host;
    cookie.host_only = domain.empty() || domain == host;
    if (domain.empty()) return true;
    if (domain == host) {
        cookie.host_only = is_address(host) || is_public_suffix(host);
        return true;
    }
    // One for all names below a public suffix would be everybody's.
    if (!is_below(host, domain) || is_public_suffix(domain)) return false;
    cookie.domain = domain;
    return true;
}

std::int64_t expiry(const SetCookie& set, std::int64_t now) {
    if (!set.max_age.empty()) {
        const bool negative = set.max_age.front() == '-';
        const auto seconds = parse_decimal(negative ? set.max_age.substr(1) : set.max_age);
        if (seconds) return negative || *seconds == 0 ? 1 : now + std::min<std::int64_t>(*seconds, 1LL << 40);
    }
    const auto date = parse_cookie_date(set.expires);
    return date ? std::max<std::int64_t>(*date, 1) : 0;
}

bool keeps_its_prefix(const Cookie& cookie) {
    if (cookie.name.starts_with("__Secure-")) return cookie.secure;
    if (cookie.name.starts_with("__Host-")) return cookie.secure && cookie.host_only && cookie.path == "/";
    return true;
}

std::optional<Cookie> read_cookie(const SetCookie& set, const CookieTarget& from, std::int64_t now) {
    Cookie cookie;
    const auto equals = set.pair.find('=');
    if (equals == std::string::npos || set.pair.size() > longest_cookie || !is_clean(set.pair))
        return std::nullopt;
    cookie.name = trim(std::string_view(set.pair).substr(0, equals));
    cookie.value = trim(std::string_view(set.pair).substr(equals + 1));
    cookie.secure = set.secure;
    cookie.path = set.path.starts_with('/') ? set.path : default_path(from.path);
    cookie.expires = expiry(set, now);
    if (cookie.name.empty() || !take_domain(set, from, cookie)) return std::nullopt;
    if ((cookie.secure && !from.secure) || !keeps_its_prefix(cookie)) return std::nullopt;
    return cookie;
}

bool is_live(const Cookie& cookie, std::int64_t now) noexcept {
    return cookie.expires == 0 || cookie.expires > now;
}

bool is_for(const Cookie& cookie, const CookieTarget& target, const std::string& host, std::int64_t now) {
    if (!is_live(cookie, now)) return false;
    if (cookie.secure && !target.secure) return false;
    if (cookie.domain != host && (cookie.host_only || !is_below(host, cookie.domain))) return false;
    return path_matches(target.path, cookie.path);
}

std::optional<Cookie> read_line(std::string_view line) {
    constexpr std::string_view http_only = "#HttpOnly_";
    if (line.starts_with(http_only)) {
        line.remove_prefix(http_only.size());
    } else if (line.starts_with('#')) {
        return std::nullopt;
    }
    const auto fields = split(line, '\t');
    if (fields.size() < 6 || !is_clean(fields[5])) return std::nullopt;
    Cookie cookie;
    cookie.domain = ascii_lower(fields[0].starts_with('.') ? fields[0].substr(1) : fields[0]);
    cookie.host_only = !iequals(fields[1], "true");
    cookie.path = fields[2].starts_with('/') ? fields[2] : "/";
    cookie.secure = iequals(fields[3], "true");
    cookie.expires = parse_decimal(fields[4].substr(0, fields[4].find('.'))).value_or(0);
    cookie.name = fields[5];
    if (fields.size() > 6) cookie.value = fields[6];
    const bool usable = !cookie.domain.empty() && !cookie.name.empty() && is_clean(cookie.value) &&
                        line.size() <= 2 * longest_cookie;
    return usable ? std::optional(cookie) : std::nullopt;
}

}  // namespace

std::optional<std::int64_t> parse_cookie_date(std::string_view text) {
    constexpr std::string_view months = "janfebmaraprmayjunjulaugsepoctnovdec";
    std::int64_t day = 0;
    std::int64_t month = 0;
    std::int64_t year = -1;
    std::array<std::int64_t, 3> time{-1, 0, 0};
    const std::string lower = ascii_lower(text);
    std::string_view rest = lower;
    while (!rest.empty()) {
        const auto end =
            std::min(rest.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789:"), rest.size());
        const std::string_view token = rest.substr(0, end);
        rest.remove_prefix(std::min(end + 1, rest.size()));
        if (token.empty()) continue;
        const auto number = parse_decimal(token);
        if (time[0] < 0 && std::count(token.begin(), token.end(), ':') == 2) {
            const auto parts = split(token, ':');
            for (std::size_t i = 0; i < 3; ++i) time[i] = parse_decimal(parts[i]).value_or(99);
        } else if (day == 0 && number && token.size() <= 2) {
            day = *number;
        } else if (month == 0 && !number && token.size() >= 3) {
            const auto at = months.find(token.substr(0, 3));
            if (at != std::string_view::npos && at % 3 == 0) month = static_cast<std::int64_t>(at / 3) + 1;
        } else if (year < 0 && number && (token.size() == 2 || token.size() == 4)) {
            year = *number < 70 ? *number + 2000 : *number < 100 ? *number + 1900 : *number;
        }
    }
    if (day < 1 || day > 31 || month == 0 || year < 1601 || time[0] < 0 || time[0] > 23 || time[1] > 59 ||
        time[2] > 59) {
        return std::nullopt;
    }
    // Days since 1970 of the proleptic Gregorian calendar, counted in years that begin in March.
    const std::int64_t y = month <= 2 ? year - 1 : year;
    const std::int64_t day_of_year = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
    const std::int64_t days = 365 * y + y / 4 - y / 100 + y / 400 + day_of_year - 719468;
    return ((days * 24 + time[0]) * 60 + time[1]) * 60 + time[2];
}

std::vector<Cookie> parse_cookies_txt(std::string_view text) {
    std::vector<Cookie> cookies;
    if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
    for (std::string_view line : split(text, '\n')) {
        if (line.ends_with('\r')) line.remove_suffix(1);
        if (auto cookie = read_line(line)) cookies.push_back(*std::move(cookie));
    }
    return cookies;
}

void CookieJar::put(Cookie cookie, std::int64_t now) {
    const std::string key = cookie.domain + '\n' + cookie.path + '\n' + cookie.name;
    if (!is_live(cookie, now)) {
        cookies_.erase(key);
        return;
    }
    const auto old = cookies_.find(key);
    cookie.order = old != cookies_.end() ? old->second.order : next_++;
    if (old == cookies_.end() && cookies_.size() >= most_cookies) {
        cookies_.erase(std::min_element(cookies_.begin(), cookies_.end(), [](const auto& a, const auto& b) {
            return a.second.order < b.second.order;
        }));
    }
    cookies_[key] = std::move(cookie);
}

// Whoever answers in the clear may be anybody on the way: a cookie of theirs stands in for none that came
// over TLS.
bool CookieJar::hides_secure(const Cookie& cookie, std::int64_t now) const {
    return std::any_of(cookies_.begin(), cookies_.end(), [&](const auto& entry) {
        const Cookie& kept = entry.second;
        const bool related = kept.domain == cookie.domain || is_below(kept.domain, cookie.domain) ||
                             is_below(cookie.domain, kept.domain);
        return kept.secure && kept.name == cookie.name && is_live(kept, now) && related &&
               path_matches(cookie.path, kept.path);
    });
}

void CookieJar::take(const std::vector<SetCookie>& cookies, const CookieTarget& from, std::int64_t now) {
    if (cookies.empty()) return;
    const MutexLock guard(mutex_);
    for (const SetCookie& set : cookies) {
        auto cookie = read_cookie(set, from, now);
        if (cookie && (from.secure || !hides_secure(*cookie, now))) put(*std::move(cookie), now);
    }
}

void CookieJar::add(std::vector<Cookie> cookies, std::int64_t now) {
    const MutexLock guard(mutex_);
    for (Cookie& cookie : cookies) put(std::move(cookie), now);
}

std::string CookieJar::cookies_for(const CookieTarget& target, std::int64_t now) const {
    const std::string host = ascii_lower(target.host);
    const MutexLock guard(mutex_);
    std::vector<const Cookie*> found;
    for (const auto& [key, cookie] : cookies_) {
        if (is_for(cookie, target, host, now)) found.push_back(&cookie);
    }
    std::sort(found.begin(), found.end(), [](const Cookie* a, const Cookie* b) {
        if (a->path.size() != b->path.size()) return a->path.size() > b->path.size();
        return a->order < b->order;
    });
    std::string text;
    for (const Cookie* cookie : found)
        text += (text.empty() ? "" : "; ") + cookie->name + "=" + cookie->value;
    return text;
}

bool CookieJar::begin_file(const std::u16string& path) {
    const MutexLock guard(mutex_);
    return files_.insert(path).second;
}

std::string join_cookies(std::string_view first, std::string_view second) {
    const auto name_of = [](std::string_view pair) { return trim(pair.substr(0, pair.find('='))); };
    const auto earlier = split(first, ';');
    std::string all(first);
    for (const std::string_view pair : split(second, ';')) {
        if (trim(pair).empty()) continue;
        const bool known = std::any_of(earlier.begin(), earlier.end(),
                                       [&](std::string_view one) { return name_of(one) == name_of(pair); });
        if (!known) all += (all.empty() ? "" : "; ") + std::string(trim(pair));
    }
    return all;
}

std::shared_ptr<CookieJar> CookieJars::jar_of(const std::string& key) {
    constexpr std::size_t most_jars = 100;
    const MutexLock guard(mutex_);
    const auto at = std::ranges::find(jars_, key, [](const auto& one) { return one.first; });
    if (at != jars_.end()) return at->second;
    if (jars_.size() >= most_jars) jars_.pop_front();
    jars_.emplace_back(key, std::make_shared<CookieJar>());
    return jars_.back().second;
}

}  // namespace vantlow
