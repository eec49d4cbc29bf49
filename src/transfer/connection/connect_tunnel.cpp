#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>
#include <utility>

#include "base/codes.h"
#include "base/text.h"
#include "transfer/connection/chunked.h"
#include "transfer/connection/tunnel.h"

namespace vantlow {
namespace {

constexpr std::size_t longest_answer = 64 * 1024;
constexpr int most_lines = 500;
constexpr std::int64_t longest_part = 1024;  // of a body that nobody reads
constexpr std::size_t status_at = 9;         // behind "HTTP/1.1 "
// The lines of a refusal behind the first are worth waiting for when there is another login to try.
constexpr std::chrono::milliseconds longest_wait_for_challenge{2000};
constexpr int most_rounds = 6;

// The lines of a proxy's answer: what comes behind the empty line belongs to the tunnel, and is not read. A
// line ends with LF, whether or not there is a CR before it (RFC 9112, 2.2).
class AnswerReader {
  public:
    AnswerReader(ProxyWire& wire, LogSink& log) : wire_(wire), log_(log) {}

    /// The next line, logged; false behind the last one.
    Outcome<bool> next(std::string& line, Clock::time_point until);
    [[nodiscard]] bool is_silent() const noexcept { return total_ == 0; }

  private:
    ProxyWire& wire_;
    LogSink& log_;
    std::size_t total_ = 0;
    int lines_ = 0;
    bool begun_ = false;  ///< there was a line
};

Outcome<bool> AnswerReader::next(std::string& line, Clock::time_point until) {
    while (lines_++ < most_lines) {
        std::string stored;
        const Result result = wire_.receive_line(stored, longest_answer - total_, until);
        total_ += stored.size();
        if (!result.ok()) return result;
        if (!stored.ends_with('\n')) break;
        stored.pop_back();
        if (stored.ends_with('\r')) stored.pop_back();
        if (stored.empty()) {
            if (!begun_) continue;  // behind the body of the answer before
            return false;
        }
        begun_ = true;
        log_.line(Direction::received, stored);
        line = std::move(stored);
        return true;
    }
    return Result(Code::proxy_refused, "The proxy's answer does not end.");
}

int status_of(std::string_view line) {
    int status = 0;
    if (line.size() > status_at) std::from_chars(line.data() + status_at, line.data() + line.size(), status);
    return status;
}

std::string authority(const TunnelTarget& target) {
    const bool literal = target.host.find(':') != std::string::npos;
    // The zone of an address means something on this machine only.
    const std::string host = literal ? "[" + target.host.substr(0, target.host.find('%')) + "]" : target.host;
    return host + ":" + std::to_string(target.port);
}

struct Refusal {
    std::vector<std::string> challenges;
    bool closes = false;
    bool chunked = false;     ///< its end is known whatever `length` says
    std::int64_t length = 0;  ///< bytes of the body; negative: unknown
};

void read_field(std::string_view line, Refusal& refusal) {
    const auto colon = line.find(':');
    if (colon == std::string_view::npos) return;
    const std::string_view name = trim(line.substr(0, colon));
    const std::string_view value = trim(line.substr(colon + 1));
    if (iequals(name, "proxy-authenticate")) refusal.challenges.emplace_back(value);
    if (iequals(name, "connection") || iequals(name, "proxy-connection"))
        refusal.closes = !iequals(value, "keep-alive");
    if (iequals(name, "content-length")) refusal.length = parse_decimal(value).value_or(-1);
    if (iequals(name, "transfer-encoding")) {
        refusal.chunked = iequals(value, "chunked");
        if (!refusal.chunked) refusal.length = -1;
    }
}

class Connecting {
  public:
    Connecting(ProxyWire& wire, LogSink& log, const ProxyPlan& proxy, const TunnelTarget& target,
               HttpLogin* login)
        : wire_(wire), log_(log), proxy_(proxy), authority_(authority(target)), login_(login) {}

    Result run(bool& again);

  private:
    Result send_request();
    Result refused(const std::string& line, AnswerReader& answer, bool& kept);
    bool skip_body(const Refusal& refusal);
    bool skip_chunks(Clock::time_point until);

