#include "transfer/job/http_request.h"

#include <ctime>

#include "base/text.h"
#include "platform/process.h"
#include "platform/system_cookies.h"
#include "transfer/http/login.h"
#include "transfer/job/proxy_rules.h"

namespace vantlow {
namespace {

// System's, run's and job's cookies in one text. A cookie that a server has set since the job was made
// replaces the job's.
std::string cookies_of(const SourcePlan& plan, const Target& target, bool job_cookies, const CookieJar& jar) {
    const auto now = static_cast<std::int64_t>(std::time(nullptr));
    std::string text = jar.cookies_for({target.host, target.path, is_secured(target)}, now);
    if (plan.system_cookies)
        text = join_cookies(text, to_ansi(system_cookies(to_utf16(cookie_address(target)))));
    return job_cookies ? join_cookies(text, to_ansi(plan.cookie)) : text;
}

}  // namespace

bool is_secured(const Target& target) {
    const Protocol* const protocol = find_protocol(to_utf16(target.scheme + "://"));
    return protocol != nullptr && protocol->secured;
}

std::string cookie_address(const Target& target) {
    return (is_secured(target) ? "https://" : "http://") + target.host_text() + target.path;
}

HttpRequest make_http_request(const SourcePlan& plan, const Target& target, std::int64_t offset,
                              const CookieJar& jar, bool in_the_clear) {
    HttpRequest request;
    request.scheme = target.scheme;
    request.host = target.host_text();
    request.port = target.port;
    request.explicit_port = target.explicit_port;
    request.path = target.path;
    request.through_proxy = plan.proxy.takes_requests(is_secured(target));
    request.proxy_user = plan.proxy.user;
    request.proxy_password = plan.proxy.password;
    const auto origin = parse_target(plan.origin, plan.utf8);
    // It is for the host that it was given for. What was read in secret is not told in the clear (RFC
    // 9110, 10.1.3).
    const Protocol* const referring = find_protocol(plan.referer);
    const bool telling = referring == nullptr || !referring->secured || is_secured(target);
    if (telling && origin && iequals(origin->host, target.host)) request.referer = to_ansi(plan.referer);
    request.automatic_referer = plan.automatic_referer;
    request.agent = to_ansi(plan.agent);
    request.start = offset;
    const bool own = origin && is_same_server(*origin, target);
    // An address that a server redirects to in the clear may be anybody's.
    if (in_the_clear || (origin && is_secured(*origin) && !is_secured(target))) return request;
    if (!target.user.empty()) {
        request.user = to_ansi(target.user);
        // "http://user@host" and a password beside it belong together.
        const bool beside = target.password.empty() && own && (plan.user.empty() || plan.user == target.user);
        request.password = to_ansi(beside ? plan.password : target.password);
    } else if (own) {
        request.user = to_ansi(plan.user.empty() ? origin->user : plan.user);
        request.password = to_ansi(plan.user.empty() ? origin->password : plan.password);
    }
    if (target.scheme != "ftp") request.cookie = cookies_of(plan, target, own, jar);
    return request;
}

ProxyPlan proxy_for(const SourcePlan& plan, const Target& target, const SourceContext& context) {
    if (!plan.proxy_rules) return plan.proxy;
    ProxyPlan proxy = plan.proxy_rules->choose(target.scheme, target.host, target.port);
    proxy.resolve_here = plan.proxy.resolve_here;
    if (!proxy.user.empty()) add_login(proxy, context.libraries, &context.services.memory.of<LoginMemory>());
    return proxy;
}

}  // namespace vantlow
