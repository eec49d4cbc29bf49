// The facts about a piece's samples that a join needs beforehand.
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
    std::int64_t last_shown = 0;   ///< the time at which the last sample stops being shown
    std::int64_t zero = 0;         ///< the time of the first sample as fragments count it
    /// The longest time that its tables must hold for one sample: how long it lasts, or the distance from its
    /// decoding to its showing.
    std::uint64_t longest_entry = 0;
};

struct PieceScan {
    std::vector<TrackScan> tracks;
    MediaRanges ranges;
};

/// The samples that a piece may have in all tracks together even when it has fewer bytes than samples.
inline constexpr std::uint64_t most_empty_samples = 65536;

/// Reads all samples once. Code::stopped when it was cancelled.
Outcome<PieceScan> scan_mp4_piece(const MediaInput& input, const Mp4Piece& piece,
                                  const CombineControl& control);

/// Lays out a track's times, in ticks of a joined track with another time scale. `begin`: the time at which
/// the earliest track of a fragmented piece begins, in nanoseconds of the fragments' time.
PieceTimes times_of(const Mp4Piece& piece, const Mp4Track& track, const TrackScan& scan, std::int64_t begin,
                    std::uint32_t joined_timescale);

/// The time at which the earliest track with samples begins, in nanoseconds.
std::int64_t begin_of(const Mp4Piece& piece, const PieceScan& scan);

}  // namespace vantlow