    ProxyWire& wire_;
    LogSink& log_;
    const ProxyPlan& proxy_;
    std::string authority_;
    HttpLogin* login_;
};

Result Connecting::send_request() {
    std::string line;
    std::string shown;
    if (login_ != nullptr) {
        line = login_->line("CONNECT", authority_);
        shown = login_->shown();
    } else if (!proxy_.user.empty()) {
        line = "Basic " + to_base64(proxy_.user + ":" + proxy_.password);
        shown = "Basic ********";
    }
    std::string request = "CONNECT " + authority_ + " HTTP/1.1\r\n";
    log_.line(Direction::sent, "CONNECT " + authority_ + " HTTP/1.1");
    if (!line.empty()) {
        log_.line(Direction::sent, "Proxy-Authorization: " + shown);
        request += "Proxy-Authorization: " + line + "\r\n";
    }
    request += "\r\n";
    return wire_.send(std::as_bytes(std::span(request)));
}

// Reads the body of a refusal; false where its end is not known or not worth waiting for.
bool Connecting::skip_body(const Refusal& refusal) {
    const auto until = from_now(longest_wait_for_challenge);
    if (refusal.chunked) return skip_chunks(until);
    std::int64_t length = refusal.length;
    if (length < 0 || length > static_cast<std::int64_t>(longest_answer)) return false;
    std::array<std::byte, longest_part> bin{};
    while (length > 0) {
        const auto part = std::min(length, longest_part);
        if (!wire_.receive(std::span(bin).first(static_cast<std::size_t>(part)), until).ok()) return false;
        length -= part;
    }
    return true;
}

// The body is read line by line and chunk by chunk, so that the bytes behind its last chunk stay where they
// are.
bool Connecting::skip_chunks(Clock::time_point until) {
    ChunkedDecoder decoder;
    std::array<std::byte, longest_part> bin{};
    std::size_t total = 0;
    for (int lines = 0; lines < most_lines && total < longest_answer; ++lines) {
        std::string line;
        if (!wire_.receive_line(line, longest_answer - total, until).ok()) return false;
        total += line.size();
        const ChunkStep step = decoder.decode(std::as_bytes(std::span(line)), bin);
        if (step.state != ChunkStep::State::more) return step.state == ChunkStep::State::end;
        while (decoder.data_left() > 0 && total < longest_answer) {
            const auto part = std::min(decoder.data_left(), longest_part);
            std::array<std::byte, longest_part> bytes{};
            const auto chunk = std::span(bytes).first(static_cast<std::size_t>(part));
            if (!wire_.receive(chunk, until).ok()) return false;
            total += chunk.size();
            decoder.decode(chunk, bin);
        }
    }
    return false;
}

// Looks at a refusal. Success means that the login has another answer; `kept` tells whether for this
// connection.
Result Connecting::refused(const std::string& line, AnswerReader& answer, bool& kept) {
    Result failure{Code::proxy_refused, "The proxy refused the connection: " + line.substr(0, 200)};
    failure.about_credentials = status_of(line) == 407;
    if (status_of(line) != 407 || login_ == nullptr || proxy_.user.empty()) return failure;
    Refusal refusal;
    refusal.closes = line.starts_with("HTTP/1.0");
    std::string field;
    const auto until = std::min(from_now(longest_wait_for_challenge), wire_.time_out());
    auto more = answer.next(field, until);
    for (; more.ok() && *more; more = answer.next(field, until)) read_field(field, refusal);
    if (!more.ok() && more.failure().kind() == Kind::stopped) return more.failure();
    kept = more.ok() && !refusal.closes && skip_body(refusal);
    if (login_->challenged(refusal.challenges, kept)) return {};
    if (!login_->trouble().empty()) failure.detail += " " + login_->trouble();
    return failure;
}

Result Connecting::run(bool& again) {
    for (int round = 0; round < most_rounds; ++round) {
        AnswerReader answer(wire_, log_);
        std::string line;
        Result sent = send_request();
        auto more = sent.ok() ? answer.next(line, wire_.time_out()) : Outcome<bool>(sent);
        if (!more.ok()) {
            // The proxy closed the connection behind its refusal, without a word about it: a new one will do.
            again = round > 0 && answer.is_silent() && more.failure().code == Code::transient;
            return more.failure();
        }
        if (status_of(line) == 200) {
            const auto until = wire_.time_out();
            while (more.ok() && *more) more = answer.next(line, until);
            if (more.ok() && login_ != nullptr) login_->accepted();
            return more.ok() ? Result{} : more.failure();
        }
        bool kept = false;
        if (Result result = refused(line, answer, kept); !result.ok()) return result;
        if (!kept) {
            again = true;
            break;
        }
    }
    Result result{Code::proxy_refused, "The proxy refused the credentials."};
    result.about_credentials = true;
    return result;
}

}  // namespace

Result ProxyWire::receive_line(std::string& line, std::size_t most, Clock::time_point until) {
    for (std::size_t taken = 0; taken < most; ++taken) {
        std::byte byte{};
        if (Result result = receive({&byte, 1}, until); !result.ok()) return result;
        line += std::to_integer<char>(byte);
        if (line.back() == '\n') break;
    }
    return {};
}

Result open_connect(ProxyWire& wire, LogSink& log, const ProxyPlan& proxy, const TunnelTarget& target,
                    HttpLogin* login, bool& again) {
    if (target.host.empty() || target.host.find_first_of("\r\n") != std::string::npos) {
        log.line(Direction::error, "No host name for the proxy.");
        return {Code::tunnel_refused, "No host name for the proxy."};
    }
    return Connecting(wire, log, proxy, target, login).run(again);
}

}  // namespace vantlow
