// A network behind a proxy: streams of a loop through tunnels, and nothing else.
#pragma once

#include <functional>
#include <vector>

#include "net/network.h"
#include "transfer/connection/tunnel.h"

namespace vantlow {

/// Makes every connection through one proxy (SOCKS4, SOCKS5, HTTP CONNECT). It has no listeners, no datagrams
/// and no groups, so that nobody who was given this network can go around the proxy. A target that the proxy
/// cannot reach fails as any connection does. Addresses alone are named to the proxy, and none is looked up.
class TunnelNetwork final : public net::Network {
  public:
    /// The proxy itself fails: it cannot be reached, or refuses the login. From the network's thread, as
    /// often as it happens.
    using Trouble = std::function<void(const Result&)>;

    /// `below` outlives the object. `at`: the proxy's addresses, at least one, tried in their order.
    /// `time_out`: of each of the proxy's answers.
    TunnelNetwork(net::Network& below, ProxyPlan proxy, std::vector<SocketAddress> at,
                  std::chrono::milliseconds time_out, Trouble trouble);

    [[nodiscard]] Clock::time_point now() const override { return way_.below.now(); }
    net::TimerQueue& timers() override { return way_.below.timers(); }
    /// The local address of these streams is never known.
    std::unique_ptr<net::Stream> connect(const SocketAddress& to, Connected done) override;
    Outcome<std::unique_ptr<net::Listener>> listen(const SocketAddress& at, int backlog) override;
    Outcome<std::unique_ptr<net::Datagrams>> bind(const SocketAddress& at) override;
    bool post(net::Callback work) override { return way_.below.post(std::move(work)); }

    /// The way to the proxy, for the streams.
    struct Way {
        net::Network& below;
        const ProxyPlan proxy;
        const std::vector<SocketAddress> at;
        const std::chrono::milliseconds time_out;
        const Trouble trouble;
    };

  private:
    const Way way_;
};

}  // namespace vantlow
