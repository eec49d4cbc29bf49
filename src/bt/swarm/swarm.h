// The swarm of one torrent: its peers, and what passes between them and the disk.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "bt/peer/choker.h"
#include "bt/piece_layers.h"
#include "bt/swarm/blame_book.h"
#include "bt/swarm/candidates.h"
#include "bt/swarm/peer_link.h"
#include "bt/swarm/swarm_disk.h"

namespace vantlow {

/// The facts of a torrent that its swarm needs.
struct SwarmTorrent {
    InfoHash info_hash{};
    std::string peer_id;             ///< of this side, 20 bytes
    std::int64_t total = 0;          ///< bytes, above 0
    std::uint32_t piece_length = 0;  ///< bytes, above 0
    std::string info;                ///< the document's "info" value, for peers that lack it; may be empty
    std::vector<ShorterPiece> shorter{};  ///< pieces, ascending
    /// Digests for peers that lack them; outlives the swarm; null: a torrent of the first version.
    HashAnswers* hashes = nullptr;
};

struct SwarmOptions {
    std::size_t most_peers = 100;
    std::size_t most_of_all = 500;            ///< connections of all swarms that share the count
    std::atomic<std::size_t>* all = nullptr;  ///< that count; outlives the swarm; null: it is alone
    std::size_t most_half_open = 16;
    std::size_t upload_slots = 4;
    std::uint16_t port = 0;  ///< that peers may connect to; 0: none
    std::u16string version = u"Vantlow";
    std::uint32_t seed = 1;  ///< decides about chance
    const SecurTable* library =
        nullptr;                  ///< for encryption; outlives the swarm; null: plain connections alone
    std::uint32_t crypto = 1;     ///< the setting "Crypto", see LinkCrypto
    std::uint16_t node_port = 0;  ///< of this side's node of the distributed hash table; 0: none
    bool punches = false;         ///< peers introduce each other (BEP 55); only where there is uTP
    bool exchanges = false;  ///< peers tell each other of peers (BEP 11); never of a private torrent (BEP 27)
};

/// A peer of a swarm at this moment, to be shown.
struct SwarmPeer {
    SocketAddress address;
    bool is_live = false;  ///< both handshakes are over
    bool gives = false;    ///< it owes blocks that it was asked for, and does not choke us
    double received = 0;   ///< bytes a second
    double given = 0;      ///< bytes a second
};

/// The news of a swarm. Called on its thread, never from inside an operation of it.
class SwarmListener {
  public:
    SwarmListener() = default;
    SwarmListener(const SwarmListener&) = delete;
    SwarmListener& operator=(const SwarmListener&) = delete;
    virtual ~SwarmListener() = default;

    /// The piece is on the disk, and right.
    virtual void piece_came(std::uint32_t piece) { static_cast<void>(piece); }
    /// Every wanted piece is there.
    virtual void completed() {}
    /// A peer gave wrong blocks, and is left for good.
    virtual void banned(const SocketAddress& peer) { static_cast<void>(peer); }
    /// A peer has a node of the distributed hash table there.
    virtual void met_node(const SocketAddress& node) { static_cast<void>(node); }
    /// The disk failed. The swarm has stopped.
    virtual void failed(const Result& why) { static_cast<void>(why); }
};

/// Fetches what is missing from its peers and gives them what is there (BEP 3, BEP 6, BEP 9, BEP 10). All on
/// the network's thread. Ends all connections when it is destroyed.
class Swarm final : private LinkOwner {
  public:
    /// All outlive the swarm.
    Swarm(net::Network& network, SwarmDisk& disk, SwarmListener& listener, SwarmTorrent torrent,
          const LinkLimits& limits, SwarmOptions options = {});
    ~Swarm() override;

    /// Pieces that are on the disk already, and right: before start().
    void add_have(std::uint32_t piece) { picker_.add_have(piece); }
    void start();
    /// Leaves all peers; nothing is called any more.
    void stop() noexcept;
    /// Addresses from a tracker or a magnet link.
    void add_peers(std::span<const SocketAddress> addresses);
    /// Addresses that others name, see Candidates::add_named(). Returns how many were new.
    std::size_t add_named(std::span<const SocketAddress> addresses);
    /// From now on there is no connection with whom the filter blocks; null: it blocks nobody.
    void set_filter(std::shared_ptr<const IpFilter> filter);
    /// Takes a connection that a peer made.
    void take_incoming(std::unique_ptr<net::Stream> stream);
    /// This machine has another way out: its connections are over, and everybody is called anew.
    void begin_anew();
    /// Takes a connection that somebody within the program made: it is neither encrypted nor counted.
    void take_inner(std::unique_ptr<net::Stream> stream);
    /// Sets how much each piece is wanted, and whether they come in their order. Requests for those that are
    /// wanted no more are taken back; the blocks of such a piece that are there stay.
    void choose(std::span<const PiecePriority> wanted, bool sequential = false);

    [[nodiscard]] const Picker& picker() const noexcept { return picker_; }
    [[nodiscard]] std::size_t peers() const noexcept { return links_.size(); }
    [[nodiscard]] std::vector<SwarmPeer> look() const;
    /// Shows every connection with all that is noted about its peer.
    void visit(const std::function<void(const PeerLink&)>& see) const;
    [[nodiscard]] std::size_t known() const noexcept { return candidates_.size(); }
    [[nodiscard]] std::int64_t downloaded() const noexcept { return downloaded_; }  ///< bytes of blocks
    [[nodiscard]] std::int64_t uploaded() const noexcept { return uploaded_; }
    /// Addresses that came by the exchange of peers, and peers that called.
    [[nodiscard]] std::size_t exchanged() const noexcept { return exchanged_; }
    [[nodiscard]] std::size_t callers() const noexcept { return callers_; }
    /// Addresses and callers that the filter has kept away.
    [[nodiscard]] std::size_t blocked() const noexcept { return candidates_.blocked() + turned_away_; }
    /// Bytes of blocks that came and were not needed.
    [[nodiscard]] std::int64_t wasted() const noexcept { return wasted_; }

