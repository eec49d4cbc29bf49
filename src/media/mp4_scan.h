// What must be known of a piece's samples before it can be joined.
#pragma once

#include <cstdint>
#include <vector>

#include "media/combine.h"
#include "media/mp4_piece.h"
#include "media/mp4_ranges.h"
#include "media/mp4_timeline.h"

namespace vantlow {

/// One track of a piece, in its own ticks.
struct TrackScan {
    std::uint64_t samples = 0;
    std::int64_t duration = 0;     ///< from the first sample's decoding to the last one's end
    std::int64_t first_shown = 0;  ///< the earliest time at which a sample is shown
    std::int64_t last_shown = 0;   ///< when the last one's showing ends
    std::int64_t zero = 0;         ///< what fragments call the time of the first sample
    /// The greatest time that its tables have to say of one sample: how long it lasts, or how far its showing
    /// is from its decoding.
    std::uint64_t longest_entry = 0;
};

struct PieceScan {
    std::vector<TrackScan> tracks;
    MediaRanges ranges;
};

/// So many samples a piece may have even when it has fewer bytes, in all tracks together.
inline constexpr std::uint64_t most_empty_samples = 65536;

/// Goes through all samples once. Code::stopped when it was cancelled.
Outcome<PieceScan> scan_mp4_piece(const MediaInput& input, const Mp4Piece& piece,
                                  const CombineControl& control);

/// How a track's times are laid out, in ticks of a joined track with another time scale. `begin` is where the
/// earliest track of a fragmented piece begins, in nanoseconds of the fragments' time.
PieceTimes times_of(const Mp4Piece& piece, const Mp4Track& track, const TrackScan& scan, std::int64_t begin,
                    std::uint32_t joined_timescale);

/// Where the earliest track with samples begins, in nanoseconds.
std::int64_t begin_of(const Mp4Piece& piece, const PieceScan& scan);

}  // namespace vantlow
