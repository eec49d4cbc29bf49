// One connection to a peer of a swarm: its bytes, and what both sides said of themselves.
#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "bt/holepunch.h"
#include "bt/mse_stage.h"
#include "bt/peer/patience.h"
#include "bt/peer/peer_wire.h"
#include "bt/peer/picker.h"
#include "bt/peer/request_window.h"
#include "bt/peer_exchange.h"
#include "net/network.h"
#include "net/paced_stage.h"

namespace vantlow {

class PeerLink;

/// The swarm, as far as a link needs it. Called on the swarm's thread, never from inside a call on the link
/// except where that says so.
class LinkOwner {
  public:
    LinkOwner() = default;
    LinkOwner(const LinkOwner&) = delete;
    LinkOwner& operator=(const LinkOwner&) = delete;
    virtual ~LinkOwner() = default;

    /// The peer's handshake came. False: it is not wanted, and the link has ended.
    virtual bool greeted(PeerLink& link, const PeerHandshake& handshake) = 0;
    /// A message; false where no peer may send it now, and the link has ended.
    virtual bool heard(PeerLink& link, const PeerMessage& message) = 0;
    /// Whether bytes may be received now; false: the owner calls PeerLink::go_on() later.
    virtual bool may_receive() = 0;
    /// There is room for more bytes to be sent.
    virtual void drained(PeerLink& link) = 0;
    /// The connection is over; the link is of no more use and may be destroyed once this has returned.
    virtual void ended(PeerLink& link, const Result& why) = 0;
};

/// The limits of speed that a link stands in; they outlive it.
struct LinkLimits {
    net::SharedTokens& down;
    net::SharedTokens& up;
    net::TokenTree::Group down_group = net::TokenTree::everything;
    net::TokenTree::Group up_group = net::TokenTree::everything;
};

/// How a peer is called: plainly, or with the encrypted handshake; its second time takes any secret.
enum class CallForm { plain, encrypted, encrypted_again };

/// The encryption of a link, as the setting "Crypto" has it: 0 and 3 both methods, 1 plain connections, 2 RC4
/// alone.
struct LinkCrypto {
    const SecurTable* library = nullptr;  ///< outlives the link; null, or without its operations: plain alone
    std::uint32_t setting = 1;
    InfoHash torrent{};

    [[nodiscard]] bool is_possible() const noexcept {
        return library != nullptr && library->DH_Create != nullptr;
    }
    [[nodiscard]] bool is_needed() const noexcept { return setting == 2; }
    /// The form in which this side calls at first.
    [[nodiscard]] CallForm first_call() const noexcept {
        return is_possible() && setting != 1 ? CallForm::encrypted : CallForm::plain;
    }
};

/// Reads handshake and messages, writes what it is given. The rest of its members are the swarm's notes about
/// the peer. Belongs to the network's thread.
class PeerLink {
  public:
    /// Bytes that wait to be sent; the owner gives blocks only while fewer wait.
    static constexpr std::size_t enough_unsent = 256 * 1024;

    /// `number` above 0. The network and the owner outlive the link.
    PeerLink(std::uint32_t number, const SocketAddress& address, bool is_incoming, net::Network& network,
             LinkOwner& owner, const LinkLimits& limits, const LinkCrypto& crypto = {});
    PeerLink(const PeerLink&) = delete;
    PeerLink& operator=(const PeerLink&) = delete;

    /// Connects to the peer and says the handshake; what is sent meanwhile comes behind it.
    /// `at_once`: by every way at the same moment.
    void call(const PeerHandshake& handshake, CallForm form, bool at_once = false);
    /// Uses this stream, which the peer has made. How it begins shows whether it is encrypted.
    void take_call(std::unique_ptr<net::Stream> stream);
    void send(const PeerMessage& message) { send(message.bytes()); }
    void send(std::string_view bytes);
    /// The message "piece"; its bytes are copied once.
    void send_block(const PieceBlock& block, std::string_view bytes);
    /// Reads on after may_receive() was false.
    void go_on();
    void close() noexcept;

