// The lines of a GET, HEAD or POST request, in their fixed order.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/log.h"

namespace vantlow {

/// One line with what the log may show of it: credentials and cookies are masked there.
struct RequestLine {
    std::string text;
    std::string shown;
};

/// A request. All text is as it goes on the wire (escaped, in its code page) and without line ends.
struct HttpRequest {
    /// The text behind "Authorization: " and what the log shows of it; an empty value is no line.
    struct Login {
        std::string value;
        std::string shown;
    };

    std::string scheme = "http";  ///< "http", "https", or "ftp" through an HTTP proxy
    std::string host;             ///< in brackets when it is an IPv6 literal
    std::uint16_t port = 80;
    bool explicit_port = false;  ///< the address names its port
    std::string path = "/";      ///< with its leading slash and its query
    std::string user;            ///< server credentials for Basic, and for "ftp"; empty: none
    std::string password;
    std::optional<Login> login;  ///< in place of Basic
    bool through_proxy = false;  ///< the absolute form, to an HTTP proxy without a tunnel
    std::string proxy_user;      ///< empty: none
    std::string proxy_password;
    std::optional<Login> proxy_login;  ///< in place of Basic
    std::string referer;
    bool automatic_referer = false;  ///< the site's root where there is no referer
    std::string agent;
    std::string cookie;              ///< the whole text of the Cookie line; empty: no line
    std::int64_t start = 0;          ///< first byte wanted; 0 asks for the whole
    bool head_only = false;          ///< the header of the answer is all that is wanted (RFC 9110, 9.3.2)
    std::string form_type;           ///< media type of the body of a POST; empty: GET or HEAD, without a body
    std::string form;                ///< that body
    std::vector<std::string> extra;  ///< further lines, behind all others
    std::vector<RequestLine> lines;  ///< in place of all that the rest would give; empty: none
    std::string shown_path;          ///< what the log shows of the path; empty: the path itself
};

/// The port that a scheme stands for: 80, 443 or 21.
std::uint16_t default_port(const std::string& scheme) noexcept;

/// "GET", "HEAD" or "POST".
inline const char* method_of(const HttpRequest& request) noexcept {
    if (!request.form_type.empty()) return "POST";
    return request.head_only ? "HEAD" : "GET";
}

/// The target that a proxy is asked for: "http://host:port/path", without credentials.
std::string absolute_target(const HttpRequest& request);

/// The lines, the empty one at the end not included. Characters that would end a line early are removed.
std::vector<RequestLine> request_lines(const HttpRequest& request);

/// The request's bytes; each line goes to the log as sent, the body does not.
std::string build_request(const HttpRequest& request, LogSink& log);

}  // namespace vantlow
