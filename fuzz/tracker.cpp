// The answers of trackers, over HTTP and over UDP.
#include "bt/announce.h"
#include "bt/bencode.h"
#include "bt/tracker_answer.h"
#include "fuzz.h"

void vantlow::fuzz::run(std::string_view input) {
    normalise_tracker(input);
    without_keys(input);
    for (const bool ipv6 : {false, true}) {
        const auto datagram = read_udp_announce(input, 0x01020304, ipv6);
        if (datagram.ok()) CHECK(datagram->peers().size() <= input.size() / 6 && datagram->interval >= 0);
        CHECK(!read_udp_scrape(input, 0x01020304).ok() || input.size() >= 20);
        CBEncode parser;
        if (!parser.load_memory(input)) return;
        const auto document = parser.parse_document();
        if (!document) continue;
        if (const auto counts = read_scrape_answer(*document, {}))
            CHECK(counts->seeders >= 0 && counts->leechers >= 0 && counts->completed >= -1);
        const auto answer = read_tracker_answer(*document, ipv6);
        if (!answer) continue;
        CHECK(answer->interval >= 0);
        CHECK(answer->peers().size() + answer->named.size() <= input.size() / 6);
        for (const NamedPeer& peer : answer->named) CHECK(peer.port != 0);
    }
}
