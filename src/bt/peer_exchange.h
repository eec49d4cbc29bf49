// The exchange of peers between peers (BEP 11).
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/clock.h"
#include "platform/socket.h"

namespace vantlow {

/// A peer as others are told of it.
struct ExchangedPeer {
    static constexpr std::uint8_t seed = 0x02;       ///< it has everything
    static constexpr std::uint8_t datagrams = 0x04;  ///< it speaks uTP
    static constexpr std::uint8_t punches = 0x08;    ///< it takes introductions (BEP 55)
    static constexpr std::uint8_t reachable = 0x10;  ///< it was called, not only heard

    SocketAddress address;
    std::uint8_t flags = 0;
};

/// The contents of one message.
struct ExchangedPeers {
    static constexpr std::size_t most_sent = 50;    ///< of either list
    static constexpr std::size_t most_taken = 100;  ///< that are read of a message

    std::vector<ExchangedPeer> added;
    std::vector<SocketAddress> dropped;
};

/// Builds the whole message to a peer that takes the exchange under `peer_number`.
std::string build_exchange_message(std::uint8_t peer_number, const ExchangedPeers& peers);

/// Reads the payload behind the two bytes 20 and own_exchange_number: the peers that were added, each host
/// once. None when it is no dictionary. What `dropped` says is of no use and left out.
std::optional<ExchangedPeers> parse_exchange_message(std::string_view payload);

/// The record of one peer: those that it was told of, and how often it speaks. The times never go back.
class PeerExchange {
  public:
    /// Whether another message may be sent to it now: one a minute.
    [[nodiscard]] bool is_due(Clock::time_point now) const noexcept;
    /// The message about the others there are; none where it knows all of them.
    std::optional<ExchangedPeers> news(std::span<const ExchangedPeer> current, Clock::time_point now);
    /// Whether its message is taken: one a minute is.
    bool may_take(Clock::time_point now) noexcept;

  private:
    std::map<std::string, SocketAddress> told_;
    std::optional<Clock::time_point> sent_;
    std::optional<Clock::time_point> taken_;
};

}  // namespace vantlow
