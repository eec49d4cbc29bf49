// One HTTP connection of the endpoint: a request, its answer, and the next one.
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/write.hpp>
#include <boost/beast/websocket/rfc6455.hpp>

#include "app/rpc/endpoint_parts.h"
#include "app/rpc/page.h"
#include "base/text.h"
#include "rpc/json_rpc.h"
#include "rpc/xml_rpc.h"

namespace vantlow::control {
namespace {

constexpr std::chrono::seconds farewell_patience{2};

using Parser = http::request_parser<http::string_body>;

std::string_view view(beast::string_view text) {
    return {text.data(), text.size()};
}

std::optional<std::string_view> header(const HttpRequest& request, beast::string_view name) {
    const auto found = request.find(name);
    return found == request.end() ? std::nullopt : std::optional(view(found->value()));
}

/// The host that is asked, and the part of the target in front of "?", and the one behind it.
struct Target {
    std::string_view host;
    std::string_view path;
    std::string_view query;
};
Target target_of(const HttpRequest& request) {
    std::string_view target = view(request.target());
    std::string_view host = header(request, "Host").value_or("");
    // A request as proxies get it names its host itself, and that one counts (RFC 9112, 3.2.2).
    for (const std::string_view scheme : {"http://", "https://"}) {
        if (!istarts_with(target, scheme)) continue;
        target.remove_prefix(scheme.size());
        host = target.substr(0, target.find_first_of("/?"));
        target.remove_prefix(host.size());
        break;
    }
    const auto mark = target.find('?');
    return {host, target.substr(0, mark),
            mark == std::string_view::npos ? std::string_view() : target.substr(mark + 1)};
}

// True for what the parser says of bytes that are no request.
bool is_malformed(const error_code& error) {
    return error && error.category() == make_error_code(http::error::end_of_stream).category() &&
           error != http::error::end_of_stream && error != http::error::partial_message;
}

// Of two hosts somebody in front of the endpoint may have looked at the other one; where a body ends that is
// coded in an unknown way nobody knows, nor whether what follows is a request (RFC 9112, 3.2 and 6.1).
bool is_ambiguous(const HttpRequest& request) {
    const std::string_view coding = header(request, "Transfer-Encoding").value_or("chunked");
    return request.count("Host") > 1 || request.count("Transfer-Encoding") > 1 || !iequals(coding, "chunked");
}

// True where a person followed a link, from wherever, to a file of the endpoint's own page: it opens in a tab
// of its own, nothing in it tells of a download, and the page that the link stood on cannot read it.
bool opens_page(const HttpRequest& request) {
    const bool asks = request.method() == http::verb::get || request.method() == http::verb::head;
    return asks && header(request, "Sec-Fetch-Mode") == "navigate" &&
           header(request, "Sec-Fetch-Dest") == "document" && find_page(target_of(request).path, {});
}

class HttpSession final : public Session, public std::enable_shared_from_this<HttpSession> {
  public:
    HttpSession(Shared& shared, Tcp::socket socket, std::string address)
        : Session(shared, std::move(address)),
          wire_(std::move(socket), shared.tls.get()),
          buffer_(largest_head + 2 * small_request) {}

    void begin();
    void close() override;

  private:
    using Response = http::response<http::string_body>;

    void read();
    void read_head(const error_code& error);
    void read_body();
    bool make_room();
    void work();
    void preflight();
    void call(rpc::Request request);
    void answer(rpc::Run run);
    void say(http::status status, std::string_view text);
    void send(http::status status, std::string_view content_type, std::string body);
    void send(const PageAnswer& page);
    [[nodiscard]] Response response(http::status status) const;
    void write(Response response);
    void part();
    void end();
    [[nodiscard]] const HttpRequest& request() const { return parser_->get(); }

