// MP4 pieces become one MP4 file.
#pragma once

#include <string>
#include <vector>

#include "media/combine.h"
#include "media/media_output.h"

namespace vantlow {

/// Writes one movie whose tracks have the pieces' samples in order: file type, movie box, then the media as
/// it stands in the pieces, less what no track uses. Tracks are matched by kind and order; a track that a
/// piece lacks pauses meanwhile, one that only later pieces have begins there. Fragmented pieces become
/// ordinary samples.
Result join_mp4(const std::vector<std::u16string>& pieces, CombineControl& control, MediaOutput& output,
                CombineOutcome& outcome);

}  // namespace vantlow
