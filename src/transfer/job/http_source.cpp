#include "transfer/job/http_source.h"

#include <ctime>

#include "base/string_table.h"
#include "base/text.h"
#include "platform/file.h"
#include "platform/process.h"
#include "store/address.h"
#include "transfer/http/content_name.h"
#include "transfer/http/conversation.h"
#include "transfer/http/login.h"
#include "transfer/http/strict_hosts.h"
#include "transfer/job/http_request.h"

namespace vantlow {
namespace {

constexpr int most_redirects = 20;
constexpr std::size_t largest_cookie_file = 8 * 1024 * 1024;

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

class HttpSource : public Source {
  public:
    explicit HttpSource(const SourceContext& context)
        : context_(context),
          logins_(context.services.memory.of<LoginMemory>()),
          cookies_(context.services.memory.of<CookieJar>()),
          strict_hosts_(context.services.memory.of<StrictHosts>()),
          socket_(context.services, context.log, context.stop, context.share),
          conversation_(socket_, context.log) {}

    Result open(const SourcePlan& plan, std::int64_t offset, SourceAnswer& answer) override;
    Moved read(std::span<std::byte> into, Clock::time_point until) override {
        return conversation_.read(into, until);
    }
    void close() override { conversation_.finish(); }
    [[nodiscard]] std::optional<std::chrono::seconds> retry_after() const override { return retry_after_; }

  private:
    void load_cookies(const std::u16string& path);
    [[nodiscard]] std::u16string secured_where_wanted(const std::u16string& address) const;
    void remember(const HttpHead& head, const SourcePlan& plan, const Target& target);
    Result ask(const SourcePlan& plan, const Target& target, std::int64_t offset, HttpHead& head);
    Result redirect(const HttpHead& head, const Target& from, std::u16string& address);
    Result refuse(const HttpHead& head, SourceAnswer& answer);
    Result accept(const SourcePlan& plan, const Target& target, const HttpHead& head, std::int64_t offset,
                  SourceAnswer& answer);
    Result accept_part(const HttpHead& head, std::int64_t offset, SourceAnswer& answer);
    ContentCoding coding_to_undo(const HttpHead& head, const std::u16string& name);

