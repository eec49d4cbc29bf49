// The header of a response: its bytes to what the transfer needs to know.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/result.h"

namespace vantlow {

/// A set-cookie field with the attributes that are looked at; all text as sent.
struct SetCookie {
    std::string pair;  ///< "name=value"
    std::string expires;
    std::string domain;
    std::string path;
    std::string max_age;
    bool secure = false;
};

enum class AcceptRanges { unsaid, bytes, none };
enum class ContentCoding {
    identity,
    gzip,     ///< RFC 1952
    deflate,  ///< RFC 1950, or what many servers take for it: RFC 1951
    other,    ///< one that is not undone here, several, or a word that nobody knows
};

/// A response's status and the recognised fields.
struct HttpHead {
    int status = 0;
    int minor_version = 1;  ///< of HTTP/1
    std::string reason;     ///< UTF-8 or not, as sent; may be empty
    std::string server;
    std::string location;
    std::string content_type;         ///< without its parameters, lower case
    std::string content_type_name;    ///< the "name=" parameter, raw bytes
    std::string content_disposition;  ///< as sent
    std::string last_modified;
    std::string etag;
    std::string content_encoding;  ///< as sent, lower case
    std::string strict_transport;  ///< the first such field (RFC 6797, 8.1), as sent
    bool keep_alive = false;
    bool closes = false;  ///< the server said "close"
    bool chunked = false;
    /// Of the body under its chunks: gzip, deflate or none; nobody asks for one, and some send it.
    ContentCoding transfer_coding = ContentCoding::identity;
    ContentCoding coding = ContentCoding::identity;
    AcceptRanges accept_ranges = AcceptRanges::unsaid;
    std::optional<std::int64_t> length;       ///< of the body; none with a transfer coding or unsaid
    std::optional<std::int64_t> range_first;  ///< of content-range
    std::optional<std::int64_t> range_last;
    std::optional<std::int64_t> range_total;  ///< none when it was "*"
    bool has_range = false;                   ///< there was a content-range, readable or not
    bool range_unit_bytes = false;
    std::optional<std::int64_t> retry_after;  ///< seconds; a date is turned into them by the caller
    std::string retry_after_date;
    std::string date;
    std::vector<SetCookie> cookies;
    std::vector<std::string>
        server_schemes;  ///< offered by www-authenticate: "negotiate", "ntlm", "digest", "basic"
    std::vector<std::string> proxy_schemes;
    std::vector<std::string> server_challenges;  ///< the www-authenticate fields as sent
    std::vector<std::string> proxy_challenges;
    std::optional<std::int64_t> icy_metaint;

    /// Another answer follows this one (RFC 9110, 15.2), which has no body.
    [[nodiscard]] bool is_interim() const noexcept { return status < 200 && status != 101; }
};

/// The failure of an answer that is none of HTTP.
Result not_http();

/// The longest header that is read. Servers with real needs stay far below; the rest costs bounded memory.
inline constexpr std::size_t longest_head = 256 * 1024;

/// Finds the end of the header in what was received: the offset behind the first empty line, or npos. Line
/// ends may be CR LF or LF alone (RFC 9112, 2.2).
std::size_t find_head_end(std::string_view bytes, std::size_t search_from = 0);

/// Parses a header, from the status line to the empty line. `server_error` with a sentence when it is no HTTP
/// answer or contradicts itself in a way that makes the body's length uncertain (RFC 9112, 6.3).
Outcome<HttpHead> parse_head(std::string_view bytes);

/// The lines of a header for the log: without line ends, cookies masked.
std::vector<std::string> head_lines_for_log(std::string_view bytes);

/// A date in any of the three forms of RFC 9110, 5.6.7, as seconds since 1970; none when it is no date.
std::optional<std::int64_t> parse_http_date(std::string_view text);

/// A redirect's target: absolute when it has one of the schemes that are followed, else joined to the site
/// that answered (scheme, host as written in an address, port). Backslashes become slashes. Empty when the
/// scheme is one that is not followed.
struct RedirectBase {
    std::string scheme;
    std::string host;  ///< in brackets when it is an IPv6 literal
    std::uint16_t port = 80;
    std::string path;  ///< of the request
};
std::string resolve_redirect(std::string_view location, const RedirectBase& base);

}  // namespace vantlow
