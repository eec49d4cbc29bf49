#include "store/address.h"

#include <algorithm>
#include <array>

#include "base/text.h"
#include "platform/local_text.h"
#include "runtime/host_names.h"

namespace vantlow {
namespace {

constexpr auto none = std::u16string_view::npos;

// The form of an address behind its prefix.
enum class Form { server, torrent, ed2k, metalink };

struct Scheme {
    std::u16string_view prefix;
    std::uint16_t port;
    Form form = Form::server;
};

constexpr std::array schemes{
    Scheme{u"http://", 80},
    Scheme{u"https://", 443},
    Scheme{u"sftp://", 22},
    Scheme{u"ftp://", 21},
    Scheme{u"ftps://", 21},
    Scheme{u"mms://", 1755},
    Scheme{u"mmst://", 1755},
    Scheme{u"rtsp://", 554},
    Scheme{u"rtspt://", 554},
    Scheme{u"pnm://", 7070},
    Scheme{u"rtmp://", 1935},
    Scheme{u"rtmpt://", 80},
    Scheme{u"rtmpe://", 1935},
    Scheme{u"rtmpte://", 80},
    Scheme{u"rtmps://", 443},
    Scheme{u"bt://", 6969, Form::torrent},
    Scheme{u"magnet:?", 6969, Form::torrent},
    Scheme{u"ed2k://", 4661, Form::ed2k},
    Scheme{u"udp://", 2710},
    Scheme{u"metalink://", 109, Form::metalink},
};
constexpr Scheme no_scheme{u"", 21};
constexpr std::u16string_view no_scheme_prefix = u"ftp://";

const Scheme* find_scheme(std::u16string_view address) noexcept {
    for (const Scheme& scheme : schemes) {
        if (istarts_with(address, scheme.prefix)) return &scheme;
    }
    return address.find(u"://") == none ? &no_scheme : nullptr;
}

// The scheme of "http:/host/x", which lacks a slash; null for other addresses. Read literally it would mean a
// server called "http" with an empty port, which nobody writes.
const Scheme* find_misspelt_scheme(std::u16string_view address) noexcept {
    // Every address passes here many times, and nearly all have both slashes.
    if (const auto colon = address.find(u':'); colon == none || address.substr(colon, 3) == u"://")
        return nullptr;
    for (const Scheme& scheme : schemes) {
        if (scheme.form != Form::server || istarts_with(address, scheme.prefix)) continue;
        const std::u16string_view start = scheme.prefix.substr(0, scheme.prefix.size() - 2);
        if (!istarts_with(address, start)) continue;
        const std::u16string_view rest = address.substr(start.size());
        if (rest.empty() || rest.front() == u'/' || rest.front() == u'\\') return &scheme;
    }
    return nullptr;
}

// "user:password@host:port": the password may hold an "@", a host cannot.
struct ServerPart {
    std::u16string_view user;
    std::u16string_view password;
    std::u16string_view host_and_port;
};

ServerPart cut_server(std::u16string_view text) noexcept {
    const auto at = text.rfind(u'@');
    if (at == none) return {{}, {}, text};
    const std::u16string_view credentials = text.substr(0, at);
    const auto colon = credentials.find(u':');
    const auto password = colon == none ? std::u16string_view{} : credentials.substr(colon + 1);
    return {credentials.substr(0, colon), password, text.substr(at + 1)};
}

// The colons inside an IPv6 literal's brackets name no port.
std::u16string_view behind_literal(std::u16string_view host_and_port) noexcept {
    const auto close = host_and_port.starts_with(u'[') ? host_and_port.find(u']') : none;
    return close == none ? host_and_port : host_and_port.substr(close + 1);
}

void split_server(const Scheme& scheme, std::u16string_view address, SplitAddress& split) {
    const std::u16string_view rest = address.substr(scheme.prefix.size());
    const auto slash = rest.find(u'/');
    const ServerPart server = cut_server(rest.substr(0, slash));
    if (slash != none) split.path = rest.substr(slash);
    split.user = server.user;
    split.password = server.password;
    // The prefix is kept as written: only its meaning ignores letter case.
    split.address = scheme.prefix.empty() ? no_scheme_prefix : address.substr(0, scheme.prefix.size());
    split.address += server.host_and_port;
    if (behind_literal(server.host_and_port).find(u':') == none) {
        split.address += u":" + to_utf16(std::to_string(scheme.port));
    }
}

bool is_name_byte(char c) noexcept {
    constexpr std::string_view refused = "\"#%/:<>?@[\\]^`{|}";
    const auto byte = static_cast<unsigned char>(c);
    return byte > 0x20 && byte != 0x7F && refused.find(c) == std::string_view::npos;
}

std::optional<std::string> read_name(std::u16string_view text) {
    auto name = ascii_host(percent_decode(to_utf8(text)));
    if (!name || name->empty() || !std::all_of(name->begin(), name->end(), is_name_byte)) return std::nullopt;
    return name;
}

// Reads the literal in the brackets; a zone (RFC 6874) goes to the resolver as "%eth0".
std::optional<std::string> read_literal(std::u16string_view text) {
    constexpr std::string_view digits = "0123456789abcdefABCDEF:.";
    const std::string literal = percent_decode(to_utf8(text));
    const auto zone = literal.find('%');
    const std::string address = literal.substr(0, zone);
    const bool is_zone_fine = zone == std::string::npos || read_name(to_utf16(literal.substr(zone + 1)));
    if (address.find(':') == std::string::npos || !is_zone_fine) return std::nullopt;
    if (address.find_first_not_of(digits) != std::string::npos) return std::nullopt;
    return literal;
}

struct Server {
    std::string host;
    std::uint16_t port = 0;
    bool explicit_port = false;
};

std::optional<Server> read_server(std::u16string_view text, std::uint16_t standard_port) {
    const std::u16string_view tail = behind_literal(text);
    const bool is_literal = text.starts_with(u'[');
    const auto colon = tail.find(u':');
    // Behind the bracket only a port may follow; an IPv6 literal without brackets leaves its port unclear.
    if (is_literal && (tail.size() == text.size() || (!tail.empty() && colon != 0))) return std::nullopt;
    const auto host = is_literal ? read_literal(text.substr(1, text.size() - tail.size() - 2))
                                 : read_name(text.substr(0, colon));
    if (!host) return std::nullopt;
    // RFC 3986, 3.2.3: a colon without digits means the default port.
    if (colon == none || colon + 1 == tail.size()) return Server{*host, standard_port, false};
    const auto port = parse_decimal(to_utf8(tail.substr(colon + 1)));
    if (!port || *port < 1 || *port > 65535) return std::nullopt;
    return Server{*host, static_cast<std::uint16_t>(*port), true};
}

std::u16string decode(std::u16string_view text) {
    return to_utf16(percent_decode(to_utf8(text)));
}

// RFC 7617 forbids control characters in credentials, and in an FTP command a line end would begin another
// command.
bool has_control(std::u16string_view text) noexcept {
    return std::any_of(text.begin(), text.end(), [](char16_t c) { return c < 0x20 || c == 0x7F; });
}

std::string wire_path(std::u16string_view path, bool utf8) {
    path = path.substr(0, path.find(u'#'));
    std::string bytes = utf8 ? to_utf8(path) : to_ansi(path);
    // The code page's replacement for a character that it lacks, "?", would begin a query.
    if (!utf8 && from_ansi(bytes) != path) bytes = to_utf8(path);
    if (!bytes.starts_with('/')) bytes.insert(0, 1, '/');
    return percent_encode_unsafe(remove_dot_segments(bytes));
}

std::size_t server_end(std::u16string_view rest) noexcept {
    return std::min(rest.find_first_of(u"/?#"), rest.size());
}

// The range of the credentials in an address, with their "@"; empty where there are none.
struct Range {
    std::size_t start = 0;
    std::size_t end = 0;
};

Range find_credentials(std::u16string_view address) {
    const Scheme* scheme = find_scheme(address);
    if (scheme != nullptr && scheme->form != Form::server) return {};
    // The slashes of "://" are the first ones, unless an address stands inside another.
    const auto mark = address.find(u"://");
    const bool has_scheme = mark != none && address.find_first_of(u"/?#@") == mark + 1;
    std::size_t start = has_scheme ? mark + 3 : 0;
    if (const Scheme* const misspelt = find_misspelt_scheme(address))
        start = std::min(address.find_first_not_of(u"/\\", misspelt->prefix.size() - 2), address.size());
    const std::u16string_view rest = address.substr(start);
    std::size_t end = server_end(rest);
    // A password with one of these marks in it, as people write them, or an address inside another one: it
    // leads nowhere, but is shown.
    if (scheme == nullptr || !read_server(cut_server(rest.substr(0, end)).host_and_port, 1))
        end = rest.size();
    const auto at = rest.substr(0, end).rfind(u'@');
    return {start, at == none ? start : start + at + 1};
}

}  // namespace

LinkKind link_kind(std::u16string_view address) noexcept {
    const Scheme* scheme = find_misspelt_scheme(address) == nullptr ? find_scheme(address) : nullptr;
    if (scheme == nullptr) return LinkKind::unknown;
    switch (scheme->form) {
        case Form::server:
            return LinkKind::transfer;
        case Form::torrent:
            return LinkKind::torrent;
        case Form::ed2k:
            return LinkKind::edonkey;
        case Form::metalink:
            return LinkKind::metafile;
    }
    return LinkKind::unknown;
}

SplitAddress split_address(std::u16string_view address) {
    SplitAddress split;
    split.address = address;
    const Scheme* scheme = find_scheme(address);
    if (scheme == nullptr) return split;
    split.port = scheme->port;
    const std::u16string_view rest = address.substr(scheme->prefix.size());
    switch (scheme->form) {
        case Form::server:
            split.secure = scheme->prefix == u"ftps://";
            split_server(*scheme, address, split);
            break;
        case Form::torrent:
            if (!rest.empty()) split.address = rest;
            break;
        case Form::ed2k:
            split.path.clear();
            break;
        case Form::metalink:
            if (!rest.empty()) split.address = split.path = rest;
            break;
    }
    return split;
}

std::optional<Target> parse_target(std::u16string_view address, bool utf8) {
    const Scheme* scheme = find_scheme(address);
    if (scheme == nullptr || scheme->form != Form::server) return std::nullopt;
    const std::u16string_view rest = address.substr(scheme->prefix.size());
    const auto end = server_end(rest);
    const ServerPart part = cut_server(rest.substr(0, end));
    // Before an "@", too: "http:\\x@host" is no user called "http".
    const auto is_misspelt = [](std::u16string_view text) { return find_misspelt_scheme(text) != nullptr; };
    if (scheme->prefix.empty() && (is_misspelt(address) || is_misspelt(part.host_and_port)))
        return std::nullopt;
    const auto server = read_server(part.host_and_port, scheme->port);
    if (!server) return std::nullopt;
    Target target;
    const std::u16string_view prefix = scheme->prefix.empty() ? no_scheme_prefix : scheme->prefix;
    target.scheme = to_utf8(prefix.substr(0, prefix.size() - 3));
    target.host = server->host;
    target.port = server->port;
    target.explicit_port = server->explicit_port;
    target.user = decode(part.user);
    target.password = decode(part.password);
    if (has_control(target.user) || has_control(target.password)) return std::nullopt;
    target.path = wire_path(rest.substr(end), utf8);
    return target;
}

std::string why_no_target(std::u16string_view address) {
    if (const Scheme* const misspelt = find_misspelt_scheme(address)) {
        return "Invalid URL: a slash is missing, such addresses begin with \"" + to_utf8(misspelt->prefix) +
               "\".";
    }
    const Scheme* const scheme = find_scheme(address);
    const std::u16string_view rest = address.substr(scheme == nullptr ? 0 : scheme->prefix.size());
    const std::u16string_view host = cut_server(rest.substr(0, server_end(rest))).host_and_port;
    const std::string name = percent_decode(to_utf8(host.substr(0, host.find(u':'))));
    if (!is_utf8(name) || ascii_host(name)) return "Invalid URL.";
    if (!has_host_names()) {
        return missing_library_text("libnames") + " Without it the names of hosts have ASCII letters only.";
    }
    return "Invalid URL: \"" + name + "\" cannot be the name of a host.";
}

bool is_same_server(const Target& a, const Target& b) noexcept {
    return a.scheme == b.scheme && a.port == b.port && iequals(a.host, b.host);
}

std::u16string without_credentials(std::u16string_view address) {
    const auto [start, end] = find_credentials(address);
    return std::u16string(address.substr(0, start)).append(address.substr(end));
}

std::u16string without_password(std::u16string_view address) {
    const auto [start, end] = find_credentials(address);
    const auto colon = address.substr(0, end).find(u':', start);
    if (colon == none) return std::u16string(address);
    return std::u16string(address.substr(0, colon)).append(u"@").append(address.substr(end));
}

}  // namespace vantlow
