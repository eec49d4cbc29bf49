// A track's sample table in the movie box: where its parts stand (ISO/IEC 14496-12, 8.5 to 8.9).
#pragma once

#include "media/mp4_box_reader.h"
#include "media/mp4_piece.h"

namespace vantlow {

/// Reads what the box "stbl" says: sample descriptions and groups of samples are taken over, of the tables
/// the places. False after the reader's failure was set.
bool read_sample_table(BoxReader& boxes, const Mp4Box& table, Mp4Track& track);

}  // namespace vantlow
