// Introductions: a peer that two others know brings them together through their routers (BEP 55).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "base/clock.h"
#include "platform/socket.h"

namespace vantlow {

struct HolepunchMessage {
    enum class Kind : std::uint8_t {
        rendezvous = 0,  ///< introduce me to that peer
        connect = 1,     ///< call that peer now: it calls you, too
        error = 2,       ///< about that peer
    };
    enum class Error : std::uint32_t {
        none = 0,
        no_such_peer = 1,
        not_connected = 2,
        no_support = 3,
        no_self = 4
    };

    Kind kind = Kind::rendezvous;
    SocketAddress peer;
    Error error = Error::none;
};

/// Builds the whole message to a peer that takes introductions under `peer_number`.
std::string build_holepunch_message(std::uint8_t peer_number, const HolepunchMessage& message);

/// Reads the payload behind the two bytes 20 and own_holepunch_number. None when it is no such message.
std::optional<HolepunchMessage> parse_holepunch_message(std::string_view payload);

/// The introductions that one peer takes part in: some in each minute. The times never go back.
class HolepunchRate {
  public:
    static constexpr int most = 20;

    /// Whether one more is taken; it counts then.
    bool take(Clock::time_point now) noexcept;

  private:
    Clock::time_point since_{};
    int count_ = 0;
};

}  // namespace vantlow
