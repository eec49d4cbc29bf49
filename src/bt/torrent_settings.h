// The settings of the BitTorrent side.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "store/settings.h"

namespace vantlow {

namespace setting {
/// Peers that a tracker is asked for.
inline constexpr NumberSetting numwant{u"Torrent", u"numwant", 256, 1, 1024};
/// Encryption of peer connections: 0 both, RC4 preferred; 1 plaintext; 2 RC4; 3 both.
inline constexpr NumberSetting crypto{u"Torrent", u"Crypto", 0, 0, 3};
}  // namespace setting

/// The tracker of a torrent that names none: "Torrent"/"DefaultTracker".
std::string default_tracker(const Settings& settings);
/// The trackers that magnet links without numbered ones get: "Torrent"/"DefaultTrackers", "|" between.
std::vector<std::string> default_magnet_trackers(const Settings& settings);

}  // namespace vantlow
