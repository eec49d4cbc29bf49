#include "bt/torrent_settings.h"

#include "base/text.h"

namespace vantlow {

std::string default_tracker(const Settings& settings) {
    return to_utf8(
        settings.text(u"Torrent", u"DefaultTracker", u"udp://tracker.opentrackr.org:1337/announce"));
}

std::vector<std::string> default_magnet_trackers(const Settings& settings) {
    const std::string text = to_utf8(settings.text(u"Torrent", u"DefaultTrackers",
                                                   u"udp://tracker.opentrackr.org:1337/announce|"
                                                   u"udp://open.stealth.si:80/announce|"
                                                   u"udp://tracker.torrent.eu.org:451/announce|"
                                                   u"udp://exodus.desync.com:6969/announce"));
    std::vector<std::string> trackers;
    for (const std::string_view tracker : split(text, '|')) {
        if (!trim(tracker).empty()) trackers.emplace_back(trim(tracker));
    }
    return trackers;
}

}  // namespace vantlow