    SourceContext context_;
    LoginMemory& logins_;
    CookieJar& cookies_;
    StrictHosts& strict_hosts_;
    bool had_user_ = false;      ///< the last request was made with credentials for whoever refused it
    bool in_the_clear_ = false;  ///< redirects led from a server with TLS to this one without
    std::string trouble_;        ///< why the last refusal has no answer
    CBaseSocket socket_;
    HttpConversation conversation_;
    std::optional<std::chrono::seconds> retry_after_;
};

Result HttpSource::ask(const SourcePlan& plan, const Target& target, std::int64_t offset, HttpHead& head) {
    ConnectPlan connect;
    connect.scheme = target.scheme;
    connect.host = target.host;
    connect.port = target.port;
    connect.proxy = plan.proxy;
    connect.timeout = plan.timeout;
    connect.limits = plan.limits;
    connect.want_connect = is_secured(target);
    if (is_secured(target)) {
        connect.tls = plan.trust;
        connect.tls->protocol = "http/1.1";
    }
    const HttpRequest request = make_http_request(plan, target, offset, cookies_, in_the_clear_);
    const LoginIdentity identity{target.scheme + "://" + target.host + ":" + std::to_string(target.port),
                                 request.user, request.password};
    SchemeLogin server(identity, LoginOperations::of(context_.libraries), &logins_);
    std::unique_ptr<HttpLogin> proxy;
    if (request.through_proxy && plan.proxy.make_login) proxy = plan.proxy.make_login();
    const HttpLogins logins{request.scheme == "ftp" ? nullptr : &server, proxy.get()};
    Result result = conversation_.ask(connect, request, head, logins);
    had_user_ = !(head.status == 407 ? request.proxy_user : request.user).empty();
    trouble_ = head.status == 407 && proxy ? proxy->trouble() : server.trouble();
    if (result.ok()) remember(head, plan, target);
    if (result.ok() && head.status == 400 && socket_.is_reused()) {
        // Whatever the server did not understand may have been the end of the answer before: once more,
        // afresh.
        socket_.close();
        connect.may_reuse = false;
        result = conversation_.ask(connect, request, head, logins);
    }
    return result;
}

void HttpSource::remember(const HttpHead& head, const SourcePlan& plan, const Target& target) {
    const auto now = static_cast<std::int64_t>(std::time(nullptr));
    cookies_.take(head.cookies, {target.host, target.path, is_secured(target)}, now);
    if (is_secured(target) && plan.trust.verify) strict_hosts_.take(head.strict_transport, target.host, now);
}

// The address of a host that wants to be reached over TLS only begins with "https://"; its port 80 is 443
// then, another one stays (RFC 6797, 8.3).
std::u16string HttpSource::secured_where_wanted(const std::u16string& address) const {
    const auto target = parse_target(address);
    const auto now = static_cast<std::int64_t>(std::time(nullptr));
    if (!target || target->scheme != "http" || !strict_hosts_.contains(target->host, now)) return address;
    std::u16string secured = u"https" + address.substr(4);
    if (target->explicit_port && target->port == 80) {
        const auto end = std::min(secured.find_first_of(u"/?#", 8), secured.size());
        const auto colon = secured.rfind(u':', end);
        secured.erase(colon, end - colon);
    }
    return secured;
}

Result HttpSource::open(const SourcePlan& plan, std::int64_t offset, SourceAnswer& answer) {
    retry_after_.reset();
    load_cookies(plan.cookie_file);
    SourcePlan hop = plan;
    hop.origin = secured_where_wanted(plan.origin);
    bool was_secured = false;
    std::u16string address = plan.address;
    for (int redirects = 0; redirects <= most_redirects; ++redirects) {
        if (std::u16string secured = secured_where_wanted(address); secured != address) {
            context_.log.line(Direction::note, "The host wants to be reached over TLS only.");
            address = std::move(secured);
        }
        const auto target = parse_target(address, plan.utf8);
        if (!target) {
            context_.log.line(Direction::error, message_text(Message::invalid_url));
            const std::string where =
                redirects == 0 ? std::string() : " " + to_utf8(without_credentials(address));
            return {Code::invalid_url, why_no_target(address) + where};
        }
        in_the_clear_ = was_secured && !is_secured(*target);
        was_secured = was_secured || is_secured(*target);
        hop.proxy = proxy_for(plan, *target, context_);
        HttpHead head;
        if (Result result = ask(hop, *target, offset, head); !result.ok()) return result;
        if (head.status >= 200 && head.status < 300) {
            answer.address = address;
            Result result = accept(plan, *target, head, offset, answer);
            if (!result.ok()) socket_.close();
            return result;
        }
        if (!is_redirect(head)) return refuse(head, answer);
        if (Result result = redirect(head, *target, address); !result.ok()) {
            answer.address = address;
            return result;
        }
    }
    return Code::too_many_redirects;
}

void HttpSource::load_cookies(const std::u16string& path) {
    if (path.empty() || !cookies_.begin_file(path)) return;
    std::vector<std::byte> bytes;
    if (const FileError error = read_file(path, largest_cookie_file, bytes); !error.ok()) {
        context_.log.line(Direction::error, to_utf8(path) + ": " + error.text());
        return;
    }
    cookies_.add(parse_cookies_txt({reinterpret_cast<const char*>(bytes.data()), bytes.size()}),
                 std::time(nullptr));
}

Result HttpSource::redirect(const HttpHead& head, const Target& from, std::u16string& address) {
    const std::string next =
        resolve_redirect(head.location, {from.scheme, from.host_text(), from.port, from.path});
    conversation_.skip_body();
    conversation_.finish();
    if (next.empty()) {
        return {Code::server_error, "The server redirects to an address that cannot be followed: \"" +
                                        std::string(head.location.substr(0, 200)) + "\""};
    }
    // The server's bytes as they are: read as text they might go out as others.
    address = to_utf16(percent_encode_unsafe(next));
    context_.log.line(Direction::note,
                      message(Message::redirect_to, {to_utf8(without_credentials(address))}));
    const Protocol* protocol = find_protocol(address);
    if (protocol != nullptr && protocol->make != make_http_source) return Code::moved;
    if (protocol == nullptr) {
        return {Code::unsupported, "The server redirects to " + to_utf8(without_credentials(address)) +
                                       ", a kind of address that cannot be fetched from here."};
    }
    return {};
}

Result HttpSource::refuse(const HttpHead& head, SourceAnswer& answer) {
    if (head.retry_after) retry_after_ = std::chrono::seconds(*head.retry_after);
    if (const auto moment = parse_http_date(head.retry_after_date)) {
        const auto now = parse_http_date(head.date).value_or(static_cast<std::int64_t>(std::time(nullptr)));
        retry_after_ = std::chrono::seconds(std::max<std::int64_t>(*moment - now, 0));
    }
    conversation_.skip_body();
    if (head.status == 400) {
        socket_.close();
    } else {
        conversation_.finish();
    }
    const std::string text = status_text(head);
    if (head.status == 416) {
        answer.version.size = head.range_total.value_or(-1);
        answer.beyond_end = true;
        return {Code::range_ignored, "The server has no bytes there: " + text};
    }
    if (head.status == 401 || head.status == 407) {
        context_.log.line(Direction::error, text);
        const std::string who = head.status == 407 ? "The proxy" : "The server";
        const std::string what =
            had_user_ ? " refused the credentials: " : " wants a user name and a password: ";
        return {Code::credentials_refused, who + what + text + (trouble_.empty() ? "" : ". " + trouble_)};
    }
    const std::string message = std::string(message_text(Message::http_server_error)) + " (" + text + ")";
    context_.log.line(Direction::error, message);
    return {is_busy(head.status) ? Code::busy : Code::server_error, message};
}

Result HttpSource::accept_part(const HttpHead& head, std::int64_t offset, SourceAnswer& answer) {
    const bool usable = head.range_unit_bytes && head.range_first && head.range_last &&
                        *head.range_last >= *head.range_first && *head.range_first == offset &&
                        head.content_type != "multipart/byteranges" &&
                        (!head.range_total || *head.range_total > *head.range_last) &&
                        (!head.length || *head.length - 1 == *head.range_last - *head.range_first);
    // Nothing can be unpacked from its middle on.
    if (!usable || (answer.encoded && offset > 0)) {
        context_.log.line(Direction::error, message_text(Message::partial_refused));
        return Code::range_ignored;
    }
    answer.granted = offset;
    answer.ranges_promised = true;
    answer.version.size = head.range_total.value_or(-1);
    answer.may_go_on = !head.range_total;
    return {};
}

// What is to be undone of the answer's content coding; the log tells what is not.
ContentCoding HttpSource::coding_to_undo(const HttpHead& head, const std::u16string& name) {
    const bool undone = (head.coding == ContentCoding::gzip && !is_gzip_file(head.content_type, name)) ||
                        head.coding == ContentCoding::deflate;
    if (undone) return head.coding;
    if (!head.content_encoding.empty() && head.content_encoding != "identity") {
        context_.log.line(Direction::note, "The content coding \"" + head.content_encoding.substr(0, 200) +
                                               "\" is left as it is: the file is kept as it comes.");
    }
    return ContentCoding::identity;
}

Result HttpSource::accept(const SourcePlan& plan, const Target& target, const HttpHead& head,
                          std::int64_t offset, SourceAnswer& answer) {
    answer.name = disposition_name(head.content_disposition);
    if (answer.name.empty()) answer.name = decode_name(head.content_type_name);
    if (answer.name.empty()) answer.name = path_name(target.path);
    const ContentCoding coding = coding_to_undo(head, answer.name);
    answer.encoded = coding != ContentCoding::identity;
    answer.ranges_promised = head.accept_ranges == AcceptRanges::bytes;
    answer.ranges_denied = head.accept_ranges == AcceptRanges::none || answer.encoded;
    answer.version.last_modified = head.last_modified;
    answer.version.etag = head.etag;
    answer.version.media_type = head.content_type;
    const auto changed = parse_http_date(head.last_modified);
    const auto sent = parse_http_date(head.date);
    answer.version.strong_date = changed && sent && is_strong_date(*changed, *sent);
    // A part that says nothing of its place answers a request for the whole.
    const bool whole =
        head.status != 206 || (offset == 0 && !head.has_range && head.content_type != "multipart/byteranges");
    if (!whole) {
        if (Result result = accept_part(head, offset, answer); !result.ok()) return result;
    } else {
        answer.whole = true;
        answer.granted = 0;
        answer.version.size = answer.encoded ? -1 : head.length.value_or(-1);
        if (head.status == 204 || head.status == 205) answer.version.size = 0;
    }
    Result result =
        conversation_.begin_body(coding, UnpackOperations::of(context_.libraries.ssh), plan.receive_buffer);
    if (result.code == Code::unsupported && result.detail.empty()) {
        result.detail = missing_library_text("libssh") + " The answer is compressed and cannot be unpacked.";
    }
    if (!result.ok()) context_.log.line(Direction::error, result.message());
    return result;
}

}  // namespace

std::unique_ptr<Source> make_http_source(const SourceContext& context) {
    return std::make_unique<HttpSource>(context);
}

}  // namespace vantlow
