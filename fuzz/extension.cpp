// Extension messages of peers: what is built of a read one says the same.
#include "bt/extension.h"
#include "bt/holepunch.h"
#include "bt/local_discovery.h"
#include "bt/peer_exchange.h"
#include "fuzz.h"

namespace vantlow::fuzz {
namespace {

constexpr std::size_t prefix = 6;  // length, 20, number

bool fits(const std::optional<std::int64_t>& number, std::int64_t most) {
    return number.value_or(0) >= 0 && number.value_or(0) <= most;
}

}  // namespace

void run(std::string_view input) {
    if (const auto message = parse_metadata_message(input)) {
        CHECK(message->data.size() <= input.size());
        const auto again = parse_metadata_message(build_metadata_message(3, *message).substr(prefix));
        CHECK(again && again->type == message->type && again->piece == message->piece);
        if (message->type == static_cast<std::int64_t>(MetadataType::data))
            CHECK(again->data == message->data);
    }
    if (const auto message = parse_holepunch_message(input)) {
        const auto again = parse_holepunch_message(build_holepunch_message(3, *message).substr(prefix));
        CHECK(again && again->kind == message->kind && again->peer == message->peer);
        CHECK(again->error == message->error);
    }
    if (const auto call = parse_local_call(input)) CHECK(call->port != 0 && !call->torrents.empty());
    if (const auto peers = parse_exchange_message(input)) {
        CHECK(peers->added.size() <= ExchangedPeers::most_taken);
        for (const ExchangedPeer& peer : peers->added) CHECK(peer.address.size() != 0);
    }
    const auto shake = parse_extension_handshake(input);
    if (!shake || !fits(shake->metadata_size, 0xFFFFFFFF) || !fits(shake->port, 0xFFFF)) return;
    const auto again = parse_extension_handshake(
        build_extension_handshake(static_cast<std::uint32_t>(shake->metadata_size.value_or(0)),
                                  static_cast<std::uint16_t>(shake->port.value_or(0)), shake->version)
            .substr(prefix));
    CHECK(again && again->version == shake->version);
    CHECK(again->metadata_size.value_or(0) == shake->metadata_size.value_or(0));
    CHECK(again->port.value_or(0) == shake->port.value_or(0));
}

}  // namespace vantlow::fuzz
