#include "transfer/http/validate.h"

#include <optional>

#include "base/codes.h"
#include "base/string_table.h"
#include "base/text.h"
#include "platform/thread.h"
#include "runtime/host_names.h"
#include "transfer/http/head.h"

namespace vantlow {
namespace {

constexpr std::uint16_t standard_port = 80;
constexpr std::size_t longest_line = 4096;

// The test address, cut.
struct TestAddress {
    std::string host;  ///< without brackets
    std::string shown_host;
    std::uint16_t port = standard_port;
    bool explicit_port = false;
    bool has_path = false;
};

std::optional<TestAddress> parse_address(std::string_view text) {
    const std::size_t prefix = istarts_with(text, "http://") ? 7 : istarts_with(text, "https://") ? 8 : 0;
    if (prefix == 0 || text.find_first_of(" \r\n\t") != std::string_view::npos) return std::nullopt;
    const std::string_view rest = text.substr(prefix);
    TestAddress address;
    const auto slash = rest.find_first_of("/?#");
    address.has_path = slash != std::string_view::npos && rest[slash] == '/';
    std::string_view server = rest.substr(0, slash);
    if (const auto at = server.rfind('@'); at != std::string_view::npos) server.remove_prefix(at + 1);
    const auto bracket = server.rfind(']');
    const auto colon = server.find(':', bracket == std::string_view::npos ? 0 : bracket);
    if (colon != std::string_view::npos) {
        const auto port = parse_decimal(server.substr(colon + 1));
        if (!port || *port < 1 || *port > 65535) return std::nullopt;
        address.port = static_cast<std::uint16_t>(*port);
        address.explicit_port = true;
    }
    const auto host = ascii_host(server.substr(0, colon));
    if (!host) return std::nullopt;
    address.shown_host = address.host = *host;
    if (address.host.starts_with('[') && address.host.ends_with(']'))
        address.host = address.host.substr(1, address.host.size() - 2);
    return address.host.empty() ? std::nullopt : std::optional(address);
}

// A connection that is tested; its lines differ in one word from those of a transfer.
class ValidateSocket : public CBaseSocket {
  public:
    using CBaseSocket::CBaseSocket;

  protected:
    Result tunnel(const ProxyPlan& proxy, const TunnelTarget& target, std::uint16_t& port) override {
        TunnelTarget tested = target;
        tested.name_words = "03";
        return CBaseSocket::tunnel(proxy, tested, port);
    }
};

std::string build_request(const std::string& address, const TestAddress& target, const ProxyPlan& proxy,
                          LogSink& log) {
    std::string bytes;
    const auto add = [&](const std::string& line, const std::string& shown) {
        log.line(Direction::sent, shown);
        bytes += line + "\r\n";
    };
    const std::string get = "GET " + address + (target.has_path ? "" : "/") + " HTTP/1.1";
    add(get, get);
    const std::string host =
        "Host: " + target.shown_host + (target.explicit_port ? ":" + std::to_string(target.port) : "");
    add(host, host);
    // Through a tunnel the request is the server's, who must not see the proxy's password.
    if (proxy.kind == ProxyPlan::http && !proxy.user.empty()) {
        add("Proxy-Authorization: Basic " + to_base64(proxy.user + ":" + proxy.password),
            "Proxy-Authorization: Basic ********");
    }
    return bytes + "\r\n";
}

// The first line of the answer, without its end.
Result read_line(CBaseSocket& socket, std::chrono::milliseconds timeout, std::string& line) {
    const auto until = from_now(timeout);
    for (;;) {
        std::byte byte{};
        if (Result result = socket.receive_exactly({&byte, 1}, until); !result.ok()) return result;
        const char c = std::to_integer<char>(byte);
        if (c == '\n') break;
        line += c;
        if (line.size() > longest_line) return {Code::server_error, "The answer is not an HTTP response."};
    }
    if (line.ends_with('\r')) line.pop_back();
    return {};
}

void judge(ProxyTest& test) {
    if (test.status == 0) {
        test.text = "The answer is not an HTTP response.";
    } else if (test.status == 407) {
        test.text = "The proxy wants other credentials (407).";
    } else if (test.status == 401) {
        test.text = "The proxy or the server wants credentials (401).";
    } else if (test.status >= 400) {
        test.text = "The answer was " + std::to_string(test.status) + ".";
    } else {
        test.ok = true;
        test.text = "Proxy server OK, elapsed " + std::to_string(test.elapsed.count()) + " ms.";
    }
}

}  // namespace

CValidateThread::CValidateThread(ConnectionServices& services, LogSink& log, const StopSource& stop,
                                 ValidatePlan plan, std::function<void(std::size_t, const ProxyTest&)> tested)
    : services_(services), log_(log), stop_(stop), plan_(std::move(plan)), tested_(std::move(tested)) {}

Result CValidateThread::start() {
    return start_thread(thread_, [this] { run(); });
}

void CValidateThread::join() {
    if (thread_.joinable()) thread_.join();
}

void CValidateThread::run() {
    for (std::size_t i = 0; i < plan_.proxies.size(); ++i) {
        ProxyTest done;
        if (!stop_.requested()) done = test(plan_.proxies[i]);
        if (stop_.requested()) {
            done = ProxyTest{};
            done.result = stop_.reason();
            done.text = "Testing cancelled.";
        }
        log_.line(done.ok ? Direction::note : Direction::error, done.text);
        tested_(i, done);
        if (stop_.requested()) return;
    }
}

ProxyTest CValidateThread::test(const ProxyPlan& proxy) {
    ProxyTest done;
    log_.line(Direction::note, "Parsing " + plan_.address);
    const auto target = parse_address(plan_.address);
    const auto fail = [&](Result result) {
        done.text = result.message();
        done.result = std::move(result);
        return done;
    };
    if (!target) return fail({Code::invalid_url, std::string(message_text(Message::invalid_url))});
    ConnectPlan connect;
    connect.scheme = "http";
    connect.host = target->host;
    connect.port = target->port;
    connect.proxy = proxy;
    connect.timeout = plan_.timeout;
    connect.may_reuse = false;
    ValidateSocket socket(services_, log_, stop_);
    const auto begun = Clock::now();
    if (Result result = socket.open(connect); !result.ok()) return fail(std::move(result));
    const std::string request = build_request(plan_.address, *target, proxy, log_);
    if (Result result = socket.send_all(std::as_bytes(std::span(request))); !result.ok())
        return fail(std::move(result));
    std::string line;
    if (Result result = read_line(socket, plan_.timeout, line); !result.ok()) return fail(std::move(result));
    done.elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begun);
    log_.line(Direction::received, line);
    if (const auto head = parse_head(line + "\r\n\r\n"); head.ok()) done.status = head->status;
    judge(done);
    return done;
}

}  // namespace vantlow
