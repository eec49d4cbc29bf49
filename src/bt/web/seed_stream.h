// The wire of a peer that has every piece and speaks within the program.
#pragma once

#include <functional>
#include <string>

#include "bt/peer/peer_wire.h"
#include "bt/peer/picker.h"
#include "net/network.h"

namespace vantlow {

/// The far end of a connection that a peer with everything has made: it says so, unchokes, and gives the
/// blocks that its owner hands over. Belongs to the network's thread, as any stream.
class SeedStream final : public net::Stream {
  public:
    /// Hears what the swarm does at its end. Called from inside its writes, and from its close.
    class Owner {
      public:
        Owner() = default;
        Owner(const Owner&) = delete;
        Owner& operator=(const Owner&) = delete;
        virtual ~Owner() = default;

        /// It asks for a block of the torrent, or of none: nothing was looked at.
        virtual void wanted(const PieceBlock& block) = 0;
        /// It does not want it any more. True: the block will not be given.
        virtual bool cancelled(const PieceBlock& block) = 0;
        /// It tells of a piece that it has, or, with its bitfield, of all those.
        virtual void has(std::uint32_t piece) = 0;
        virtual void has_these(std::string_view bitfield) = 0;
        /// It has ended the connection; the stream is not touched any more.
        virtual void left() = 0;
    };

    /// `network` and `owner` outlive the stream. `shown` is what peer_address() says.
    SeedStream(net::Network& network, Owner& owner, const SocketAddress& shown, const InfoHash& torrent,
               const std::string& peer_id);
    ~SeedStream() override { close(); }

    /// Sends a block that was asked for.
    void give(const PieceBlock& block, std::string_view bytes);
    /// Says that this piece would come quickly now (BEP 6).
    void suggest(std::uint32_t piece) { say({.kind = PeerMessage::Kind::suggest, .piece = piece}); }
    /// Ends the connection behind what was sent.
    void leave();

    net::Step read(std::span<std::byte> into, Clock::time_point now) override;
    net::Step write(std::span<const std::byte> from, Clock::time_point now) override;
    void when_readable(net::Callback call) override;
    void when_writable(net::Callback call) override;
    Result shut_down_sending() override { return {}; }
    void close() noexcept override;
    void reset() noexcept override { close(); }
    [[nodiscard]] std::optional<SocketAddress> local_address() const override { return shown_; }
    [[nodiscard]] std::optional<SocketAddress> peer_address() const override { return shown_; }

  private:
    void say(const PeerMessage& message);
    void hear(const PeerMessage& message);
    void wake();

    net::Network& network_;
    Owner* owner_;  ///< null once the connection has ended
    const SocketAddress shown_;
    std::size_t greeting_ = PeerHandshake::size;  ///< bytes of the swarm's handshake that are still to come
    PeerReader reader_;
    std::string out_;
    std::size_t sent_ = 0;
    bool has_left_ = false;
    net::Callback readable_;
    net::Timer read_timer_;
    net::Timer write_timer_;
};

}  // namespace vantlow
