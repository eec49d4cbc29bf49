// The network in which a torrent's peers are: TCP and uTP.
#pragma once

#include "bt/utp_port.h"

namespace vantlow {

/// Connects by TCP and, where that does not work within half a second, by uTP as well; whichever is there
/// first becomes the stream. All else is that of the network below.
class PeerNetwork final : public net::Network {
  public:
    /// Both outlive the object.
    PeerNetwork(net::Network& below, UtpPort& datagrams) : way_{below, datagrams} {}

    [[nodiscard]] Clock::time_point now() const override { return way_.below.now(); }
    net::TimerQueue& timers() override { return way_.below.timers(); }
    std::unique_ptr<net::Stream> connect(const SocketAddress& to, Connected done) override;
    std::unique_ptr<net::Stream> connect_at_once(const SocketAddress& to, Connected done) override;
    Outcome<std::unique_ptr<net::Listener>> listen(const SocketAddress& at, int backlog) override {
        return way_.below.listen(at, backlog);
    }
    Outcome<std::unique_ptr<net::Datagrams>> bind(const SocketAddress& at) override {
        return way_.below.bind(at);
    }
    Outcome<std::unique_ptr<net::Datagrams>> join(const SocketAddress& group) override {
        return way_.below.join(group);
    }
    bool post(net::Callback work) override { return way_.below.post(std::move(work)); }

    /// Both ways, for the streams.
    struct Way {
        net::Network& below;
        UtpPort& datagrams;
    };

  private:
    const Way way_;
};

}  // namespace vantlow
