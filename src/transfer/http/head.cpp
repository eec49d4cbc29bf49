#include "transfer/http/head.h"

#include <algorithm>
#include <array>
#include <utility>

#include "base/text.h"
#include "transfer/http/field_value.h"

namespace vantlow {
namespace {

using Field = void (*)(HttpHead&, std::string_view value);

void read_schemes(std::vector<std::string>& schemes, std::vector<std::string>& challenges,
                  std::string_view value) {
    challenges.emplace_back(value);
    for (AuthChallenge& challenge : read_challenges(value)) schemes.push_back(std::move(challenge.scheme));
}

void read_connection(HttpHead& head, std::string_view value) {
    for (std::string_view option : split(value, ',')) {
        if (iequals(trim(option), "keep-alive")) head.keep_alive = true;
        if (iequals(trim(option), "close")) head.closes = true;
    }
    if (head.closes) head.keep_alive = false;  // whatever else is said (RFC 9112, 9.3)
}

// Labels that servers put on bytes that are not packed.
bool is_no_coding(std::string_view word) {
    constexpr std::array words{"", "identity", "none", "utf-8", "utf8", "aws-chunked"};
    return std::find(words.begin(), words.end(), word) != words.end();
}

ContentCoding coding_of(std::string_view word) {
    if (word == "gzip" || word == "x-gzip") return ContentCoding::gzip;
    return word == "deflate" ? ContentCoding::deflate : ContentCoding::other;
}

void read_content_encoding(HttpHead& head, std::string_view value) {
    const std::string codings = ascii_lower(value);
    // A second field lists a further coding (RFC 9110, 5.3).
    head.content_encoding += (head.content_encoding.empty() ? "" : ", ") + codings;
    for (const std::string_view piece : split(codings, ',')) {
        const std::string_view word = trim(piece);
        if (is_no_coding(word)) continue;
        head.coding = head.coding == ContentCoding::identity ? coding_of(word) : ContentCoding::other;
    }
}

// The value of a parameter of a field like content-type.
std::string parameter(std::string_view value, std::string_view name) {
    while (const auto found = next_parameter(value)) {
        if (found->name == name) return found->value;
    }
    return {};
}

void read_content_range(HttpHead& head, std::string_view value) {
    head.has_range = true;
    const auto blank = value.find_first_of(" \t=");
    if (blank == std::string_view::npos) return;
    head.range_unit_bytes = iequals(value.substr(0, blank), "bytes");
    const std::string_view rest = trim(value.substr(blank + 1));
    const auto slash = rest.find('/');
    if (slash == std::string_view::npos) return;
    head.range_total = parse_decimal(trim(rest.substr(slash + 1)));
    const std::string_view range = rest.substr(0, slash);
    const auto dash = range.find('-');
    if (dash == std::string_view::npos) return;  // "*": unsatisfied
    head.range_first = parse_decimal(trim(range.substr(0, dash)));
    head.range_last = parse_decimal(trim(range.substr(dash + 1)));
}

// The place of an attribute's text; null for one that is not looked at.
std::string* attribute_of(SetCookie& cookie, std::string_view name) {
    if (name == "expires") return &cookie.expires;
    if (name == "domain") return &cookie.domain;
    if (name == "path") return &cookie.path;
    return name == "max-age" ? &cookie.max_age : nullptr;
}

void read_cookie(HttpHead& head, std::string_view value) {
    const auto end = value.find(';');
    SetCookie cookie;
    cookie.pair = std::string(trim(value.substr(0, end)));
    if (end != std::string_view::npos) {
        // The last one counts of an attribute that occurs twice (RFC 6265, 5.3).
        std::string_view attributes = value.substr(end + 1);
        while (auto one = next_parameter(attributes)) {
            if (one->name == "secure") cookie.secure = true;
            if (std::string* attribute = attribute_of(cookie, one->name)) *attribute = std::move(one->value);
        }
    }
    head.cookies.push_back(std::move(cookie));
}

void read_retry_after(HttpHead& head, std::string_view value) {
    head.retry_after = parse_decimal(value);
    if (!head.retry_after) head.retry_after_date = std::string(value);
}

struct FieldRow {
    std::string_view name;
    Field read;
};

constexpr std::array fields{
    FieldRow{"server", [](HttpHead& h, std::string_view v) { h.server = v; }},
    FieldRow{"proxy-authenticate",
             [](HttpHead& h, std::string_view v) { read_schemes(h.proxy_schemes, h.proxy_challenges, v); }},
    FieldRow{"www-authenticate",
             [](HttpHead& h, std::string_view v) { read_schemes(h.server_schemes, h.server_challenges, v); }},
    FieldRow{"location", [](HttpHead& h, std::string_view v) { h.location = v; }},
    FieldRow{"connection", read_connection},
    FieldRow{"proxy-connection", read_connection},
    FieldRow{"content-encoding", read_content_encoding},
    FieldRow{"content-type",
             [](HttpHead& h, std::string_view v) {
                 h.content_type = ascii_lower(trim(v.substr(0, v.find(';'))));
                 h.content_type_name = parameter(v, "name");
             }},
    FieldRow{"content-disposition", [](HttpHead& h, std::string_view v) { h.content_disposition = v; }},
    FieldRow{"content-range", read_content_range},
    FieldRow{"last-modified", [](HttpHead& h, std::string_view v) { h.last_modified = v; }},
    FieldRow{"etag", [](HttpHead& h, std::string_view v) { h.etag = v; }},
    FieldRow{"date", [](HttpHead& h, std::string_view v) { h.date = v; }},
    FieldRow{"accept-ranges",
             [](HttpHead& h, std::string_view v) {
                 if (iequals(v, "none")) h.accept_ranges = AcceptRanges::none;
                 if (iequals(v, "bytes")) h.accept_ranges = AcceptRanges::bytes;
             }},
    FieldRow{"retry-after", read_retry_after},
    FieldRow{"set-cookie", read_cookie},
    FieldRow{"strict-transport-security",
             [](HttpHead& h, std::string_view v) {
                 if (h.strict_transport.empty()) h.strict_transport = v;
             }},
    FieldRow{"icy-metaint", [](HttpHead& h, std::string_view v) { h.icy_metaint = parse_decimal(v); }},
};

// Two lengths that differ leave the end of the body open to whoever sits between: no answer to work with.
Result read_length(HttpHead& head, std::string_view value) {
    for (std::string_view piece : split(value, ',')) {
        const auto length = parse_decimal(trim(piece));
        if (!length) return {Code::server_error, "The server sent a length that is not a number."};
        if (head.length && *head.length != *length) {
            return {Code::server_error, "The server sent two different lengths."};
        }
        head.length = length;
    }
    return {};
}

Result read_transfer_encoding(HttpHead& head, std::string_view value) {
    for (std::string_view piece : split(value, ',')) {
        piece = trim(piece);
        if (iequals(piece, "chunked")) {
            head.chunked = true;
            continue;
        }
        if (piece.empty() || iequals(piece, "identity")) continue;
        const ContentCoding coding = coding_of(ascii_lower(piece));
        if (coding == ContentCoding::other || head.transfer_coding != ContentCoding::identity) {
            return {Code::unsupported,
                    "The transfer coding \"" + std::string(piece) + "\" is not supported."};
        }
        head.transfer_coding = coding;
    }
    return {};
}

Result read_field(HttpHead& head, std::string_view name, std::string_view value) {
    if (iequals(name, "content-length") || iequals(name, "content-size")) return read_length(head, value);
    if (iequals(name, "transfer-encoding")) return read_transfer_encoding(head, value);
    for (const FieldRow& row : fields) {
        if (iequals(name, row.name)) {
            row.read(head, value);
            break;
        }
    }
    return {};
}

Result read_status_line(HttpHead& head, std::string_view line) {
    if (!iequals(line.substr(0, 4), "HTTP")) return not_http();
    const auto blank = line.find(' ');
    if (blank == std::string_view::npos) return not_http();
    const std::string_view version = line.substr(0, blank);
    head.minor_version = iequals(version, "HTTP/1.0") || iequals(version, "HTTP") ? 0 : 1;
    std::string_view rest = trim(line.substr(blank));
    const auto status = parse_decimal(rest.substr(0, 3));
    if (!status || *status < 100 || (rest.size() > 3 && rest[3] != ' ')) return not_http();
    head.status = static_cast<int>(*status);
    head.reason = std::string(trim(rest.substr(3)));
    // HTTP/1.1 keeps the connection unless told otherwise (RFC 9112, 9.3).
    head.keep_alive = head.minor_version >= 1;
    return {};
}

// Calls `use` with each line, continued lines joined to the one that they continue (RFC 9112, 5.2).
template <class Use>
Result for_each_line(std::string_view bytes, Use use) {
    std::string joined;
    while (!bytes.empty()) {
        const auto end = bytes.find('\n');
        std::string_view line = bytes.substr(0, end);
        bytes.remove_prefix(end == std::string_view::npos ? bytes.size() : end + 1);
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        if (line.empty()) break;
        const bool continues = !bytes.empty() && (bytes.front() == ' ' || bytes.front() == '\t');
        if (continues || !joined.empty()) joined += (joined.empty() ? "" : " ") + std::string(trim(line));
        if (continues) continue;
        if (Result result = use(joined.empty() ? line : std::string_view(joined)); !result.ok())
            return result;
        joined.clear();
    }
    return {};
}

// An address whose server part begins at `server`.
std::string without_dots_behind(const std::string& address, std::size_t server) {
    const auto end = std::min(address.find_first_of("/?", server), address.size());
    return address.substr(0, end) + remove_dot_segments(address.substr(end));
}

// The line without the credentials of an address in it.
std::string without_login(std::string_view line) {
    const auto scheme = line.find("://");
    if (scheme == std::string_view::npos) return std::string(line);
    const auto server = scheme + 3;
    const auto end = std::min(line.find_first_of("/?# ", server), line.size());
    const auto at = line.substr(0, end).rfind('@');
    if (at == std::string_view::npos || at < server) return std::string(line);
    return std::string(line.substr(0, server)) + "********" + std::string(line.substr(at));
}

}  // namespace

Result not_http() {
    return {Code::server_error, "The answer is not an HTTP response."};
}

std::size_t find_head_end(std::string_view bytes, std::size_t search_from) {
    // An empty line is an LF that directly follows an LF, or an LF CR.
    std::size_t at = search_from;
    while ((at = bytes.find('\n', at)) != std::string_view::npos) {
        ++at;
        if (at < bytes.size() && bytes[at] == '\n') return at + 1;
        if (at + 1 < bytes.size() && bytes[at] == '\r' && bytes[at + 1] == '\n') return at + 2;
    }
    return std::string_view::npos;
}

Outcome<HttpHead> parse_head(std::string_view bytes) {
    HttpHead head;
    bool first = true;
    Result result = for_each_line(bytes, [&](std::string_view line) -> Result {
        if (std::exchange(first, false)) return read_status_line(head, line);
        // Nothing in the fields of an interim answer is needed, whatever they say.
        if (head.is_interim()) return {};
        const auto colon = line.find(':');
        if (colon == std::string_view::npos) return {};  // not a field: left out, as browsers do
        return read_field(head, trim(line.substr(0, colon)), trim(line.substr(colon + 1)));
    });
    if (!result.ok()) return result;
    if (first) return not_http();
    // The length is ignored where the body has a transfer coding (RFC 9112, 6.3).
    if (head.chunked || head.transfer_coding != ContentCoding::identity) head.length.reset();
    return head;
}

std::vector<std::string> head_lines_for_log(std::string_view bytes) {
    std::vector<std::string> lines;
    static_cast<void>(for_each_line(bytes, [&](std::string_view line) -> Result {
        const std::string_view name = trim(line.substr(0, line.find(':')));
        if (iequals(name, "set-cookie")) {
            lines.emplace_back("Set-Cookie: ********");
        } else {
            lines.push_back(without_login(line));
        }
        return {};
    }));
    return lines;
}

std::string resolve_redirect(std::string_view location, const RedirectBase& base) {
    std::string target(location.substr(0, location.find('#')));
    // All of them, those of a query as well: servers that write them mean slashes everywhere.
    std::replace(target.begin(), target.end(), '\\', '/');
    constexpr std::array followed{"http://", "https://", "ftp://",  "ftps://",  "sftp://",
                                  "mms://",  "mmst://",  "rtsp://", "rtspt://", "pnm://"};
    for (const std::string_view scheme : followed) {
        if (istarts_with(target, scheme)) return without_dots_behind(target, scheme.size());
    }
    // Another scheme ("data:", "javascript:", "file:") has its colon before the first slash or question mark.
    const auto colon = target.find(':');
    if (colon != std::string::npos && colon < target.find_first_of("/?")) return {};
    if (target.starts_with("//"))
        return without_dots_behind(base.scheme + ":" + target, base.scheme.size() + 3);
    const bool default_one = base.port == (base.scheme == "https" ? 443 : 80);
    const std::string site =
        base.scheme + "://" + base.host + (default_one ? "" : ":" + std::to_string(base.port));
    if (target.empty()) return {};
    const std::string path = base.path.substr(0, base.path.find('?'));
    // Relative to the folder of the request (RFC 3986, 5.2.3).
    std::string folder;
    if (target.front() == '?') folder = path;
    if (target.front() != '?' && target.front() != '/') folder = "/" + path.substr(0, path.rfind('/') + 1);
    if (folder.starts_with("//")) folder.erase(0, 1);
    return site + remove_dot_segments(folder + target);
}

}  // namespace vantlow
