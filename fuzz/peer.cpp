// The messages of a peer: handshake, messages, its extension handshake.
#include "bt/peer_messages.h"
#include "fuzz.h"

void vantlow::fuzz::run(std::string_view input) {
    InfoHash torrent{};
    torrent.fill(std::byte{'t'});
    PeerListener peer(torrent);
    Result result;
    const std::string_view all = input;
    while (result.ok() && peer.wanted() != 0 && peer.wanted() <= input.size()) {
        const std::string_view part = input.substr(0, peer.wanted());
        input.remove_prefix(part.size());
        result = peer.take(part);
        CHECK(peer.wanted() <= 1024 * 1024);
        CHECK(result.ok() || peer.wanted() == 0);
    }
    const PeerWords& words = peer.words();
    CHECK(words.messages.size() <= 100);
    CHECK(words.ok ? words.peer_id.size() == 20 && words.reserved.size() == 16 : words.messages.empty());
    if (words.extension) CHECK(words.messages.back() == "extended" && peer.wanted() == 0);
    const std::string own = build_peer_handshake(torrent, std::string(20, 'p'));
    const bool alike = all.size() >= own.size() && all.substr(0, 20) == own.substr(0, 20) &&
                       all.substr(28, 20) == own.substr(28, 20);
    CHECK(words.ok == alike);
}
