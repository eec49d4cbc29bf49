#include "transfer/http/validate.h"

#include "base/codes.h"
#include "base/string_table.h"
#include "base/text.h"
#include "platform/thread.h"
#include "store/address.h"
#include "transfer/http/conversation.h"

namespace vantlow {
namespace {

constexpr std::uint16_t standard_port = 80;

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

// The lines of the test: fewer than those of a transfer, and in another order.
HttpRequest make_request(const std::string& address, const Target& target, const ProxyPlan& proxy) {
    const auto server = address.find("://") + 3;
    const auto end = address.find_first_of("/?#", server);
    const bool has_path = end != std::string::npos && address[end] == '/';
    const std::string behind = (has_path ? "" : "/") + std::string(" HTTP/1.1");
    const std::string host =
        "Host: " + target.host_text() + (target.explicit_port ? ":" + std::to_string(target.port) : "");
    HttpRequest request;
    request.lines = {
        {"GET " + address + behind, "GET " + to_utf8(without_credentials(to_utf16(address))) + behind},
        {host, host}};
    // Through a tunnel the request is the server's, who must not see the proxy's password.
    if (proxy.kind == ProxyPlan::http && !proxy.user.empty()) {
        request.lines.push_back({"Proxy-Authorization: Basic " + to_base64(proxy.user + ":" + proxy.password),
                                 "Proxy-Authorization: Basic ********"});
    }
    return request;
}

void judge(ProxyTest& test) {
    if (test.status == 407) {
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
    log_.line(Direction::note, "Parsing " + to_utf8(without_credentials(to_utf16(plan_.address))));
    const auto target = parse_target(to_utf16(plan_.address));
    const auto fail = [&](Result result) {
        done.text = result.message();
        done.result = std::move(result);
        return done;
    };
    const bool is_http = target && (target->scheme == "http" || target->scheme == "https");
    if (!is_http || plan_.address.find_first_of(" \r\n\t") != std::string::npos)
        return fail({Code::invalid_url, std::string(message_text(Message::invalid_url))});
    ConnectPlan connect;
    connect.scheme = "http";
    connect.host = target->host;
    connect.port = target->explicit_port ? target->port : standard_port;
    connect.proxy = proxy;
    connect.timeout = plan_.timeout;
    connect.may_reuse = false;
    ValidateSocket socket(services_, log_, stop_);
    HttpConversation conversation(socket, log_);
    const auto begun = services_.time.now();
    HttpHead head;
    Result result = conversation.ask(connect, make_request(plan_.address, *target, proxy), head);
    if (!result.ok()) return fail(std::move(result));
    done.elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(services_.time.now() - begun);
    done.status = head.status;
    judge(done);
    return done;
}

}  // namespace vantlow
