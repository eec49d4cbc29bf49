// Torrents and magnet links to plans of jobs.
#pragma once

#include <span>

#include "engine/documents.h"

namespace vantlow {

/// The job of a torrent document. Its address is the torrent's magnet link: jobs keep no other mark.
JobPlans read_torrent_plan(std::span<const std::byte> bytes, const DocumentOptions& options);
/// The job of a magnet link.
JobPlans plan_magnet(const std::u16string& address);

/// A torrent job's address for people: without its trackers, whose addresses may hold keys.
std::u16string shown_torrent(std::u16string_view address);

}  // namespace vantlow
