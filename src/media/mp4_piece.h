// The facts that an MP4 file states about its tracks (ISO/IEC 14496-12, 8). Tables of samples stay in the
// file; only their places are kept.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "base/result.h"
#include "media/media_input.h"
#include "media/mp4_box.h"

namespace vantlow {

/// A table of entries of one size in the file.
struct Mp4Table {
    std::int64_t offset = 0;  ///< of the first entry
    std::uint32_t count = 0;  ///< as many as are there
    bool present = false;
};

/// An entry of an edit list: the next part of the media that is shown.
struct Mp4Edit {
    std::int64_t duration = 0;    ///< in ticks of the movie; 0 in the last one may mean: to the end
    std::int64_t media_time = 0;  ///< in ticks of the track; -1: nothing is shown
    std::int32_t rate = 0x10000;  ///< 16.16
};

/// Descriptions of groups of samples of one type, and which samples are in them.
struct Mp4Groups {
    FourCC type = 0;
    std::uint32_t parameter = 0;      ///< of the type, 0 where it has none
    std::uint32_t default_index = 0;  ///< of samples that the map does not name; from 1, 0: in no group
    std::vector<std::vector<std::byte>> entries;
    Mp4Table map;  ///< sample_count, group_description_index
};

/// The defaults for the samples of a track's fragments.
struct Mp4FragmentDefaults {
    std::uint32_t description = 1;
    std::uint32_t duration = 0;
    std::uint32_t size = 0;
    std::uint32_t flags = 0;
};

struct Mp4Track {
    std::int64_t offset = 0;  ///< of the track's box
    std::uint32_t id = 0;
    FourCC kind = 0;  ///< the handler: "vide", "soun", ...
    std::uint32_t timescale = 0;
    std::uint16_t language = 0;  ///< packed ISO 639-2
    std::vector<Mp4Edit> edits;

    // Whole boxes, to be written as they are; empty where there is none. The track header is rewritten.
    std::vector<std::byte> header;
    std::vector<std::byte> handler;
    std::vector<std::byte> media_header;
    std::vector<std::byte> references;
    std::vector<std::byte> user_data;

    std::int64_t descriptions_offset = 0;
    std::vector<std::vector<std::byte>> descriptions;  ///< sample entries, whole
    std::vector<Mp4Groups> groups;

    Mp4Table times;         ///< stts
    Mp4Table compositions;  ///< ctts
    Mp4Table chunk_runs;    ///< stsc
    Mp4Table chunks;        ///< stco or co64
    Mp4Table sync;          ///< stss; where it is absent all samples are
    Mp4Table sizes;         ///< stsz or stz2, empty when all samples have one size
    bool long_offsets = false;
    unsigned size_bits = 32;
    std::uint32_t one_size = 0;
    std::uint32_t samples = 0;
    Mp4FragmentDefaults fragment;
};

struct Mp4Piece {
    std::vector<std::byte> movie_header;            ///< whole box
    std::vector<std::vector<std::byte>> user_data;  ///< whole boxes of the movie: udta, meta
    std::uint32_t timescale = 0;
    std::uint64_t duration = 0;  ///< as the movie header says
    FourCC brand = 0;            ///< 0: no file type box, as in old QuickTime files
    bool is_quicktime = false;
    bool is_fragmented = false;    ///< there are movie fragments
    std::vector<Mp4Track> tracks;  ///< without hint tracks
};

/// The number of types of sample groups that are kept for a track.
inline constexpr std::size_t most_groups = 4;

/// Reads the movie box and the boxes beside it. Fails, naming the place, for a piece that is damaged,
/// encrypted, compressed or keeps its media in another file.
Outcome<Mp4Piece> read_mp4_piece(const MediaInput& input);

/// The step of read_mp4_piece that reads a track's sample table, the box "stbl" (ISO/IEC 14496-12, 8.5
/// to 8.9): sample descriptions and groups of samples are copied, of the tables only the places are kept.
/// False after the reader's failure was set.
bool read_sample_table(BoxReader& boxes, const Mp4Box& table, Mp4Track& track);

}  // namespace vantlow