    Wire wire_;
    beast::flat_buffer buffer_;
    std::optional<Parser> parser_;
    std::optional<Response> response_;
    rpc::Admission admission_ = rpc::Admission::refused;
    bool has_request_ = false;  ///< that is not answered
};

void HttpSession::begin() {
    if (wire_.tls() == nullptr) return read();
    wire_.next_layer().expires_after(shared().patience.handshake);
    wire_.tls()->shake_hands([self = shared_from_this()](const error_code& error) {
        if (error) return self->end();
        self->read();
    });
}

void HttpSession::read() {
    has_request_ = false;
    if (shared().closing) return end();
    response_.reset();
    static_cast<void>(hold_room(0));
    parser_.emplace();
    parser_->header_limit(largest_head);
    parser_->body_limit(shared().config.largest_request);
    wire_.next_layer().expires_after(shared().patience.idle);
    http::async_read_header(
        wire_, buffer_, *parser_,
        [self = shared_from_this()](const error_code& error, std::size_t) { self->read_head(error); });
}

void HttpSession::read_head(const error_code& error) {
    if (error == http::error::body_limit)
        return say(http::status::payload_too_large, "The request is too large.\n");
    if (error == http::error::header_limit)
        return say(http::status::request_header_fields_too_large, "The headers are too large.\n");
    if (is_malformed(error)) return say(http::status::bad_request, "This is no HTTP request.\n");
    if (error) return end();
    has_request_ = true;
    if (is_ambiguous(request()))
        return say(http::status::bad_request, "The request can be understood in two ways.\n");
    admission_ = rpc::admit({target_of(request()).host, header(request(), "Origin"),
                             header(request(), "Sec-Fetch-Site"), opens_page(request())},
                            shared().config.rules);
    if (admission_ == rpc::Admission::refused)
        return say(http::status::forbidden, "This host or origin is not let in.\n");
    if (target_of(request()).path == "/jsonrpc" && boost::beast::websocket::is_upgrade(request())) {
        wire_.next_layer().expires_never();
        serve_websocket(shared(), std::move(wire_), address(), request());
        return;
    }
    if (!make_room()) return say(http::status::service_unavailable, "Too many large requests at once.\n");
    if (header(request(), "Expect") != "100-continue") return read_body();
    response_.emplace(http::status::continue_, request().version());
    http::async_write(wire_, *response_, [self = shared_from_this()](const error_code& failed, std::size_t) {
        if (failed) return self->end();
        self->read_body();
    });
}

// A body whose length is not said has the room of a small one.
bool HttpSession::make_room() {
    if (const auto length = parser_->content_length()) return hold_room(static_cast<std::size_t>(*length));
    parser_->body_limit(std::min(small_request, shared().config.largest_request));
    return true;
}

void HttpSession::read_body() {
    wire_.next_layer().expires_after(shared().patience.transfer);
    http::async_read(wire_, buffer_, *parser_,
                     [self = shared_from_this()](const error_code& error, std::size_t) {
                         if (error == http::error::body_limit)
                             return self->say(http::status::payload_too_large, "The request is too large.\n");
                         if (is_malformed(error))
                             return self->say(http::status::bad_request, "This is no HTTP request.\n");
                         if (error) return self->end();
                         self->work();
                     });
}

void HttpSession::work() {
    const Target target = target_of(request());
    const http::verb method = request().method();
    const bool is_xml = target.path == "/rpc";
    if (method == http::verb::get || method == http::verb::head) {
        const auto page = find_page(target.path, header(request(), "If-None-Match").value_or(""));
        if (page) return send(*page);
    }
    if (target.path != "/jsonrpc" && !is_xml) return say(http::status::not_found, "There is nothing here.\n");
    if (method == http::verb::options) return preflight();
    if (method == http::verb::post)
        return call(is_xml ? rpc::read_xml(request().body()) : rpc::read_json(request().body()));
    if (method != http::verb::get || is_xml)
        return say(http::status::method_not_allowed, "This method is not allowed.\n");
    // Any page could have its reader's browser ask so.
    if (shared().config.rules.secret.empty())
        return say(http::status::forbidden, "Without a secret there are no calls by GET.\n");
    call(rpc::read_query(target.query));
}

// Answers a browser that asks for a page whether it may (W3C CORS).
void HttpSession::preflight() {
    Response made = response(http::status::no_content);
    if (admission_ == rpc::Admission::named_origin) {
        made.set("Access-Control-Allow-Methods", "POST, GET, OPTIONS");
        made.set("Access-Control-Allow-Headers", "Content-Type");
        made.set("Access-Control-Max-Age", "600");
        if (header(request(), "Access-Control-Request-Private-Network") == "true")
            made.set("Access-Control-Allow-Private-Network", "true");
    }
    write(std::move(made));
}

void HttpSession::call(rpc::Request request) {
    wire_.next_layer().expires_never();
    rpc::Run run;
    run.request = std::move(request);
    hand_on(*this, std::move(run), [self = shared_from_this()](std::optional<rpc::Run> done) {
        if (!done) return self->end();
        self->answer(*std::move(done));
    });
}

void HttpSession::answer(rpc::Run run) {
    rpc::Reply reply = run.request.form == rpc::Form::xml
                           ? rpc::write_xml(run.answers.front())
                           : rpc::write_json(run.request, std::move(run.answers));
    send(static_cast<http::status>(reply.status), reply.content_type, std::move(reply.body));
}

// Says why there is no answer, and ends the connection: what follows on it need not be a request.
void HttpSession::say(http::status status, std::string_view text) {
    Response made = response(status);
    made.set(http::field::content_type, "text/plain; charset=utf-8");
    made.keep_alive(false);
    made.body() = text;
    made.prepare_payload();
    write(std::move(made));
}

void HttpSession::send(http::status status, std::string_view content_type, std::string body) {
    Response made = response(status);
    made.set(http::field::content_type, beast::string_view(content_type.data(), content_type.size()));
    made.body() = std::move(body);
    made.prepare_payload();
    write(std::move(made));
}

void HttpSession::send(const PageAnswer& page) {
    const auto text = [](std::string_view view) { return beast::string_view(view.data(), view.size()); };
    Response made = response(static_cast<http::status>(page.status));
    for (const PageHeader& one : page_headers) made.set(text(one.name), text(one.value));
    made.set(http::field::content_type, text(page.type));
    made.set(http::field::etag, text(page.tag));
    if (page.status == 200) made.content_length(page.body.size());
    if (request().method() == http::verb::get) made.body() = page.body;
    write(std::move(made));
}

HttpSession::Response HttpSession::response(http::status status) const {
    Response made(status, 11);
    made.keep_alive(has_request_ && parser_->is_done() && request().keep_alive() && !shared().closing);
    made.set(http::field::cache_control, "no-store");
    made.set("X-Content-Type-Options", "nosniff");
    if (admission_ == rpc::Admission::named_origin) {
        made.set(http::field::access_control_allow_origin, request()[http::field::origin]);
        made.set(http::field::vary, "Origin");
    }
    return made;
}

void HttpSession::write(Response made) {
    response_.emplace(std::move(made));
    wire_.next_layer().expires_after(shared().patience.transfer);
    http::async_write(wire_, *response_, [self = shared_from_this()](const error_code& error, std::size_t) {
        if (error) return self->end();
        if (self->response_->need_eof()) return self->part();
        self->read();
    });
}

// Ends the connection behind an answer; the other side of TLS hears that this is the end of it.
void HttpSession::part() {
    if (wire_.tls() == nullptr) return end();
    wire_.next_layer().expires_after(farewell_patience);
    wire_.tls()->shut_down([self = shared_from_this()](const error_code&) { self->end(); });
}

void HttpSession::end() {
    has_request_ = false;
    error_code ignored;
    wire_.next_layer().socket().shutdown(Tcp::socket::shutdown_send, ignored);
    wire_.next_layer().close();
}

void HttpSession::close() {
    if (!has_request_) end();
}

}  // namespace

void serve_http(Shared& shared, Tcp::socket socket, std::string address) {
    std::make_shared<HttpSession>(shared, std::move(socket), std::move(address))->begin();
}

}  // namespace vantlow::control
