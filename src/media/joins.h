// Joining the pieces of one film into one file: a function for each container.
//
// Both run on the calling thread and write to `output`, which the caller has opened and commits afterwards.
// They report progress to `control`, and end with `stopped` soon after it was cancelled. `outcome` gets the
// duration and the notes.
#pragma once

#include <string>
#include <vector>

#include "media/combine.h"
#include "media/media_output.h"

namespace vantlow {

/// Writes the first piece's head and metadata, then the audio and video tags of all pieces. Each piece is
/// moved in time by the durations that the metadata of the pieces before it declare; at the end the metadata
/// is set to the whole. A piece that cannot be opened is skipped, and a tag that is cut off at the end of a
/// piece is left out; the outcome's notes say so.
Result join_flv(const std::vector<std::u16string>& pieces, CombineControl& control, MediaOutput& output,
                CombineOutcome& outcome);

/// Writes one movie whose tracks have the pieces' samples in order: file type, movie box, then the media as
/// it stands in the pieces, without bytes that no track uses. Tracks are matched by kind and order. A track
/// that a piece lacks pauses during that piece; one that only later pieces have begins there. Fragmented
/// pieces become ordinary samples.
Result join_mp4(const std::vector<std::u16string>& pieces, CombineControl& control, MediaOutput& output,
                CombineOutcome& outcome);

}  // namespace vantlow
