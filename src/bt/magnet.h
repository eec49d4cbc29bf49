// Magnet links (BEP 9).
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "bt/metainfo.h"

namespace vantlow {

/// What a magnet link says. Name and trackers are as they stand in the link, escapes included.
struct Magnet {
    InfoHash info_hash{};
    std::string name;
    std::vector<std::string> trackers;
};

/// Reads the text behind "magnet:?" (the whole link will do). None when it holds no info hash of 20 bytes, in
/// base32 (RFC 4648) or in hexadecimal digits. `default_trackers` are appended when the link has no "tr.0=".
std::optional<Magnet> parse_magnet(std::string_view text, const std::vector<std::string>& default_trackers);

/// True when the text begins with "magnet:?", in any letter case.
bool is_magnet(std::string_view text) noexcept;

/// The URL that a tracker of a magnet link means: links carry it escaped or not.
std::string tracker_from_magnet(std::string_view text);

/// The link of a torrent from which parse_magnet() reads hash, name and all of the trackers again, in
/// hexadecimal digits and escaped.
std::string make_magnet(const InfoHash& hash, std::string_view name,
                        const std::vector<std::string>& trackers);

}  // namespace vantlow
