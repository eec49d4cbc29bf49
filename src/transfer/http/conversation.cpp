#include "transfer/http/conversation.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "base/string_table.h"
#include "base/text.h"

namespace vantlow {
namespace {

// A small file comes in one read with its header.
constexpr std::size_t head_step = 32 * 1024;
constexpr int most_interim_answers = 20;
// So much that is no answer is skipped behind an interim one, and an answer is waited for no longer there.
constexpr std::size_t most_rubbish = 16 * 1024;
constexpr std::chrono::seconds rubbish_patience{1};
constexpr std::size_t most_skipped_body = 64 * 1024;
// So many answers may ask for a login: two schemes with two steps each at a proxy, and the same at a server
// behind it.
constexpr int most_rounds = 8;

std::string owners(const HttpLogins& logins) {
    std::string all;
    for (const HttpLogin* const login : {logins.server, logins.proxy}) {
        if (login != nullptr) all += login->owner();
    }
    return all;
}

HttpLogin* login_for(const HttpHead& head, const HttpLogins& logins) {
    if (head.status == 401) return logins.server;
    return head.status == 407 ? logins.proxy : nullptr;
}

bool begins_like_http(std::string_view bytes) {
    constexpr std::string_view begin = "HTTP";
    return iequals(bytes.substr(0, begin.size()), begin.substr(0, bytes.size()));
}

bool begins_like_status_line(std::string_view bytes) {
    constexpr std::string_view shape = "HTTP/0.0 000";  // 0: any digit
    for (std::size_t i = 0; i < std::min(bytes.size(), shape.size()); ++i) {
        const bool fits = shape[i] == '0' ? bytes[i] >= '0' && bytes[i] <= '9' : bytes[i] == shape[i];
        if (!fits) return false;
    }
    return true;
}

// Drops the bytes before the first status line, or before what may become one; returns their number.
std::size_t drop_rubbish(std::string& bytes) {
    std::size_t at = 0;
    while (at < bytes.size() && !begins_like_status_line(std::string_view(bytes).substr(at))) ++at;
    bytes.erase(0, at);
    return at;
}

HttpRequest::Login line_of(HttpLogin& login, const HttpRequest& request, const std::string& target) {
    HttpRequest::Login line;
    line.value = login.line(method_of(request), target);
    line.shown = login.shown();
    return line;
}

}  // namespace

std::string status_text(const HttpHead& head) {
    std::string text = std::to_string(head.status);
    if (head.reason.empty()) return text;
    text += ' ';
    const bool readable = is_utf8(head.reason);
    for (const char c : head.reason.substr(0, 200)) {
        const auto byte = static_cast<unsigned char>(c);
        text += byte < 0x20 || byte == 0x7F || (byte >= 0x80 && !readable) ? '?' : c;
    }
    return text;
}

Result HttpConversation::ask(const ConnectPlan& plan, const HttpRequest& request, HttpHead& head,
                             const HttpLogins& logins) {
    ConnectPlan next = plan;
    bool go_on = false;
    form_sent_ = false;
    for (int round = 0; round < most_rounds; ++round) {
        next.owner = owners(logins);
        if (Result result = ask_once(next, request, head, logins, go_on); !result.ok()) return result;
        if (head.status != 407 && logins.proxy != nullptr) logins.proxy->accepted();
        if (head.status != 401 && head.status != 407 && logins.server != nullptr) logins.server->accepted();
        next.owner = owners(logins);
        if (!next.owner.empty()) socket_.claim(next);
        HttpLogin* const login = login_for(head, logins);
        if (login == nullptr) return {};
        go_on = stands_for_more();
        const auto& challenges = head.status == 401 ? head.server_challenges : head.proxy_challenges;
        if (!login->challenged(challenges, go_on)) return {};
        if (!go_on) socket_.close();
    }
    return {Code::server_error, "The server keeps asking for a login."};
}

// True when the answer was read whole and the connection goes on.
bool HttpConversation::stands_for_more() {
    skip_body();
    return head_.keep_alive && (head_only_ ? received_.empty() : body_ && body_->is_whole());
}

Result HttpConversation::ask_once(const ConnectPlan& plan, const HttpRequest& request, HttpHead& head,
                                  const HttpLogins& logins, bool go_on) {
    body_.reset();
    head_only_ = request.head_only;
    if (!go_on) {
        if (Result result = open(plan, logins); !result.ok()) return result;
    }
    // A form is not sent twice: a login that is asked for over the same connection is the only reason.
    bool dead = request.form_type.empty() && (go_on || socket_.is_reused());
    Result result = exchange(plan, request, head, logins, dead);
    if (!dead) return result;
    // The kept connection was closed by the server before it answered: GET and HEAD may be repeated (RFC
    // 9110, 9.2.2).
    ConnectPlan fresh = plan;
    fresh.may_reuse = false;
    if (result = open(fresh, logins); !result.ok()) return result;
    dead = false;
    return exchange(fresh, request, head, logins, dead);
}

Result HttpConversation::open(const ConnectPlan& plan, const HttpLogins& logins) {
    if (Result result = socket_.open(plan); !result.ok()) return result;
    for (HttpLogin* const login : {logins.server, logins.proxy}) {
        if (login != nullptr) login->connected(socket_.is_reused() && !plan.owner.empty());
    }
    return {};
}

// Reads a header. `dead` goes in as true where the connection may have been closed since its last answer, and
// comes out as true where it was.
Result HttpConversation::exchange(const ConnectPlan& plan, HttpRequest request, HttpHead& head,
                                  const HttpLogins& logins, bool& dead) {
    if (logins.proxy != nullptr)
        request.proxy_login = line_of(*logins.proxy, request, absolute_target(request));
    if (logins.server != nullptr) request.login = line_of(*logins.server, request, request.path);
    received_.clear();
    const auto until = from_now(plan.timeout);
    const std::string bytes = build_request(request, log_);
    bool nothing_came = true;
    form_sent_ = form_sent_ || !request.form_type.empty();
    Result result = socket_.send_all(std::as_bytes(std::span(bytes)));
    if (result.ok()) result = read_head(until, head_, nothing_came);
    dead = dead && !result.ok() && nothing_came && result.code == Code::transient;
    if (!result.ok()) {
        if (!dead && result.kind() != Kind::stopped) log_failure(log_, result);
        socket_.close();
    }
    head = head_;
    return result;
}

Result HttpConversation::parse_one(std::size_t end, HttpHead& head) {
    const std::string_view bytes(received_.data(), end);
    for (const std::string& line : head_lines_for_log(bytes)) log_.line(Direction::received, line);
    Outcome<HttpHead> parsed = parse_head(bytes);
    received_.erase(0, end);
    if (!parsed.ok()) return parsed.failure();
    head = *std::move(parsed);
    return {};
}

// Appends to the bytes received and not yet used.
Result HttpConversation::receive_more(Clock::time_point until) {
    std::array<std::byte, head_step> buffer;
    const Moved moved = socket_.receive(buffer, until);
    switch (moved.state) {
        case Moved::State::data:
            received_.append(reinterpret_cast<const char*>(buffer.data()), moved.bytes);
            return {};
        case Moved::State::quiet:
            return {Code::transient, std::string(message_text(Message::timeout))};
        case Moved::State::closed:
            return {Code::transient, "The server closed the connection without an answer."};
        case Moved::State::failed:
            break;
    }
    return moved.code == Code::transient ? socket_failure(moved.system_error) : Result(moved.code);
}

Result HttpConversation::read_head(Clock::time_point until, HttpHead& head, bool& nothing_came) {
    Search search{.until = until};
    while (search.interim_answers <= most_interim_answers) {
        if (Result result = pass_over(search); !result.ok()) return result;
        nothing_came = nothing_came && received_.empty();
        const std::size_t end = find_head_end(received_, search.searched);
        if (end != std::string::npos) {
            if (Result result = parse_one(end, head); !result.ok()) return result;
            search.searched = 0;
            if (head.is_interim()) {
                ++search.interim_answers;
                continue;
            }
            if (search.rubbish > 0) head.keep_alive = false;
            return {};
        }
        if (received_.size() > longest_head) return {Code::server_error, "The server's header is too long."};
        search.searched = received_.size() < 2 ? 0 : received_.size() - 2;
        if (Result result = receive_more(search.until); !result.ok()) {
            if (search.rubbish > 0 && result.code == Code::transient) return not_http();
            return result;
        }
    }
    return {Code::server_error, "The server keeps sending interim answers and no final one."};
}

Result HttpConversation::pass_over(Search& search) {
    // An empty line behind the answer before (RFC 9112, 2.2) is nothing.
    if (search.searched == 0)
        received_.erase(0, std::min(received_.find_first_not_of("\r\n"), received_.size()));
    if (search.rubbish == 0 && begins_like_http(received_)) return {};
    // Bytes that are no HTTP at all are refused at once, not after a time-out. Behind an interim answer they
    // are skipped, a body of its own mostly, up to a whole status line and for a second: they came from the
    // server that answers anyway. The connection serves no further request then.
    if (search.interim_answers == 0) return not_http();
    if (search.rubbish == 0) search.until = std::min(search.until, from_now(rubbish_patience));
    const std::size_t dropped = drop_rubbish(received_);
    if (dropped > 0) search.searched = 0;
    search.rubbish += dropped;
    return search.rubbish > most_rubbish ? not_http() : Result{};
}

Result HttpConversation::begin_body(ContentCoding coding, const UnpackOperations& operations,
                                    std::size_t buffer_size) {
    const auto* first = reinterpret_cast<const std::byte*>(received_.data());
    Inflow inflow(socket_, std::vector<std::byte>(first, first + received_.size()));
    received_.clear();
    auto body = make_body(head_, coding, std::move(inflow), operations, buffer_size);
    if (!body.ok()) return body.failure();
    body_ = *std::move(body);
    return {};
}

void HttpConversation::skip_body() {
    if (body_ || head_only_) return;
    const bool short_enough =
        head_.chunked || (head_.length && *head_.length <= static_cast<std::int64_t>(most_skipped_body));
    if (!head_.keep_alive || !short_enough || !begin_body(ContentCoding::identity, {}, head_step).ok())
        return;
    std::vector<std::byte> bin(head_step);
    std::size_t total = 0;
    const auto until = from_now(std::chrono::seconds(2));
    while (total < most_skipped_body) {
        const Moved moved = body_->read(bin, until);
        if (moved.state != Moved::State::data) break;
        total += moved.bytes;
    }
}

void HttpConversation::finish() {
    // 204 and 304 have no body, nor has any answer to HEAD (RFC 9112, 6.3).
    const bool no_body = head_only_ || head_.status == 204 || head_.status == 304;
    const bool whole =
        (body_ && body_->is_whole()) || (no_body && is_line_end(std::as_bytes(std::span(received_))));
    body_.reset();
    socket_.close(whole && head_.keep_alive);
}

}  // namespace vantlow
