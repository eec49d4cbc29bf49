// A job as `list` and `show` print it with --json.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include "app/process/job_view.h"

namespace vantlow {

/// Returns the fields of `list --json`: beside those that every job has "error" where it failed, and those
/// that add_wait() adds.
nlohmann::ordered_json list_json(const JobView& view);
/// Returns the fields of `show --json`: the same and more. Moments are ISO 8601, null where there was none
/// yet.
nlohmann::ordered_json show_json(const JobView& view);

/// The parts of a torrent's report as its commands print them: each peer, tracker and file an object, the
/// pieces one. Bytes, bytes a second, moments as above.
nlohmann::ordered_json peers_json(const TorrentReport& report);
nlohmann::ordered_json trackers_json(const TorrentReport& report);
nlohmann::ordered_json files_json(const TorrentReport& report);
nlohmann::ordered_json pieces_json(const TorrentReport& report);
/// Adds to the fields of `show --json` those of a torrent: the totals and all four parts.
void add_torrent(nlohmann::ordered_json& json, const TorrentReport& report);

}  // namespace vantlow
