#include "transfer/http/errand.h"

#include <ctime>

#include "base/text.h"
#include "platform/local_text.h"
#include "platform/system_services.h"

namespace vantlow {
namespace {

// Joins the system's, the run's and the errand's cookies in one text. A cookie that a server has set since
// the errand was made replaces the errand's.
std::string cookies_of(const HttpErrand& errand, const Target& target, bool own, const CookieJar& jar) {
    const auto now = static_cast<std::int64_t>(std::time(nullptr));
    std::string text = jar.cookies_for({target.host, target.path, is_secured(target)}, now);
    if (errand.http.system_cookies)
        text = join_cookies(text, to_ansi(system_cookies(to_utf16(cookie_address(target)))));
    return own ? join_cookies(text, to_ansi(errand.http.cookie)) : text;
}

}  // namespace

std::string HttpErrand::show(const std::u16string& text) const {
    return shown ? shown(to_utf8(text)) : to_utf8(without_credentials(text));
}

bool is_secured(const Target& target) {
    return target.scheme == "https" || target.scheme == "ftps";
}

std::string cookie_address(const Target& target) {
    return (is_secured(target) ? "https://" : "http://") + target.host_text() + target.path;
}

HttpRequest make_http_request(const HttpErrand& errand, const HttpHop& hop, const CookieJar& jar) {
    constexpr std::string_view any_host = "://host";
    const Target& target = hop.target;
    const auto& origin = hop.origin;
    HttpRequest request;
    request.scheme = target.scheme;
    request.host = target.host_text();
    request.port = target.port;
    request.explicit_port = target.explicit_port;
    request.path = target.path;
    if (errand.shown)
        request.shown_path = errand.shown(std::string(any_host) + target.path).substr(any_host.size());
    request.through_proxy = hop.proxy.takes_requests(is_secured(target));
    request.proxy_user = hop.proxy.user;
    request.proxy_password = hop.proxy.password;
    // A referer is for the host that it was given for. An address that was read in secret is not told in the
    // clear (RFC 9110, 10.1.3).
    const auto referring = parse_target(errand.http.referer);
    const bool telling = !referring || !is_secured(*referring) || is_secured(target);
    if (telling && origin && iequals(origin->host, target.host))
        request.referer = to_ansi(without_credentials(errand.http.referer));
    request.automatic_referer = errand.http.automatic_referer;
    request.agent = to_ansi(errand.http.agent);
    request.start = errand.start;
    request.head_only = errand.head_only;
    request.extra = errand.http.extra;
    if (hop.gets_form) {
        request.form_type = errand.http.form_type;
        request.form = errand.http.form;
    }
    const bool own = origin && is_same_server(*origin, target);
    // An address that a server redirects to in the clear may be anybody's.
    if (hop.in_the_clear || (origin && is_secured(*origin) && !is_secured(target))) return request;
    if (!target.user.empty()) {
        request.user = to_ansi(target.user);
        // "http://user@host" and a password beside it belong together.
        const bool beside =
            target.password.empty() && own && (errand.user.empty() || errand.user == target.user);
        request.password = to_ansi(beside ? errand.password : target.password);
    } else if (own) {
        request.user = to_ansi(errand.user.empty() ? origin->user : errand.user);
        request.password = to_ansi(errand.user.empty() ? origin->password : errand.password);
    }
    if (errand.with_cookies && target.scheme != "ftp") request.cookie = cookies_of(errand, target, own, jar);
    return request;
}

}  // namespace vantlow
