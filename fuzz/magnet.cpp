// Magnet links: the link that is made of a link's parts says the same.
#include "bt/magnet.h"
#include "base/text.h"
#include "engine/plans.h"
#include "fuzz.h"

void vantlow::fuzz::run(std::string_view input) {
    plan_magnet(to_utf16(input));
    const auto magnet = parse_magnet(input, {"udp://t:1"});
    if (!magnet) return;
    std::vector<std::string> trackers;
    for (const std::string& tracker : magnet->trackers) {
        if (!tracker_from_magnet(tracker).empty()) trackers.push_back(tracker_from_magnet(tracker));
    }
    const std::string name = percent_decode(magnet->name);
    const std::string link = make_magnet(magnet->info_hash, name, trackers);
    CHECK(is_magnet(link));
    const auto again = parse_magnet(link, {});
    CHECK(again && again->info_hash == magnet->info_hash && percent_decode(again->name) == name);
    CHECK(again->trackers.size() == trackers.size());
    for (std::size_t i = 0; i < trackers.size(); ++i)
        CHECK(tracker_from_magnet(again->trackers[i]) == trackers[i]);
    shown_torrent(to_utf16(input));
}
