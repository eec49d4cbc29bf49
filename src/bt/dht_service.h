// The process's node of the distributed hash table (BEP 5), while torrents want it.
#pragma once

#include <array>
#include <atomic>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "base/mutex.h"
#include "bt/ip_filter_keeper.h"
#include "bt/metainfo.h"
#include "bt/peer_store.h"
#include "net/loop.h"
#include "platform/stop.h"
#include "runtime/tables.h"
#include "store/settings.h"
#include "transfer/connection/resolver.h"

namespace vantlow {

/// Finds the peers of torrents, over a UDP port of its own for each kind of addresses. The node runs from the
/// first begin() to the last end(), on a thread of its own; another thread looks up the nodes that the
/// setting "DHTNodes" names, as long as no node answers. Its id and the nodes that it knew are kept in the
/// data folder. Any thread may call. Only one object of a process has a node.
class DhtService {
  public:
    /// All outlive the object. `folder`: the data folder ("dhtkey.dat", "dhtnodes.dat"); empty: nothing is
    /// kept. Whom the filter (null: there is none) blocks gets and gives no datagram.
    DhtService(const BtdhtTable& library, const Settings& settings, Resolver& resolver, std::u16string folder,
               IpFilterKeeper* filter = nullptr);
    ~DhtService();
    DhtService(const DhtService&) = delete;
    DhtService& operator=(const DhtService&) = delete;

    /// Searches for the torrent's peers, and tells others that one listens at the port (0: none is told),
    /// until end() with the same store, which gets the peers. All packets are held to the way: it fails
    /// where the node serves torrents that are held to another one, and where it cannot be started.
    Result begin(const InfoHash& torrent, std::uint16_t port, PeerStore& found,
                 const NetworkWay& way = NetworkWay());
    void end(const InfoHash& torrent, PeerStore& found);
    /// Searches once more, now.
    void search_again(const InfoHash& torrent);
    /// Nodes that somebody tells of: they are asked whether they are there.
    void add_nodes(std::span<const SocketAddress> nodes) const;
    /// The node's own UDP port; 0 while none runs.
    [[nodiscard]] std::uint16_t port() const noexcept { return port_; }

  private:
    // On the threads of callers, under life_.
    Result start(const NetworkWay& way) VANTLOW_REQUIRES(life_);
    void stop() VANTLOW_REQUIRES(life_);
    Result bind_ports();
    void load_id() VANTLOW_REQUIRES(life_);
    bool load_nodes() const;

    // On the node's thread.
    void run();
    void listen();
    void read_some(net::Datagrams& datagrams);
    void work(const SocketAddress* from, std::span<const std::byte> datagram);
    int send(const SocketAddress& to, std::span<const std::byte> datagram);
    [[nodiscard]] bool is_blocked(const SocketAddress& address) const noexcept {
        return blocked_ && blocked_->blocks(address);
    }
    void found(const InfoHash& torrent, const SocketAddress& peer);
    void save_nodes() const;
    void look_now_and_then();
    void follow_way();

    // On the thread of names.
    void look_up_nodes(const StopSource& stop) const;

    const BtdhtTable& library_;
    const Settings& settings_;
    Resolver& resolver_;
    const std::u16string folder_;
    IpFilterKeeper* const filter_;

    Mutex life_;  ///< taken before mutex_
    std::unique_ptr<StopSource> stop_ VANTLOW_GUARDED_BY(life_);
    std::thread node_ VANTLOW_GUARDED_BY(life_);
    std::thread names_ VANTLOW_GUARDED_BY(life_);

    mutable Mutex mutex_;
    std::multimap<InfoHash, PeerStore*> torrents_ VANTLOW_GUARDED_BY(mutex_);

    std::atomic<std::uint16_t> port_{0};
    std::atomic<bool> has_nodes_{false};  ///< nodes answer

    // Of the node's thread while it runs, else of whoever holds life_.
    bool has_node_ = false;
    NetworkWay way_;  ///< that the node's packets are held to
    std::optional<NetworkWay::State> way_state_;
    std::array<std::uint8_t, 20> id_{};
    std::unique_ptr<net::Loop> loop_;
    std::unique_ptr<net::Datagrams> four_;
    std::unique_ptr<net::Datagrams> six_;
    std::optional<net::Timer> work_timer_;
    std::optional<net::Timer> look_timer_;
    std::optional<net::Timer> rest_timer_;  ///< behind a failure of the system
    Clock::time_point next_save_{};
    std::shared_ptr<const IpFilter> blocked_;  ///< as of the last look
    const SocketAddress* speaker_ = nullptr;   ///< who sent the datagram that is being worked on
};

/// "host:port" or "[ipv6]:port" in a list with "|" between, as the setting "DHTNodes" has it; what is none of
/// these is left out.
std::vector<std::pair<std::string, std::uint16_t>> dht_routers(std::string_view list);

}  // namespace vantlow
