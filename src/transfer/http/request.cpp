#include "transfer/http/request.h"

#include <algorithm>

#include "base/codes.h"

namespace vantlow {
namespace {

constexpr const char* mask = "********";

std::string with_port(const HttpRequest& request, bool port) {
    return port ? request.host + ":" + std::to_string(request.port) : request.host;
}

// The first line as the log may show it.
std::string shown_path(const HttpRequest& request) {
    return request.shown_path.empty() ? request.path : request.shown_path;
}

// Everything but RFC 3986's unreserved characters.
std::string percent_encode_all(std::string_view text) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string out;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        const bool is_letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
        if (is_letter || std::string_view("-._~").find(c) != std::string_view::npos) {
            out += c;
        } else {
            out += {'%', digits[byte >> 4U], digits[byte & 0x0FU]};
        }
    }
    return out;
}

// "GET http://host:port/path": what an HTTP proxy is asked. An FTP address carries its credentials in the
// host.
RequestLine absolute_form(const HttpRequest& request) {
    std::string credentials;
    std::string shown;
    if (request.scheme == "ftp" && !request.user.empty()) {
        // Else a "/" or an "@" in them would name another host.
        const std::string user = percent_encode_all(request.user);
        credentials =
            user + (request.password.empty() ? "" : ":" + percent_encode_all(request.password)) + "@";
        shown = user + (request.password.empty() ? "" : std::string(":") + mask) + "@";
    }
    HttpRequest seen = request;
    seen.path = shown_path(request);
    const std::string method = std::string(method_of(request)) + ' ';
    std::string line = method + absolute_target(request) + " HTTP/1.1";
    std::string shown_line = method + absolute_target(seen) + " HTTP/1.1";
    const std::size_t host_at = line.find("://") + 3;
    return {line.insert(host_at, credentials), shown_line.insert(host_at, shown)};
}

RequestLine secret(const std::string& name, const std::string& value) {
    return {name + value, name + mask};
}

void add_login(std::vector<RequestLine>& lines, const std::string& name,
               const std::optional<HttpRequest::Login>& login, const std::string& user,
               const std::string& password) {
    if (login) {
        if (!login->value.empty()) lines.push_back({name + login->value, name + login->shown});
    } else if (!user.empty()) {
        lines.push_back(secret(name + "Basic ", to_base64(user + ":" + password)));
    }
}

RequestLine plain(const std::string& text) {
    return {text, text};
}

// A request header must not become two: whatever came in from an address, a file or a person.
void remove_line_breaks(std::string& text) {
    std::erase_if(text, [](char c) { return c == '\r' || c == '\n' || c == '\0'; });
}

std::string site_root(const HttpRequest& request) {
    return request.scheme + "://" + with_port(request, request.port != default_port(request.scheme)) + "/";
}

}  // namespace

std::uint16_t default_port(const std::string& scheme) noexcept {
    if (scheme == "https") return 443;
    if (scheme == "ftp") return 21;
    return 80;
}

std::string absolute_target(const HttpRequest& request) {
    return request.scheme + "://" + with_port(request, request.port != default_port(request.scheme)) +
           request.path;
}

namespace {

std::vector<RequestLine> usual_lines(const HttpRequest& request) {
    std::vector<RequestLine> lines;
    if (request.through_proxy) {
        lines.push_back(absolute_form(request));
        add_login(lines, "Proxy-Authorization: ", request.proxy_login, request.proxy_user,
                  request.proxy_password);
    } else {
        const std::string method = std::string(method_of(request)) + ' ';
        lines.push_back({method + request.path + " HTTP/1.1", method + shown_path(request) + " HTTP/1.1"});
    }
    if (request.scheme != "ftp")
        add_login(lines, "Authorization: ", request.login, request.user, request.password);
    lines.push_back(plain("Accept: */*"));
    if (!request.referer.empty()) {
        lines.push_back(plain("Referer: " + request.referer));
    } else if (request.automatic_referer && !request.host.empty() && request.scheme != "ftp") {
        lines.push_back(plain("Referer: " + site_root(request)));
    }
    // The range is open-ended: the reader stops at its segment's end, which may move while the answer runs.
    if (request.start != 0) lines.push_back(plain("Range: bytes=" + std::to_string(request.start) + "-"));
    if (!request.agent.empty()) lines.push_back(plain("User-Agent: " + request.agent));
    lines.push_back(plain("Host: " + with_port(request, request.explicit_port)));
    lines.push_back(plain(request.through_proxy ? "Proxy-Connection: Keep-Alive" : "Connection: Keep-Alive"));
    if (!request.cookie.empty()) lines.push_back(secret("Cookie: ", request.cookie));
    if (!request.form_type.empty()) {
        lines.push_back(plain("Content-Type: " + request.form_type));
        lines.push_back(plain("Content-Length: " + std::to_string(request.form.size())));
    }
    lines.push_back(plain("Pragma: no-cache"));
    lines.push_back(plain("Cache-Control: no-cache"));
    for (const std::string& line : request.extra) lines.push_back(plain(line));
    return lines;
}

}  // namespace

std::vector<RequestLine> request_lines(const HttpRequest& request) {
    std::vector<RequestLine> lines = request.lines.empty() ? usual_lines(request) : request.lines;
    for (RequestLine& line : lines) {
        remove_line_breaks(line.text);
        remove_line_breaks(line.shown);
    }
    return lines;
}

std::string build_request(const HttpRequest& request, LogSink& log) {
    std::string bytes;
    for (const RequestLine& line : request_lines(request)) {
        log.line(Direction::sent, line.shown);
        bytes += line.text + "\r\n";
    }
    return bytes + "\r\n" + request.form;
}

}  // namespace vantlow
