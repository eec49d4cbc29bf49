#include "bt/torrent_settings.h"

#include "base/text.h"

namespace vantlow {

std::string default_tracker(const Settings& settings) {
    return to_utf8(settings.text(setting::torrent_tracker));
}

std::vector<std::string> default_magnet_trackers(const Settings& settings) {
    const std::string text = to_utf8(settings.text(setting::magnet_trackers));
    std::vector<std::string> trackers;
    for (const std::string_view tracker : split(text, '|')) {
        if (!trim(tracker).empty()) trackers.emplace_back(trim(tracker));
    }
    return trackers;
}

}  // namespace vantlow
