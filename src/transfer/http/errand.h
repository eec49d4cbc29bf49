// An errand to HTTP servers, and the request that each server on the way to it gets.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "store/address.h"
#include "transfer/connection/base_socket.h"
#include "transfer/http/cookie_jar.h"
#include "transfer/http/request.h"

namespace vantlow {

/// The wishes of a request besides its address.
struct HttpWishes {
    std::u16string referer;
    bool automatic_referer = false;  ///< the site's root where there is no referer
    std::u16string agent;
    std::u16string cookie;        ///< for the origin's server, in front of the run's
    bool system_cookies = false;  ///< the system's cookies are sent too
    std::u16string cookie_file;   ///< a cookies.txt whose cookies are sent; empty: none
    std::string form_type;  ///< media type of a form that is sent to the errand's address by POST; empty: GET
    std::string form;
    std::vector<std::string> extra;  ///< further lines, behind all others
};

/// One resource to be asked for, whoever wants it.
struct HttpErrand : FetchPlan {
    HttpWishes http;
    std::int64_t start = 0;  ///< first byte wanted; 0 asks for the whole
    bool head_only = false;  ///< only the header of the answer is wanted, and no body is to be begun
    /// The proxy for a server on the way; empty: `proxy` for all of them.
    std::function<ProxyPlan(const Target&)> proxy_for;
    bool with_cookies = true;  ///< those of the run are sent and kept
    /// Gives the part of an address that may be shown; empty: all but its credentials.
    std::function<std::string(std::string_view)> shown;
    /// Changes how a server is connected to; may be empty.
    std::function<void(ConnectPlan&)> adjust;

    [[nodiscard]] std::string show(const std::u16string& text) const;
};

/// TLS stands between this side and the server.
bool is_secured(const Target& target);

/// The cookie text for the system's and the run's cookies, "https://host/path".
std::string cookie_address(const Target& target);

/// One server on the way.
struct HttpHop {
    Target target;
    std::optional<Target> origin;  ///< of the errand; none when it cannot be read
    ProxyPlan proxy;
    bool in_the_clear = false;  ///< without TLS, and redirects led here from a server with it
    bool gets_form = false;     ///< the errand's form is for this server
};

/// The request to one server. Credentials and the errand's cookies go to the origin's server, a referer to
/// its host, and nothing of that kind to a server without TLS where the origin, or one on the way, had it.
HttpRequest make_http_request(const HttpErrand& errand, const HttpHop& hop, const CookieJar& jar);

}  // namespace vantlow
