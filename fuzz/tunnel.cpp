// The answers of SOCKS and CONNECT proxies.
#include <algorithm>

#include "transfer/connection/tunnel.h"
#include "transfer/connection/tunnel_handshake.h"
#include "wire.h"

namespace vantlow::fuzz {
namespace {

// A proxy that says these bytes whatever it is told, and closes.
class ScriptedProxy : public ProxyWire {
  public:
    explicit ScriptedProxy(std::string_view answers) : answers_(answers) {}
    Result send(std::span<const std::byte> bytes) override {
        CHECK(!bytes.empty() && bytes.size() < 65536);
        return {};
    }
    Result receive(std::span<std::byte> into, Clock::time_point /*until*/) override {
        CHECK(!into.empty());
        if (answers_.size() < into.size()) return Code::transient;
        std::ranges::copy(bytes_of(answers_.substr(0, into.size())), into.begin());
        answers_.remove_prefix(into.size());
        return {};
    }
    [[nodiscard]] Clock::time_point time_out() const override { return from_now(std::chrono::seconds(1)); }
    [[nodiscard]] std::string_view rest() const noexcept { return answers_; }

  private:
    std::string_view answers_;
};

// The same for those who cannot wait: it comes out the same, and as much is heard of it.
void run_in_steps(std::string_view answers, const ProxyPlan& proxy, const TunnelTarget& target,
                  const Result& expected, std::string_view rest) {
    using State = TunnelHandshake::State;
    TunnelHandshake handshake(proxy, target, std::chrono::seconds(1));
    handshake.begin();
    State state = handshake.step();
    for (; state == State::needs_bytes; state = handshake.step()) {
        const std::size_t wanted = handshake.wanted();
        CHECK(wanted > 0 && handshake.unsent().size() < 65536);
        if (answers.size() < wanted)
            handshake.hear_end();
        else
            handshake.hear(answers.substr(0, wanted));
        answers.remove_prefix(std::min(wanted, answers.size()));
    }
    CHECK((state == State::open) == expected.ok());
    CHECK(handshake.result().code == expected.code);
    CHECK(!expected.ok() || answers == rest);
}

}  // namespace

void run(std::string_view input) {
    const std::uint8_t kind = take_byte(input);
    ProxyPlan proxy{.host = "proxy", .port = 1080};
    if ((kind & 4U) != 0) {
        proxy.user = "user";
        proxy.password = "secret";
    }
    TunnelTarget target{.host = "host.example", .port = 80};
    if ((kind & 8U) != 0) target.ipv4 = {192, 0, 2, 1};
    if ((kind & 16U) != 0) target.ipv6[15] = 1;
    SilentLog log;
    ScriptedProxy wire(input);
    std::uint16_t port = 0;
    bool again = false;
    const Result result = kind % 3 == 0   ? open_socks4(wire, log, proxy, target, port)
                          : kind % 3 == 1 ? open_socks5(wire, log, proxy, target, port)
                                          : open_connect(wire, log, proxy, target, nullptr, again);
    CHECK(!again);
    CHECK(result.ok() || result.code == Code::transient || result.code == Code::tunnel_refused ||
          result.code == Code::proxy_refused);
    proxy.kind = kind % 3 == 0   ? ProxyPlan::socks4
                 : kind % 3 == 1 ? ProxyPlan::socks5
                                 : ProxyPlan::http_tunnel;
    if (input.size() < 4096) run_in_steps(input, proxy, target, result, wire.rest());
}

}  // namespace vantlow::fuzz
