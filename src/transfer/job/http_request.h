// From a job's wishes to the request that one server gets.
#pragma once

#include "store/address.h"
#include "transfer/http/cookie_jar.h"
#include "transfer/http/request.h"
#include "transfer/job/source.h"

namespace vantlow {

/// TLS stands between this side and the server.
bool is_secured(const Target& target);

/// The cookie text for the system's and the run's cookies, "https://host/path".
std::string cookie_address(const Target& target);

/// The request for the bytes from `offset` on. Credentials and the job's cookies go to the server that they
/// belong to, a referer to the job's host, and nothing of that kind to a server without TLS where the job, or
/// `in_the_clear` the redirects that led here, came from one with it.
HttpRequest make_http_request(const SourcePlan& plan, const Target& target, std::int64_t offset,
                              const CookieJar& jar, bool in_the_clear);

/// The proxy for a target: the plan's own, or what its rules say.
ProxyPlan proxy_for(const SourcePlan& plan, const Target& target, const SourceContext& context);

}  // namespace vantlow
