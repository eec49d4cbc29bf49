// The plan of a join of MP4 pieces: which of their tracks belong together, and when each piece begins.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "media/combine.h"
#include "media/mp4_descriptions.h"
#include "media/mp4_groups.h"
#include "media/mp4_scan.h"
#include "media/mp4_tables.h"

namespace vantlow {

/// One piece, as far as it is remembered between the passes over it. The lists have an entry for each of its
/// tracks.
struct JoinedPiece {
    std::u16string path;
    std::int64_t size = 0;  ///< of the file
    Mp4Piece movie;
    PieceScan scan;
    std::vector<std::size_t> joined;  ///< the number of the joined track that each track belongs to
    std::vector<std::vector<std::uint32_t>> descriptions;
    std::vector<std::vector<GroupMapping>> groups;
    std::int64_t media_start = 0;  ///< of its ranges among all
};

/// A track of the film.
struct JoinedTrack {
    std::size_t first_piece = 0;  ///< that has it
    std::size_t first_track = 0;  ///< its number there
    std::uint32_t id = 0;
    std::uint32_t timescale = 0;
    DescriptionList descriptions;
    GroupList groups;
};

struct Mp4Plan {
    std::vector<JoinedPiece> pieces;
    std::vector<JoinedTrack> tracks;
    Timeline timeline;

    /// Bytes of the media of all pieces.
    [[nodiscard]] std::int64_t media_size() const noexcept {
        return pieces.empty() ? 0 : pieces.back().media_start + pieces.back().scan.ranges.size();
    }
    /// The way in which a track of a piece becomes a part of the joined one. Points into the plan.
    [[nodiscard]] TrackMapping mapping(std::size_t piece, std::size_t track) const;
};

/// Reads the samples of all pieces once. Fails for pieces that cannot be joined, with Code::stopped when it
/// was cancelled. A plan always has pieces, tracks and samples.
Outcome<Mp4Plan> plan_mp4(const std::vector<std::u16string>& paths, const CombineControl& control);

}  // namespace vantlow
