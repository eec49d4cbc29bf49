// FLV pieces become one FLV file.
#pragma once

#include <string>
#include <vector>

#include "media/combine.h"
#include "media/media_output.h"

namespace vantlow {

/// Writes the first piece's head and metadata, then the audio and video tags of all pieces, each piece moved
/// in time by what the metadata of those before declare as their durations; at last the metadata is set to
/// the whole. A piece that cannot be opened is skipped, a tag that is cut off at the end of a piece is left
/// out; the outcome's notes say so.
Result join_flv(const std::vector<std::u16string>& pieces, CombineControl& control, MediaOutput& output,
                CombineOutcome& outcome);

}  // namespace vantlow
