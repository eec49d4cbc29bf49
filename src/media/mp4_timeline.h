// When the pieces of a joined film begin, and what of their media is shown.
//
// Every player follows one edit of one continuous media; few follow more. So the media of a track is laid out
// so that it needs one edit wherever that is possible: all tracks of a piece begin at one moment, the longest
// track of the piece before decides when, and what the others lack up to there is added to the last sample
// before the border. Only where a piece's own edits hide or repeat some of its media the joined track gets
// several edits.
#pragma once

#include <cstdint>
#include <vector>

namespace vantlow {

/// The next part of a track that is shown: `duration` ticks of the media from `media_time` on, or nothing
/// (-1).
struct EditSpan {
    std::int64_t duration = 0;
    std::int64_t media_time = 0;
    std::int32_t rate = 0x10000;
    bool operator==(const EditSpan&) const = default;
};

/// A track of one piece, in ticks of the joined track.
struct PieceTimes {
    bool present = false;
    std::int64_t duration = 0;  ///< of its samples, as they are decoded
    std::int64_t shown_end =
        0;  ///< when the last one's showing ends, in the media; later where there are B-frames
    /// This much of the media comes before the piece's beginning: delay of B-frames, priming of an audio
    /// coder. Negative: the track begins later than the piece.
    std::int64_t lead = 0;
    /// The shown parts where they are not simply all of the media; empty otherwise.
    std::vector<EditSpan> edits;
};

/// A track of the joined file.
struct TrackTimeline {
    std::vector<std::int64_t> starts;  ///< of each piece's media, in the joined media; -1: not present
    std::vector<EditSpan> edits;       ///< empty: all of the media from its beginning
    std::int64_t media_duration = 0;
    std::int64_t duration = 0;  ///< as it is shown
};

struct Timeline {
    std::vector<TrackTimeline> tracks;
    std::vector<std::int64_t> piece_starts;  ///< nanoseconds
    std::int64_t duration = 0;               ///< nanoseconds
};

/// `pieces[piece][track]`, `timescales[track]` ticks a second. Times are below 2^60 ticks and 2^63
/// nanoseconds.
Timeline lay_out(const std::vector<std::uint32_t>& timescales,
                 const std::vector<std::vector<PieceTimes>>& pieces);

/// value * factor / divisor, rounded to the nearest (down where `down`). Factor and divisor are at most 2^30;
/// a larger result than 2^61 becomes 2^61.
std::int64_t scale_time(std::int64_t value, std::int64_t factor, std::int64_t divisor, bool down = false);

}  // namespace vantlow
