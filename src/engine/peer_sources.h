// Who finds peers for a torrent, beside its trackers.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "base/log.h"
#include "bt/dht_service.h"
#include "bt/local_discovery.h"
#include "store/settings.h"

namespace vantlow {

/// The searches of one torrent, as the settings want them: in the distributed hash table and in this network.
/// Never to be begun for a private torrent (BEP 27). Belongs to the torrent's thread.
class PeerSources {
  public:
    /// All outlive the object. Without a table (null) nothing is found in it.
    PeerSources(DhtService* table, const Settings& settings, LogSink& log)
        : table_(table), settings_(settings), log_(log) {}
    ~PeerSources() { end(); }
    PeerSources(const PeerSources&) = delete;
    PeerSources& operator=(const PeerSources&) = delete;

    /// Begins what the settings allow, unless it runs already. `port`: that peers may call; 0: none. The
    /// network is held to the way already.
    void begin(net::Network& network, const NetworkWay& way, const InfoHash& torrent, std::uint16_t port,
               std::span<const SocketAddress> nodes);
    /// Ends all of it, and forgets what was found.
    void end();
    /// To be called about once a second; `is_alone`: the torrent has no peer that is connected.
    void look(bool is_alone);
    /// The peers that were found since the last call, or since find_again().
    std::vector<SocketAddress> fresh();
    void find_again() noexcept { told_ = 0; }
    /// Calls in this network anew where it did before: the interface went and came back.
    void call_near_again(net::Network& network, std::uint16_t port);

    /// Of the hash table's node; 0: this torrent does not use it.
    [[nodiscard]] std::uint16_t table_port() const noexcept {
        return uses_table_ ? table_->port() : std::uint16_t{0};
    }
    /// A node that a peer named.
    void add_node(const SocketAddress& node) const;
    [[nodiscard]] std::size_t from_table() const noexcept { return in_table_; }
    [[nodiscard]] std::size_t from_near() const noexcept { return near_; }

  private:
    void begin_table(const NetworkWay& way, std::uint16_t port, std::span<const SocketAddress> nodes);
    void begin_near(net::Network& network, std::uint16_t port);

    DhtService* const table_;
    const Settings& settings_;
    LogSink& log_;
    InfoHash torrent_{};
    bool has_begun_ = false;
    bool uses_table_ = false;
    std::optional<PeerStore> found_;
    std::optional<LocalDiscovery> discovery_;
    std::size_t told_ = 0;  ///< of found_
    std::size_t in_table_ = 0;
    std::size_t near_ = 0;
    Clock::time_point next_search_{};
    Clock::duration pause_{};
};

}  // namespace vantlow
