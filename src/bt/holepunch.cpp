#include "bt/holepunch.h"

#include "bt/extension.h"
#include "bt/peer_store.h"
#include "bt/wire.h"

namespace vantlow {
namespace {

constexpr std::chrono::minutes span{1};

}  // namespace

std::string build_holepunch_message(std::uint8_t peer_number, const HolepunchMessage& message) {
    std::string bytes;
    put_number(bytes, static_cast<std::uint8_t>(message.kind));
    put_number(bytes, std::uint8_t{message.peer.is_ipv6()});
    bytes += address_bytes(message.peer);
    put_number(bytes, message.peer.port());
    put_number(bytes, static_cast<std::uint32_t>(message.error));
    return build_extended_message(peer_number, bytes);
}

// Some leave the error out where there is none.
std::optional<HolepunchMessage> parse_holepunch_message(std::string_view payload) {
    if (payload.size() < 2) return std::nullopt;
    const auto kind = get_number<std::uint8_t>(payload, 0);
    const auto family = get_number<std::uint8_t>(payload, 1);
    const std::size_t size = family == 1 ? 18 : 6;
    payload.remove_prefix(2);
    if (kind > 2 || family > 1 || payload.size() < size) return std::nullopt;
    HolepunchMessage message;
    message.kind = static_cast<HolepunchMessage::Kind>(kind);
    message.peer = family == 1 ? ipv6_peer(payload) : ipv4_peer(payload);
    if (payload.size() >= size + 4)
        message.error = static_cast<HolepunchMessage::Error>(get_number<std::uint32_t>(payload, size));
    return message;
}

bool HolepunchRate::take(Clock::time_point now) noexcept {
    if (now - since_ >= span) {
        since_ = now;
        count_ = 0;
    }
    return ++count_ <= most;
}

}  // namespace vantlow
