// The "info" value of a magnet link, and the digests that a torrent of the second version lacks, from the
// peers of its swarm.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "bt/piece_layers.h"
#include "bt/swarm/candidates.h"
#include "bt/swarm/peer_link.h"

namespace vantlow {

/// Asks peers for the value (BEP 9), a few at once and each for the whole of it, so that a wrong one shows
/// who lied: that peer is never asked again. Who is slow, refuses or is silent makes room for others and is
/// asked again later. Then, where the torrent is of the second version, for the digests of its pieces (BEP
/// 52), a range from each peer, every one of which shows by itself whether it is right. No time-out of its
/// own: without peers it waits. Holds at most 64 MiB of parts. All on the network's thread. Ends all
/// connections when it is destroyed, which its callback may do.
class MetadataFetch final : private LinkOwner {
  public:
    static constexpr std::int64_t largest = 64 * 1024 * 1024;  ///< bytes of all parts that are held
    static constexpr std::size_t most_peers = 16;
    static constexpr std::size_t most_asked = 3;

    /// The value, which is known by the info hash, and all digests, but for those that contradict it. Called
    /// once, not from inside an operation.
    using Done = std::function<void(std::string info, PieceLayers layers)>;

    struct Options {
        std::uint16_t port = 0;  ///< that peers may connect to; 0: none
        bool exchanges = false;  ///< peers tell of other peers (BEP 11)
        std::string info{};      ///< the value, where digests alone are missing
        PieceLayers layers{};    ///< the digests that are there
        bool is_second = false;  ///< the info hash is one of the second version
    };
    /// Network and limits outlive it. `peer_id`: of this side, 20 bytes. `crypto` names the torrent.
    MetadataFetch(net::Network& network, std::string peer_id, const LinkLimits& limits,
                  const LinkCrypto& crypto, Done done, const Options& options);
    ~MetadataFetch() override { stop(); }

    void start();
    /// Leaves all peers; nothing is called any more.
    void stop() noexcept;
    void add_peers(std::span<const SocketAddress> addresses);
    /// Addresses that others name, see Candidates::add_named().
    void add_named(std::span<const SocketAddress> addresses);
    /// Takes a connection that a peer made, as far as there is room.
    void take_incoming(std::unique_ptr<net::Stream> stream);

    /// As Swarm::set_filter(), and what it has kept away.
    void set_filter(std::shared_ptr<const IpFilter> filter);
    [[nodiscard]] std::size_t blocked() const noexcept { return candidates_.blocked(); }

    [[nodiscard]] std::size_t peers() const noexcept { return links_.size(); }
    [[nodiscard]] std::size_t known() const noexcept { return candidates_.size(); }
    /// Peers that gave another value, or broke the protocol while they gave it, and are left for good.
    [[nodiscard]] std::size_t liars() const noexcept { return liars_; }

  private:
    struct Asked {
        std::unique_ptr<PeerLink> link;
        std::int64_t size = 0;  ///< of the value, as the peer says; 0: not yet
        bool is_asked = false;
        std::int64_t next = 0;  ///< the next part to ask for
        std::int64_t owed = 0;  ///< parts that were asked for and did not come
        std::map<std::int64_t, std::string> parts;
        std::int64_t held = 0;          ///< bytes of them
        std::vector<HashRange> ranges;  ///< of digests that it was asked for
        Clock::time_point began{};
        Clock::time_point came{};  ///< when the last part did
    };
    using Links = std::map<std::uint32_t, Asked>;

    bool greeted(PeerLink& link, const PeerHandshake& handshake) override;
    bool heard(PeerLink& link, const PeerMessage& message) override;
    bool may_receive() override { return true; }
    void drained(PeerLink& link) override { static_cast<void>(link); }
    void ended(PeerLink& link, const Result& why) override;

    [[nodiscard]] PeerHandshake own_handshake() const;
    Asked& add_link(const SocketAddress& address, bool is_incoming);
    bool take_handshake(Asked& asked, std::string_view payload);
    void take_exchange(PeerLink& link, std::string_view payload);
    bool take_metadata(Asked& asked, std::string_view payload);
    bool take_part(Asked& asked, std::int64_t part, std::string data);
    void refuse(PeerLink& link, std::int64_t part);
    bool complete(Asked& asked);
    void take_info(std::string info);
    void finish();
    void ask_for_hashes(Asked& asked);
    bool take_hashes(Asked& asked, const PeerMessage& message);
    void ask_some();
    void ask_on(Asked& asked);
    bool make_room(const Asked& asked);
    void connect_some();
    void call(const SocketAddress& address, CallForm form);
    void leave(std::uint32_t number, bool for_good);
    void tick();
    [[nodiscard]] bool is_slow(const Asked& asked, bool others_wait) const;

    net::Network& network_;
    const LinkCrypto crypto_;
    const std::string peer_id_;
    const LinkLimits limits_;
    const Options options_;
    Done done_;
    std::string info_;               ///< once it is there
    std::optional<LayerBook> book_;  ///< of the digests, once the value is there
    Candidates candidates_;
    std::uint32_t last_number_ = 0;
    std::size_t liars_ = 0;
    std::int64_t held_ = 0;  ///< bytes of the parts of all peers
    bool runs_ = false;
    net::Timer ticks_;
    Links links_;
    std::vector<std::unique_ptr<PeerLink>> gone_;  ///< ended, and perhaps in the middle of a call
};

}  // namespace vantlow