    [[nodiscard]] std::uint32_t number() const noexcept { return number_; }
    [[nodiscard]] const SocketAddress& address() const noexcept { return address_; }
    /// Of this side; none unless it is connected.
    [[nodiscard]] std::optional<SocketAddress> local_address() const {
        return stream_ ? stream_->local_address() : std::nullopt;
    }
    /// Of one that has ended: how the peer, which was there but did not take the encrypted handshake, is
    /// called again at once.
    [[nodiscard]] std::optional<CallForm> next_call() const noexcept;
    /// It ends because this side wants no connection: next_call() is none, however far the handshake is.
    void do_not_call_again() noexcept { may_call_again_ = false; }
    [[nodiscard]] bool is_incoming() const noexcept { return is_incoming_; }
    /// All that passes is encrypted, not just the handshake.
    [[nodiscard]] bool is_encrypted() const noexcept {
        return mse_ && is_agreed_ &&
               mse_->streams().method() != static_cast<std::uint32_t>(CryptoMethod::plaintext);
    }
    /// It came, or was made, by uTP.
    [[nodiscard]] bool is_over_datagrams() const noexcept { return stream_ && stream_->is_over_datagrams(); }
    [[nodiscard]] std::size_t unsent() const noexcept { return out_.size() - sent_; }
    [[nodiscard]] Clock::time_point last_heard() const noexcept { return heard_; }
    [[nodiscard]] Clock::time_point last_sent() const noexcept { return said_; }

    // The swarm's notes about the peer.

    bool is_live = false;  ///< both handshakes are over
    bool speaks_fast = false;
    bool speaks_extensions = false;
    bool told_pieces = false;    ///< the peer said which pieces it has
    bool is_seed = false;        ///< counted as one in the picker
    bool wants_nothing = false;  ///< it says so (BEP 21)
    bool choked_by_us = true;
    bool chokes_us = true;
    bool is_interested = false;         ///< the peer, in us
    bool we_are_interested = false;     ///< we, in the peer
    std::uint8_t metadata_number = 0;   ///< under which the peer takes metadata messages; 0: none
    std::uint8_t exchange_number = 0;   ///< under which the peer takes the exchange of peers; 0: none
    std::uint8_t holepunch_number = 0;  ///< under which the peer takes introductions; 0: none
    std::uint16_t listens_at = 0;       ///< a port that it says others may call; 0: it says none
    std::string peer_id{};
    std::string version{};  ///< the program that it says it is (BEP 10, "v"), UTF-8; empty: unsaid
    PieceSet has{};
    std::vector<SocketAddress> named{};  ///< peers that it named last, and that take introductions
    HolepunchRate introductions{};
    Patience patience{};
    PeerExchange exchange{};
    std::deque<PieceBlock> owes{};   ///< blocks that it was asked for
    std::deque<PieceBlock> wants{};  ///< blocks that it asked for
    int reading = 0;                 ///< of what it asked for: readings that the disk is at
    RequestWindow window{};
    std::vector<std::uint32_t> allowed{};    ///< pieces that it gives even while it chokes us
    std::vector<std::uint32_t> suggested{};  ///< pieces that it would rather give
    Clock::time_point came{};
    std::int64_t received = 0;  ///< bytes of blocks
    std::int64_t given = 0;
    std::int64_t given_before = 0;  ///< at the last look
    double give_rate = 0;           ///< bytes a second
    int useless = 0;                ///< blocks that nobody wanted

  private:
    void use(std::unique_ptr<net::Stream> stream);
    void connected();
    void agree();
    [[nodiscard]] net::Stage& top() noexcept { return mse_ ? static_cast<net::Stage&>(*mse_) : *stage_; }
    void read_some();
    bool take(std::string_view bytes);
    bool begins_encrypted(std::string_view bytes);
    bool take_handshake();
    void write_some();
    void end(const Result& why);

    const std::uint32_t number_;
    const SocketAddress address_;
    const bool is_incoming_;
    net::Network& network_;
    LinkOwner& owner_;
    const LinkCrypto crypto_;
    net::TokenUser down_;
    net::TokenUser up_;
    net::Timer read_timer_;
    net::Timer write_timer_;
    std::unique_ptr<net::Stream> stream_;
    std::optional<net::PacedStage> stage_;
    std::optional<MseStage> mse_;
    bool is_connected_ = false;
    bool is_agreed_ = false;       ///< the encrypted handshake is over
    bool is_second_call_ = false;  ///< with the encrypted handshake
    bool may_call_again_ = true;
    bool has_ended_ = false;
    bool is_paused_ = false;
    bool waits_to_write_ = false;
    std::string greeting_;  ///< what came of the handshake
    bool is_greeted_ = false;
    PeerReader reader_;
    std::string out_;
    std::size_t sent_ = 0;  ///< of out_
    Clock::time_point heard_;
    Clock::time_point said_;
};

}  // namespace vantlow
