// ASX playlists and SMIL presentations: streaming clips with their times.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vantlow {

/// One clip of a playlist.
struct CMetafileNode {
    std::string url;    ///< as it stands, entities decoded; in a SMIL it may be relative to `base`
    std::string title;  ///< entities decoded; may be empty
    double start = 0;   ///< seconds
    double end = 0;     ///< seconds; 0 in a SMIL: to the clip's own end
    std::string base;   ///< the playlist's base address; may be empty
};

/// The contents of a playlist.
struct Playlist {
    std::string base;
    std::vector<CMetafileNode> clips;
};

/// Reads ASX. Without an "ASX" element it is read as plain text with an address in each line. Never fails:
/// malformed parts yield fewer clips.
class CASXSimple {
  public:
    static Playlist read(std::span<const std::byte> bytes);
};

/// Reads SMIL: "video", "audio", "img", "text", "textstream", "ref" and "animation" with their "src". Without
/// a "smil" element it is read as plain text, as ASX is.
class CSMILSimple {
  public:
    static Playlist read(std::span<const std::byte> bytes);
};

/// Seconds of a clock value: "1:02:03.5", "02:03", "12.5s", "3min", "1h", "500ms", "12.5"; "npt=" in front is
/// allowed. 0 for anything else.
double clock_seconds(std::string_view text) noexcept;

}  // namespace vantlow
