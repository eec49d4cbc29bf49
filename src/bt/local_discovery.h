// Peers of a torrent in the same network (BEP 14).
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "bt/metainfo.h"
#include "net/network.h"

namespace vantlow {

/// One call for peers.
struct LocalCall {
    std::uint16_t port = 0;  ///< that the caller listens at
    std::string cookie;      ///< by which a program knows its own calls; may be empty
    std::vector<InfoHash> torrents;
};

/// The datagram that calls for the peers of one torrent.
std::string build_local_call(std::string_view group, const LocalCall& call);
/// None for what is no call, has no port or no torrent, and for more than 1,400 bytes.
std::optional<LocalCall> parse_local_call(std::string_view datagram);

/// Calls for the torrent's peers in this machine's network, at once and every five minutes, and hears who
/// calls for them. Somebody new is answered by a call that comes sooner, a minute after the last one at
/// least. Belongs to the network's thread.
class LocalDiscovery {
  public:
    /// A peer; its address is one of this network, or pretends to be. True: it was not known before. Not from
    /// inside an operation.
    using Found = std::function<bool(const SocketAddress&)>;

    /// The network outlives it. `port`: that peers may call, above 0.
    LocalDiscovery(net::Network& network, const InfoHash& torrent, std::uint16_t port, Found found);

    /// False where the network has no groups: nothing is heard then.
    bool start();

  private:
    /// How many calls are looked at each second: others are dropped unread.
    static constexpr int most_calls = 50;

    struct Group {
        SocketAddress address;
        std::string text;  ///< as the call names it
        std::unique_ptr<net::Datagrams> datagrams;
    };
    void call();
    void call_at(Clock::time_point moment);
    void read_some(Group& group);
    void take(std::string_view datagram, SocketAddress from);

    net::Network& network_;
    const InfoHash torrent_;
    const std::uint16_t port_;
    const std::string cookie_;
    const Found found_;
    std::vector<Group> groups_;  ///< those that could be joined
    Clock::time_point called_{};
    Clock::time_point next_call_{};
    net::Timer calls_;
    net::Timer rest_;
};

}  // namespace vantlow
