// The ways between a torrent and its peers.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "bt/ip_filter_keeper.h"
#include "bt/peer_network.h"
#include "bt/port_mapper.h"
#include "bt/torrent_settings.h"
#include "engine/session.h"
#include "net/loop.h"
#include "transfer/connection/tunnel_network.h"

namespace vantlow {

/// The port at which peers call a torrent, by TCP and uTP, and what a router does with it, or the proxy that
/// all of its traffic goes through, and the addresses that are no peers. Belongs to the torrent's thread.
class TorrentReach {
  public:
    using Caller = std::function<void(std::unique_ptr<net::Stream>)>;

    /// All outlive the object.
    TorrentReach(const TransferServices& services, const TorrentServices& shared, const StopSource& stop,
                 LogSink& log)
        : services_(services), shared_(shared), stop_(stop), log_(log) {}

    /// The interface that all packets are held to, as the settings had it when the torrent began.
    [[nodiscard]] const NetworkWay& way() const noexcept { return way_; }
    /// Before open(): waits until there is such a way, which the log tells once; `tell` hears why it waits.
    /// Fails at a stop only.
    Result wait_for_way(const std::function<void(const std::string& why)>& tell);
    /// Looks whether the way is still there. True where it is another one than at the last call: the ports
    /// were bound anew.
    bool follow_way();
    /// Why nothing can leave now; empty: something can.
    [[nodiscard]] const std::string& way_trouble() const noexcept { return way_trouble_; }
    /// Before open(): the proxy that holds for the torrent, which may be none. A failure where it is of no
    /// use.
    Result take_proxy(ProxyPlan proxy);
    /// Listens for peers on a port of both kinds of addresses, or finds the proxy, which may take until there
    /// is a network. Without a port the torrent is fetched from those that can be called. The loop outlives
    /// the object, or close() comes first. Fails at a stop only.
    Result open(net::Loop& loop, Caller on_caller);
    /// Nobody can call any more.
    void close_port();
    void close();

    /// The network in which the peers are.
    [[nodiscard]] net::Network& network() noexcept;
    /// Peers are called by uTP, too.
    [[nodiscard]] bool has_datagrams() const noexcept { return both_.has_value(); }
    [[nodiscard]] bool is_behind_proxy() const noexcept { return proxy_.is_used(); }
    [[nodiscard]] const ProxyPlan& proxy() const noexcept { return proxy_; }
    /// The port that peers may call; 0: none.
    [[nodiscard]] std::uint16_t port() const noexcept { return port_; }
    /// The port that trackers are told.
    [[nodiscard]] std::uint16_t told_port() const noexcept;

    /// Lets the router pass on the UDP port of the hash table's node, too; 0: no longer.
    void hold_node_port(std::uint16_t port) { hold(node_port_held_, PortMapper::Transport::udp, port); }
    [[nodiscard]] PortMapper::State router_state() const { return port_held_.four.state(); }
    /// The same of calls over IPv6, which its firewall lets in.
    [[nodiscard]] PortMapper::State firewall_state() const { return port_held_.six.state(); }
    /// Writes down what the router does with the ports, each time that it is another thing.
    void log_router();

    /// Looks whether the lists of addresses are others than at the last call, and says what became of them.
    bool has_new_filter();
    /// The addresses that are no peers, as of the last look; null: all may be.
    [[nodiscard]] const std::shared_ptr<const IpFilter>& filter() const noexcept { return filter_; }

  private:
    /// A port for which the router lets calls in by both kinds of addresses, and what the log knows of it.
    struct OpenPort {
        HeldPort four;
        HeldPort six;
        std::string said_of_four;
        std::string said_of_six;
    };
    bool look_at_way();
    void listen();
    void open_datagrams();
    void accept(net::Listener& listener);
    Result find_proxy();
    void hold(OpenPort& held, PortMapper::Transport transport, std::uint16_t port);

    const TransferServices& services_;
    const TorrentServices& shared_;
    const StopSource& stop_;
    LogSink& log_;
    const NetworkWay way_{torrent_way(services_.settings)};
    std::optional<NetworkWay::State> way_state_;
    std::string way_trouble_;
    ProxyPlan proxy_;
    net::Loop* loop_ = nullptr;  ///< while it is open
    Caller on_caller_;
    std::optional<TunnelNetwork> tunnels_;  ///< the way to all peers, where there is a proxy
    std::vector<std::unique_ptr<net::Listener>> listeners_;
    std::optional<UtpPort> datagrams_;
    std::optional<PeerNetwork> both_;  ///< the way to all peers, where there is uTP
    std::uint16_t port_ = 0;
    OpenPort port_held_;
    OpenPort datagram_port_held_;
    OpenPort node_port_held_;
    std::shared_ptr<const IpFilter> filter_;
    // As the log knows it.
    std::string proxy_said_;
};

}  // namespace vantlow