  private:
    using Links = std::map<std::uint32_t, std::unique_ptr<PeerLink>>;

    // swarm.cpp: connections
    bool greeted(PeerLink& link, const PeerHandshake& handshake) override;
    bool may_receive() override;
    void ended(PeerLink& link, const Result& why) override;
    PeerLink& add_link(const SocketAddress& address, bool is_incoming, const LinkCrypto& crypto);
    void call(const SocketAddress& address, CallForm form, bool at_once = false);
    void connect_some();
    [[nodiscard]] bool has_room() const noexcept;
    void count_links() noexcept;
    [[nodiscard]] PeerHandshake own_handshake() const;
    void greet_by_extension(PeerLink& link) const;
    void tell_wishes();
    bool is_kept(const PeerLink& link, const std::string& peer_id);
    void drop(PeerLink& link, bool for_good);
    void drop_outside(const std::function<bool(const PeerLink&)>& is_meant);
    void forget(PeerLink& link);
    void tick();
    void look_after(PeerLink& link, Clock::time_point now);
    void choke_and_unchoke();
    void room_again();

    // swarm_messages.cpp: what peers say and get
    bool heard(PeerLink& link, const PeerMessage& message) override;
    bool understand(PeerLink& link, const PeerMessage& message);
    void take_hint(PeerLink& link, const PeerMessage& message);
    void drained(PeerLink& link) override;
    bool take_pieces(PeerLink& link, const PeerMessage& message);
    bool take_have(PeerLink& link, std::uint32_t piece);
    bool take_request(PeerLink& link, const PeerMessage& message);
    bool take_block(PeerLink& link, const PeerMessage& message);
    bool take_extended(PeerLink& link, const PeerMessage& message);
    bool give_metadata(PeerLink& link, std::int64_t part);
    bool take_hash_request(PeerLink& link, const HashRange& range);
    void take_cancel(PeerLink& link, const PieceBlock& block);
    bool take_reject(PeerLink& link, const PieceBlock& block);
    void take_choke(PeerLink& link);
    void refuse(PeerLink& link, const PieceBlock& block);
    void cancel(PeerLink& link, const PieceBlock& block);
    void take_back_unwanted(PeerLink& link);
    void fill(PeerLink& link);
    void give(PeerLink& link);
    void gave(std::uint32_t number, const std::vector<PieceBlock>& blocks, const Outcome<std::string>& bytes);
    void update_interest(PeerLink& link);
    void check(std::uint32_t piece);
    void checked(std::uint32_t piece, const SwarmDisk::Check& check);
    void not_kept(std::uint32_t piece, const Result& why);
    void blame(Picker::Peer peer);
    void fail(const Result& why);
    [[nodiscard]] bool is_block(const PeerMessage& message) const noexcept;

    // swarm_exchange.cpp: peers tell each other of peers and nodes
    void exchange_some(Clock::time_point now);
    void take_node_port(const PeerLink& link, std::uint16_t port);
    void take_exchange(PeerLink& link, std::string_view payload);
    [[nodiscard]] static std::optional<ExchangedPeer> named(const PeerLink& link);
    [[nodiscard]] bool is_worth(const PeerLink& by, const ExchangedPeer& peer) const;

    // swarm_holepunch.cpp: they introduce each other
    bool take_holepunch(PeerLink& link, std::string_view payload);
    void ask_for_introduction(const SocketAddress& to);
    void introduce(PeerLink& link, const SocketAddress& to);
    void follow_introduction(const PeerLink& link, const SocketAddress& to);
    void call_introduced();
    [[nodiscard]] static std::optional<SocketAddress> reached_at(const PeerLink& link);

    net::Network& network_;
    SwarmDisk& disk_;
    SwarmListener& listener_;
    const SwarmTorrent torrent_;
    const LinkLimits limits_;
    const SwarmOptions options_;
    const LinkCrypto crypto_;
    Picker picker_;
    Choker choker_;
    BlameBook blames_;
    Candidates candidates_;
    std::map<std::uint32_t, SocketAddress> givers_;  ///< where the peers of wrong pieces were
    bool runs_ = false;
    bool was_done_ = false;       ///< at the last tick
    bool wants_nothing_ = false;  ///< and tells so
    bool awaits_room_ = false;
    std::uint32_t last_number_ = 0;
    std::size_t counted_ = 0;  ///< of links_, in the count of all
    std::int64_t downloaded_ = 0;
    std::int64_t uploaded_ = 0;
    std::int64_t wasted_ = 0;
    std::size_t exchanged_ = 0;
    std::size_t callers_ = 0;
    std::size_t turned_away_ = 0;            ///< callers whom the filter blocks
    std::vector<SocketAddress> introduced_;  ///< that are to be called at once
    net::Timer ticks_;
    net::Timer introductions_;
    Links links_;
    std::vector<std::unique_ptr<PeerLink>> gone_;  ///< ended, and perhaps in the middle of a call
};

}  // namespace vantlow
