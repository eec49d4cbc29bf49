#include "transfer/http/client.h"

#include <algorithm>
#include <ctime>
#include <utility>

#include "base/string_table.h"
#include "base/text.h"
#include "platform/file.h"
#include "transfer/http/auth_scheme.h"
#include "transfer/http/strict_hosts.h"

namespace vantlow {
namespace {

constexpr int most_redirects = 20;
constexpr std::size_t largest_cookie_file = 8 * 1024 * 1024;
constexpr std::size_t document_step = 32 * 1024;

bool is_redirect(const HttpHead& head) {
    switch (head.status) {
        case 301:
        case 302:
        case 303:
        case 307:
        case 308:
            return true;
        default:
            return head.status >= 300 && head.status < 400 && head.status != 304 && !head.location.empty();
    }
}

bool is_busy(int status) {
    return status == 408 || status == 429 || status >= 500;
}

bool is_http(const Target& target) {
    return target.scheme == "http" || target.scheme == "https";
}

ConnectPlan connect_plan(const HttpErrand& errand, const HttpHop& hop) {
    const Target& target = hop.target;
    ConnectPlan connect;
    connect.scheme = target.scheme;
    connect.host = target.host;
    connect.port = target.port;
    connect.proxy = hop.proxy;
    connect.way = errand.way;
    connect.timeout = errand.timeout;
    connect.limits = errand.limits;
    connect.want_connect = is_secured(target);
    if (is_secured(target)) {
        connect.tls = errand.trust;
        connect.tls->protocol = "http/1.1";
        connect.tls->host = target.host;
    }
    if (errand.adjust) errand.adjust(connect);
    return connect;
}

Result invalid_url(const HttpErrand& errand, const std::u16string& address, LogSink& log) {
    log.line(Direction::error, message_text(Message::invalid_url));
    if (errand.shown) return {Code::invalid_url, "Invalid URL: " + errand.show(address)};
    // Where redirects led is told beside what is wrong with it.
    const std::string where = address == errand.address ? std::string() : " " + errand.show(address);
    return {Code::invalid_url, why_no_target(address) + where};
}

Result unfollowed(const std::string& address) {
    return {Code::server_error,
            "The server redirects to an address that cannot be followed: \"" + address.substr(0, 200) + "\""};
}

std::int64_t now() {
    return static_cast<std::int64_t>(std::time(nullptr));
}

Result read_all(HttpClient& client, Clock::time_point until, std::size_t most, std::string& bytes) {
    std::vector<std::byte> buffer(document_step);
    for (;;) {
        const Moved moved = client.read(buffer, until);
        switch (moved.state) {
            case Moved::State::data:
                break;
            case Moved::State::closed:
                return {};
            case Moved::State::quiet:
                return {Code::transient, std::string(message_text(Message::timeout))};
            case Moved::State::failed:
                return {moved.code, {}, moved.system_error};
        }
        if (moved.bytes > most - bytes.size()) return {Code::server_error, "The answer is too long."};
        bytes.append(reinterpret_cast<const char*>(buffer.data()), moved.bytes);
    }
}

}  // namespace

HttpClient::HttpClient(const ConnectionContext& context)
    : context_(context),
      logins_(context.services.memory.of<LoginMemory>()),
      cookies_(context.services.memory.of<CookieJar>()),
      jars_(context.services.memory.of<CookieJars>()),
      strict_hosts_(context.services.memory.of<StrictHosts>()),
      socket_(context.services, context.log, context.stop, context.node),
      conversation_(socket_, context.log) {}

Result HttpClient::ask(const HttpErrand& errand, HttpAnswer& answer) {
    load_cookies(errand);
    HttpHop hop;
    hop.origin = parse_target(secured_where_wanted(errand.origin.empty() ? errand.address : errand.origin),
                              errand.utf8);
    bool was_secured = false;
    hop.gets_form = !errand.http.form_type.empty();
    answer.address = errand.address;
    for (int redirects = 0; redirects <= most_redirects; ++redirects) {
        if (std::u16string secured = secured_where_wanted(answer.address); secured != answer.address) {
            context_.log.line(Direction::note, "This host is to be reached over TLS only.");
            answer.address = std::move(secured);
        }
        const auto target = parse_target(answer.address, errand.utf8);
        if (!target) return invalid_url(errand, answer.address, context_.log);
        answer.target = hop.target = *target;
        hop.proxy = errand.proxy_for ? errand.proxy_for(*target) : errand.proxy;
        hop.in_the_clear = was_secured && !is_secured(*target);
        was_secured = was_secured || is_secured(*target);
        if (Result result = ask_one(errand, hop, answer); !result.ok()) return result;
        if (!is_redirect(answer.head)) return {};
        if (Result result = redirect(errand, answer); !result.ok()) return result;
        // The form has been taken, and the answer stands elsewhere; 307 and 308 want it sent there instead
        // (RFC 9110, 15.4), which nobody was asked about.
        const bool is_sent_on = answer.head.status == 307 || answer.head.status == 308;
        if (std::exchange(hop.gets_form, false) && is_sent_on)
            return {Code::server_error,
                    "The server wants the form sent to another address, which is not done."};
    }
    return Code::too_many_redirects;
}

// The address of a host that wants to be reached over TLS only begins with "https://"; its port 80 is 443
// then, another one stays (RFC 6797, 8.3).
std::u16string HttpClient::secured_where_wanted(const std::u16string& address) const {
    if (strict_hosts_.is_empty()) return address;
    const auto target = parse_target(address);
    if (!target || target->scheme != "http" || !strict_hosts_.contains(target->host, now())) return address;
    std::u16string secured = u"https" + address.substr(4);
    if (target->explicit_port && target->port == 80) {
        const auto end = std::min(secured.find_first_of(u"/?#", 8), secured.size());
        const auto colon = secured.rfind(u':', end);
        secured.erase(colon, end - colon);
    }
    return secured;
}

void HttpClient::load_cookies(const HttpErrand& errand) {
    const std::u16string& path = errand.http.cookie_file;
    if (path.empty() || !jar_of(errand).begin_file(path)) return;
    std::vector<std::byte> bytes;
    if (const FileError error = read_file(path, largest_cookie_file, bytes); !error.ok()) {
        context_.log.line(Direction::error, to_utf8(path) + ": " + error.text());
        return;
    }
    jar_of(errand).add(parse_cookies_txt({reinterpret_cast<const char*>(bytes.data()), bytes.size()}), now());
}

// One server's answer, with the logins that it and the proxy want.
Result HttpClient::ask_one(const HttpErrand& errand, const HttpHop& hop, HttpAnswer& answer) {
    const Target& target = hop.target;
    if (!is_http(target) && !hop.proxy.takes_requests(false))
        return invalid_url(errand, answer.address, context_.log);
    ConnectPlan connect = connect_plan(errand, hop);
    // Of a connection that has ended meanwhile nobody could tell whether the form was taken.
    if (hop.gets_form) connect.may_reuse = false;
    const HttpRequest request = make_http_request(errand, hop, jar_of(errand));
    const LoginIdentity identity{target.scheme + "://" + target.host + ":" + std::to_string(target.port),
                                 request.user, request.password};
    SchemeLogin server(identity, LoginOperations::of(context_.libraries), &logins_);
    std::unique_ptr<HttpLogin> at_proxy;
    if (request.through_proxy && hop.proxy.make_login) at_proxy = hop.proxy.make_login();
    const HttpLogins logins{is_http(target) ? &server : nullptr, at_proxy.get()};
    HttpHead& head = answer.head;
    Result result = conversation_.ask(connect, request, head, logins);
    answer.form_sent = answer.form_sent || conversation_.has_sent_form();
    answer.had_user = !(head.status == 407 ? request.proxy_user : request.user).empty();
    answer.trouble = head.status == 407 && at_proxy ? at_proxy->trouble() : server.trouble();
    if (result.ok()) remember(errand, answer);
    if (result.ok() && head.status == 400 && socket_.is_reused()) {
        // The bytes that the server did not understand may have been the end of the body before: once more,
        // afresh.
        socket_.close();
        connect.may_reuse = false;
        result = conversation_.ask(connect, request, head, logins);
    }
    return result;
}

// A person's own cookies are a login, which no other job gets, and one that was set before does not replace
// them. Neither do others get what came from a server that nobody checked.
CookieJar& HttpClient::jar_of(const HttpErrand& errand) {
    if (errand.http.cookie.empty() && errand.trust.verify) return cookies_;
    std::string key = to_utf8(errand.http.cookie) + (errand.trust.verify ? "" : "\n");
    if (!own_ || own_key_ != key) {
        own_ = jars_.jar_of(key);
        own_key_ = std::move(key);
    }
    return *own_;
}

void HttpClient::remember(const HttpErrand& errand, const HttpAnswer& answer) {
    const Target& target = answer.target;
    const bool secured = is_secured(target);
    if (errand.with_cookies)
        jar_of(errand).take(answer.head.cookies, {target.host, target.path, secured}, now());
    if (secured && errand.trust.verify) strict_hosts_.take(answer.head.strict_transport, target.host, now());
}

Result HttpClient::redirect(const HttpErrand& errand, HttpAnswer& answer) {
    const Target& from = answer.target;
    const std::string next =
        resolve_redirect(answer.head.location, {from.scheme, from.host_text(), from.port, from.path});
    conversation_.skip_body();
    conversation_.finish();
    if (next.empty()) {
        return unfollowed(answer.head.location);
    }
    // The server's bytes as they are: read as text they might go out as others.
    answer.address = to_utf16(percent_encode_unsafe(next));
    context_.log.line(Direction::note, message(Message::redirect_to, {errand.show(answer.address)}));
    const auto target = parse_target(answer.address, errand.utf8);
    if (!target) return unfollowed(errand.show(answer.address));
    return is_http(*target) ? Result() : Result(Code::moved);
}

Result HttpClient::begin_body(ContentCoding coding, std::size_t buffer_size) {
    Result result =
        conversation_.begin_body(coding, UnpackOperations::of(context_.libraries.ssh), buffer_size);
    if (result.code == Code::unsupported && result.detail.empty())
        result.detail = missing_library_text("libssh") + " The answer is compressed and cannot be unpacked.";
    if (!result.ok()) context_.log.line(Direction::error, result.message());
    return result;
}

void HttpClient::leave(const HttpAnswer& answer) {
    conversation_.skip_body();
    if (answer.head.status == 400) {
        socket_.close();
    } else {
        conversation_.finish();
    }
}

Result HttpClient::refuse(const HttpAnswer& answer) {
    leave(answer);
    const int status = answer.head.status;
    const std::string text = status_text(answer.head);
    if (status == 401 || status == 407) {
        context_.log.line(Direction::error, text);
        const std::string who = status == 407 ? "The proxy" : "The server";
        const std::string what =
            answer.had_user ? " refused the credentials: " : " wants a user name and a password: ";
        Result refused(Code::credentials_refused,
                       who + what + text + (answer.trouble.empty() ? "" : ". " + answer.trouble));
        // The login of the way, not that of the server.
        refused.about_credentials = status == 407;
        return refused;
    }
    const std::string message = std::string(message_text(Message::http_server_error)) + " (" + text + ")";
    context_.log.line(Direction::error, message);
    return {is_busy(status) ? Code::busy : Code::server_error, message};
}

Outcome<HttpDocument> fetch_document(const ConnectionContext& context, const HttpErrand& errand,
                                     std::size_t most) {
    HttpClient client(context);
    HttpDocument document;
    HttpAnswer& answer = document.answer;
    if (Result result = client.ask(errand, answer); !result.ok()) return result;
    if (answer.head.status < 200 || answer.head.status > 299) return client.refuse(answer);
    if (Result result = client.begin_body(answer.head.coding, errand.receive_buffer); !result.ok())
        return result;
    if (Result result = read_all(client, from_now(errand.timeout), most, document.bytes); !result.ok()) {
        if (result.kind() != Kind::stopped) context.log.line(Direction::error, result.message());
        return result;
    }
    client.finish();
    return document;
}

}  // namespace vantlow
