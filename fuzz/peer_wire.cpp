// The messages of a peer in parts of any size: what is read is the same, bounded, and written back alike.
#include "bt/peer/peer_wire.h"
#include "fuzz.h"

void vantlow::fuzz::run(std::string_view input) {
    if (input.empty()) return;
    const std::size_t step = 1 + static_cast<unsigned char>(input.front());
    input.remove_prefix(1);
    PeerReader whole;
    PeerReader parts;
    whole.feed(input);
    PeerMessage expected;
    PeerMessage got;
    for (;;) {
        const auto read = parts.next(got);
        if (read == PeerReader::Read::more && !input.empty()) {
            const std::string_view some = input.substr(0, step);
            input.remove_prefix(some.size());
            parts.feed(some);
            continue;
        }
        CHECK(whole.next(expected) == read);
        if (read != PeerReader::Read::message) break;
        CHECK(got.kind == expected.kind && got.data == expected.data);
        if (got.kind == PeerMessage::Kind::unknown) continue;
        const std::string bytes = got.bytes();
        PeerReader back;
        back.feed(bytes);
        CHECK(back.next(expected) == PeerReader::Read::message && expected.bytes() == bytes);
    }
    CHECK(parts.held() <= PeerReader::longest_message + 4);
}
