#include <charconv>
#include <string_view>

#include "base/codes.h"
#include "base/text.h"
#include "transfer/connection/tunnel.h"

namespace vantlow {
namespace {

constexpr std::size_t longest_answer = 64 * 1024;
constexpr std::size_t status_at = 9;  // behind "HTTP/1.1 "

// The lines of a proxy's answer, read one byte at a time: what comes behind the empty line belongs to the
// tunnel. Line ends are counted in bytes of either kind: two end a line, four the header.
class AnswerReader {
  public:
    AnswerReader(ProxyWire& wire, LogSink& log) : wire_(wire), log_(log) {}

    /// The next line, logged; false behind the last one.
    Outcome<bool> next(std::string& line, Clock::time_point until);

  private:
    ProxyWire& wire_;
    LogSink& log_;
    std::string stored_;
    std::size_t total_ = 0;
    int ends_ = 0;
};

Outcome<bool> AnswerReader::next(std::string& line, Clock::time_point until) {
    for (;;) {
        std::byte byte{};
        if (Result result = wire_.receive({&byte, 1}, until); !result.ok()) return result;
        if (++total_ > longest_answer) return Result(Code::proxy_refused, "The proxy's answer has no end.");
        const char c = std::to_integer<char>(byte);
        if (c != '\r' && c != '\n') {
            stored_ += c;
            ends_ = 0;
            continue;
        }
        ++ends_;
        if (ends_ == 4) return false;
        if (ends_ != 2) continue;
        log_.line(Direction::received, stored_);
        line = std::move(stored_);
        stored_.clear();
        return true;
    }
}

int status_of(std::string_view line) {
    int status = 0;
    if (line.size() > status_at) std::from_chars(line.data() + status_at, line.data() + line.size(), status);
    return status;
}

std::string connect_line(const TunnelTarget& target) {
    const bool literal = target.host.find(':') != std::string::npos;
    // The zone of an address means something on this machine only.
    return "CONNECT " + (literal ? "[" + target.host.substr(0, target.host.find('%')) + "]" : target.host) +
           ":" + std::to_string(target.port) + " HTTP/1.1";
}

Result refusal(std::string_view line) {
    const int status = status_of(line);
    Result result{Code::proxy_refused,
                  "The proxy refused the connection: " + std::string(line.substr(0, 200))};
    result.about_credentials = status == 407;
    return result;
}

}  // namespace

Result open_connect(ProxyWire& wire, LogSink& log, const ProxyPlan& proxy, const TunnelTarget& target) {
    if (target.host.empty() || target.host.find_first_of("\r\n") != std::string::npos) {
        log.line(Direction::error, "No host name for the proxy.");
        return {Code::tunnel_refused, "No host name for the proxy."};
    }
    std::string request = connect_line(target) + "\r\n";
    log.line(Direction::sent, connect_line(target));
    if (!proxy.user.empty()) {
        log.line(Direction::sent, "Proxy-Authorization: Basic ********");
        request += "Proxy-Authorization: Basic " + to_base64(proxy.user + ":" + proxy.password) + "\r\n";
    }
    request += "\r\n";
    if (Result result = wire.send(std::as_bytes(std::span(request))); !result.ok()) return result;

    AnswerReader answer(wire, log);
    std::string line;
    auto more = answer.next(line, wire.time_out());
    if (!more.ok()) return more.failure();
    if (status_of(line) != 200) return refusal(line);
    const auto until = wire.time_out();
    while (more.ok() && *more) more = answer.next(line, until);
    return more.ok() ? Result{} : more.failure();
}

}  // namespace vantlow
