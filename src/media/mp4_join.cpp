#include "media/mp4_join.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numeric>
#include <span>
#include <utility>

#include "base/text.h"
#include "media/media_kind.h"
#include "media/mp4_descriptions.h"
#include "media/mp4_groups.h"
#include "media/mp4_movie.h"
#include "media/mp4_scan.h"
#include "media/mp4_tables.h"

namespace vantlow {
namespace {

constexpr std::int64_t copy_step = 8 * 1024 * 1024;
constexpr std::int64_t longest_piece = 10'000'000;  // seconds
constexpr double longest_film = 9e9;                // seconds: nanoseconds of it fit in 63 bits
constexpr std::uint64_t finest_timescale = 10'000'000;
constexpr std::uint64_t longest_sample = 0x7FFFFFFF;
constexpr std::uint64_t most_samples = 0xFFFFFFFF;

// One piece, as far as it is remembered between the passes.
struct Piece {
    std::u16string path;
    std::int64_t size = 0;
    Mp4Piece movie;
    PieceScan scan;
    std::vector<std::size_t> joined;  // the joined track of each of the piece's
    std::vector<std::vector<std::uint32_t>> descriptions;
    std::vector<std::vector<GroupMapping>> groups;
    std::int64_t media_start = 0;  // of its ranges among all
};

struct JoinedTrack {
    std::size_t first_piece = 0;
    std::size_t first_track = 0;
    std::uint32_t id = 0;
    std::uint32_t timescale = 0;
    DescriptionList descriptions;
    GroupList groups;
};

std::string kind_text(FourCC kind) {
    return kind == fourcc("vide")   ? "video"
           : kind == fourcc("soun") ? "sound"
                                    : "\"" + fourcc_text(kind) + "\" track";
}

// Hands the samples of one piece to the joined tracks' tables.
class TableSink : public SampleSink {
  public:
    TableSink(const Piece& piece, std::vector<TrackTables>& tables, const CombineControl& control)
        : piece_(piece), tables_(tables), control_(control) {}
    bool take(std::size_t track, const SampleRun& run) override {
        tables_[piece_.joined[track]].take(run);
        return !control_.is_cancelled();
    }

  private:
    const Piece& piece_;
    std::vector<TrackTables>& tables_;
    const CombineControl& control_;
};

class Mp4Joiner {
  public:
    Mp4Joiner(CombineControl& control, MediaOutput& output, CombineOutcome& outcome)
        : control_(control), output_(output), outcome_(outcome) {}

    Result run(const std::vector<std::u16string>& pieces);

  private:
    using Sizes = std::vector<TrackTableSizes>;

    Result look_at(const std::u16string& path);
    Result match_tracks(const MediaInput& input, Piece& piece);
    std::size_t joined_track_for(const Piece& piece, std::size_t track, std::size_t order);
    void choose_timescale(std::size_t track);
    [[nodiscard]] bool fits(std::size_t track, std::uint64_t timescale) const;
    Result lay_out_pieces();
    Result walk(std::vector<TrackTables>& tables) const;
    [[nodiscard]] TrackMapping mapping(std::size_t number, std::size_t track) const;
    Result make_tables(std::vector<TrackTables>& tables, Sizes& sizes) const;
    Result write_movie();
    Result write_tables(const BoxBuilder& boxes, std::int64_t media_position, bool long_offsets);
    Result copy_media();
    Result reopen(const Piece& piece, MediaInput& input) const;
    [[nodiscard]] std::vector<JoinedTrackBoxes> boxes_of(const Sizes& sizes) const;
    [[nodiscard]] std::int64_t media_size() const {
        return pieces_.back().media_start + pieces_.back().scan.ranges.size();
    }

    CombineControl& control_;
    MediaOutput& output_;
    CombineOutcome& outcome_;
    std::vector<Piece> pieces_;
    std::vector<JoinedTrack> tracks_;
    Timeline timeline_;
    Sizes sizes_;
};

// First pass over a piece: what it consists of.
Result Mp4Joiner::look_at(const std::u16string& path) {
    MediaInput input;
    if (Result result = input.open(path); !result.ok()) return result;
    if (media_kind(input) != MediaKind::mp4)
        return input.damaged(0, "this piece is no MP4 file as the first one is");
    auto movie = read_mp4_piece(input);
    if (!movie) return movie.failure();
    auto scan = scan_mp4_piece(input, *movie, control_);
    if (!scan) return scan.failure();
    Piece piece;
    piece.path = path;
    piece.size = input.size();
    piece.movie = *std::move(movie);
    piece.scan = *std::move(scan);
    piece.media_start = pieces_.empty() ? 0 : media_size();
    piece.scan.ranges.place(piece.media_start);
    if (Result result = match_tracks(input, piece); !result.ok()) return result;
    pieces_.push_back(std::move(piece));
    return {};
}

// The joined track for the piece's track: the one of the same kind and order, or a new one.
std::size_t Mp4Joiner::joined_track_for(const Piece& piece, std::size_t track, std::size_t order) {
    const Mp4Track& source = piece.movie.tracks[track];
    const auto kind_of = [&](const JoinedTrack& joined) {
        const Piece& first = joined.first_piece < pieces_.size() ? pieces_[joined.first_piece] : piece;
        return first.movie.tracks[joined.first_track].kind;
    };
    for (std::size_t i = 0; i < tracks_.size(); ++i) {
        if (kind_of(tracks_[i]) == source.kind && order-- == 0) return i;
    }
    JoinedTrack joined;
    joined.first_piece = pieces_.size();
    joined.first_track = track;
    joined.id = source.id;
    std::uint32_t greatest = 0;
    bool taken = source.id == 0;
    for (const JoinedTrack& other : tracks_) {
        taken = taken || other.id == source.id;
        greatest = std::max(greatest, other.id);
    }
    if (taken) joined.id = greatest + 1;
    tracks_.push_back(std::move(joined));
    return tracks_.size() - 1;
}

Result Mp4Joiner::match_tracks(const MediaInput& input, Piece& piece) {
    for (std::size_t i = 0; i < piece.movie.tracks.size(); ++i) {
        Mp4Track& track = piece.movie.tracks[i];
        const auto order = std::count_if(piece.movie.tracks.begin(),
                                         piece.movie.tracks.begin() + static_cast<std::ptrdiff_t>(i),
                                         [&](const Mp4Track& other) { return other.kind == track.kind; });
        const std::size_t number = joined_track_for(piece, i, static_cast<std::size_t>(order));
        JoinedTrack& joined = tracks_[number];
        std::vector<std::uint32_t> indices;
        for (const auto& entry : track.descriptions) {
            indices.push_back(joined.descriptions.add(entry));
            if (indices.back() != 0) continue;
            return input.damaged(track.descriptions_offset,
                                 "the " + kind_text(track.kind) + " is " + codec_of(entry).text() +
                                     ", that of the pieces before is " +
                                     codec_of(joined.descriptions.entries().front()).text() +
                                     ": pieces of different codecs cannot be joined");
        }
        piece.joined.push_back(number);
        piece.descriptions.push_back(std::move(indices));
        piece.groups.push_back(joined.groups.add(track.groups));
        for (Mp4Groups& groups : track.groups) groups.entries.clear();
    }
    return {};
}

// Whether no sample of any piece lasts longer than tables can say when time is counted so.
bool Mp4Joiner::fits(std::size_t track, std::uint64_t timescale) const {
    for (const Piece& piece : pieces_) {
        for (std::size_t i = 0; i < piece.joined.size(); ++i) {
            if (piece.joined[i] != track) continue;
            const std::uint64_t longest = piece.scan.tracks[i].longest_sample;
            if (longest * timescale / piece.movie.tracks[i].timescale > longest_sample) return false;
        }
    }
    return true;
}

// The one in which all pieces' times are whole numbers; where that would be too fine, the finest of theirs.
void Mp4Joiner::choose_timescale(std::size_t track) {
    std::uint64_t common = 1;
    std::uint64_t finest = 1;
    bool exact = true;
    for (const Piece& piece : pieces_) {
        for (std::size_t i = 0; i < piece.joined.size(); ++i) {
            if (piece.joined[i] != track) continue;
            const std::uint64_t own = piece.movie.tracks[i].timescale;
            finest = std::max(finest, own);
            if (exact) common = std::lcm(common, own);
            exact = exact && common <= std::max(finest, finest_timescale);
        }
    }
    const bool use_common = exact && fits(track, common);
    tracks_[track].timescale = static_cast<std::uint32_t>(use_common ? common : finest);
}

// An upper bound of what a track of a piece takes, in seconds; infinite where a time is out of all reason.
double bound_of(const PieceTimes& times, std::uint32_t timescale) {
    const std::int64_t most = longest_piece * timescale;
    const auto ticks = [most](std::int64_t time) {
        return time >= -most && time <= most ? std::abs(static_cast<double>(time))
                                             : std::numeric_limits<double>::infinity();
    };
    double total = ticks(times.duration) + ticks(times.shown_end) + ticks(times.lead);
    for (const EditSpan& edit : times.edits) {
        total += ticks(edit.duration);
        if (std::isinf(ticks(edit.media_time))) total = std::numeric_limits<double>::infinity();
    }
    return total / timescale;
}

Result Mp4Joiner::lay_out_pieces() {
    std::vector<std::uint32_t> timescales;
    for (std::size_t i = 0; i < tracks_.size(); ++i) {
        choose_timescale(i);
        timescales.push_back(tracks_[i].timescale);
        if (!fits(i, timescales.back())) {
            return {Code::unsupported, "the pieces' time scales are too different to be joined"};
        }
    }
    std::vector<std::vector<PieceTimes>> times(pieces_.size(), std::vector<PieceTimes>(tracks_.size()));
    double film = 0;
    for (std::size_t number = 0; number < pieces_.size(); ++number) {
        const Piece& piece = pieces_[number];
        const std::int64_t begin = begin_of(piece.movie, piece.scan);
        double longest = 0;
        for (std::size_t i = 0; i < piece.joined.size(); ++i) {
            const std::size_t track = piece.joined[i];
            PieceTimes& own = times[number][track];
            own =
                times_of(piece.movie, piece.movie.tracks[i], piece.scan.tracks[i], begin, timescales[track]);
            longest = std::max(longest, bound_of(own, timescales[track]));
        }
        film += longest;
        if (!(film < longest_film)) {
            return {Code::unsupported, to_utf8(piece.path) +
                                           ": tracks of an impossible duration (at offset " +
                                           std::to_string(piece.movie.tracks.front().offset) + ")"};
        }
    }
    timeline_ = lay_out(timescales, times);
    return {};
}

TrackMapping Mp4Joiner::mapping(std::size_t number, std::size_t track) const {
    const Piece& piece = pieces_[number];
    const std::size_t joined = piece.joined[track];
    const std::uint32_t from = piece.movie.tracks[track].timescale;
    const std::uint32_t to = tracks_[joined].timescale;
    const std::uint32_t common = std::gcd(from, to);
    TrackMapping mapping;
    mapping.start = timeline_.tracks[joined].starts[number];
    mapping.factor = to / common;
    mapping.divisor = from / common;
    mapping.descriptions = piece.descriptions[track];
    mapping.groups = piece.groups[track];
    mapping.ranges = &piece.scan.ranges;
    mapping.media_start = piece.media_start;
    return mapping;
}

Result Mp4Joiner::reopen(const Piece& piece, MediaInput& input) const {
    if (Result result = input.open(piece.path); !result.ok()) return result;
    return input.size() == piece.size ? Result{} : input.damaged(0, "the piece was changed meanwhile");
}

// Shows all samples of all pieces to the tables.
Result Mp4Joiner::walk(std::vector<TrackTables>& tables) const {
    for (std::size_t number = 0; number < pieces_.size(); ++number) {
        const Piece& piece = pieces_[number];
        MediaInput input;
        if (Result result = reopen(piece, input); !result.ok()) return result;
        for (std::size_t i = 0; i < piece.joined.size(); ++i) {
            if (piece.scan.tracks[i].samples > 0) tables[piece.joined[i]].begin_piece(mapping(number, i));
        }
        TableSink sink(piece, tables, control_);
        if (Result result = walk_samples(input, piece.movie, sink); !result.ok()) return result;
        if (control_.is_cancelled()) return Code::stopped;
    }
    return {};
}

Result Mp4Joiner::make_tables(std::vector<TrackTables>& tables, Sizes& sizes) const {
    if (Result result = walk(tables); !result.ok()) return result;
    sizes.clear();
    for (TrackTables& track : tables) {
        auto counted = track.finish();
        if (!counted) return counted.failure();
        if (counted->samples > most_samples)
            return {Code::unsupported, "more samples than an MP4 file can have"};
        sizes.push_back(*counted);
    }
    return {};
}

std::vector<JoinedTrackBoxes> Mp4Joiner::boxes_of(const Sizes& sizes) const {
    std::vector<JoinedTrackBoxes> boxes;
    for (std::size_t i = 0; i < tracks_.size(); ++i) {
        const JoinedTrack& track = tracks_[i];
        boxes.push_back({&pieces_[track.first_piece].movie.tracks[track.first_track], track.id,
                         track.timescale, track.descriptions.entries(), track.groups.groups(),
                         timeline_.tracks[i], sizes[i]});
    }
    return boxes;
}

// File type, movie box and the head of the media, which then follows.
Result Mp4Joiner::write_movie() {
    std::vector<TrackTables> counting;
    for (const JoinedTrack& track : tracks_) counting.emplace_back(track.groups.groups().size());
    Sizes sizes;
    if (Result result = make_tables(counting, sizes); !result.ok()) return result;

    constexpr std::uint64_t most_32 = 0xFFFFFFFF;
    const auto total = static_cast<std::uint64_t>(media_size());
    const bool long_media = total + 8 > most_32;
    const std::int64_t media_header = long_media ? 16 : 8;
    std::int64_t last_chunk = 0;
    for (const TrackTableSizes& track : sizes) last_chunk = std::max(last_chunk, track.last_chunk);
    const bool is_quicktime = pieces_.front().movie.is_quicktime;
    const auto build = [&](bool long_offsets) {
        BoxBuilder boxes;
        put_file_type(boxes, is_quicktime);
        put_movie(boxes, pieces_.front().movie, boxes_of(sizes), long_offsets);
        return boxes;
    };
    BoxBuilder boxes = build(false);
    const bool long_offsets =
        static_cast<std::uint64_t>(boxes.size() + media_header + media_alignment + 8 + last_chunk) > most_32;
    if (long_offsets) boxes = build(true);
    if (!boxes.fits()) return {Code::unsupported, "the movie box would become larger than 4 GiB"};

    // Large media begins at a block's beginning, which the pieces' places in it count on.
    if (media_size() >= large_media) {
        const std::int64_t behind = boxes.size() + 8 + media_header;
        boxes.begin("free");
        for (std::int64_t at = behind; at % media_alignment != 0; ++at) boxes.put(0, 1);
        boxes.end();
    }
    const std::int64_t media_position = boxes.size() + media_header;
    sizes_ = std::move(sizes);
    if (Result result = write_tables(boxes, media_position, long_offsets); !result.ok()) return result;
    BoxBuilder head;
    head.put(long_media ? 1 : total + 8, 4);
    head.put(fourcc("mdat"), 4);
    if (long_media) head.put(total + 16, 8);
    control_.wrote(media_position);
    return output_.write(head.bytes());
}

// Writes what was built, then the tables into its holes.
Result Mp4Joiner::write_tables(const BoxBuilder& boxes, std::int64_t media_position, bool long_offsets) {
    std::vector<std::array<std::int64_t, mp4_table_count>> positions(tracks_.size());
    std::size_t written = 0;
    const std::span<const std::byte> bytes = boxes.bytes();
    for (const BoxBuilder::Hole& hole : boxes.holes()) {
        if (Result result = output_.write(bytes.subspan(written, hole.at - written)); !result.ok())
            return result;
        written = hole.at;
        positions[hole.track][static_cast<std::size_t>(hole.kind)] = output_.position();
        output_.skip(hole.size);
    }
    if (Result result = output_.write(bytes.subspan(written)); !result.ok()) return result;

    std::vector<TrackTables> tables;
    for (std::size_t i = 0; i < tracks_.size(); ++i) {
        tables.emplace_back(tracks_[i].groups.groups().size());
        tables.back().write_to(output_, sizes_[i], positions[i], media_position, long_offsets);
    }
    Sizes again;
    if (Result result = make_tables(tables, again); !result.ok()) return result;
    for (std::size_t i = 0; i < tracks_.size(); ++i) {
        if (again[i].entries != sizes_[i].entries)
            return {Code::unsupported, "a piece was changed meanwhile"};
    }
    return {};
}

Result Mp4Joiner::copy_media() {
    const std::int64_t begin = output_.position();
    for (const Piece& piece : pieces_) {
        MediaInput input;
        if (Result result = reopen(piece, input); !result.ok()) return result;
        for (const MediaRanges::Range& range : piece.scan.ranges.ranges()) {
            output_.skip(begin + piece.media_start + range.target - output_.position());
            for (std::int64_t at = range.begin; at < range.end;) {
                if (control_.is_cancelled()) return Code::stopped;
                // Up to a block's beginning first, from where whole blocks go on.
                const std::int64_t count = std::min(copy_step - at % media_alignment, range.end - at);
                if (Result result = output_.copy(input.file(), at, count); !result.ok()) return result;
                control_.wrote(count);
                at += count;
            }
        }
    }
    return {};
}

Result Mp4Joiner::run(const std::vector<std::u16string>& pieces) {
    for (const std::u16string& path : pieces) {
        if (Result result = look_at(path); !result.ok()) return result;
    }
    const bool any = std::any_of(pieces_.begin(), pieces_.end(), [](const Piece& piece) {
        return std::any_of(piece.scan.tracks.begin(), piece.scan.tracks.end(),
                           [](const TrackScan& track) { return track.samples > 0; });
    });
    if (!any)
        return {Code::unsupported,
                to_utf8(pieces.front()) + ": no samples in any of the pieces (at offset 0)"};
    if (Result result = lay_out_pieces(); !result.ok()) return result;
    if (Result result = write_movie(); !result.ok()) return result;
    if (Result result = copy_media(); !result.ok()) return result;
    outcome_.seconds = static_cast<double>(timeline_.duration) / 1e9;
    return {};
}

}  // namespace

Result join_mp4(const std::vector<std::u16string>& pieces, CombineControl& control, MediaOutput& output,
                CombineOutcome& outcome) {
    return Mp4Joiner(control, output, outcome).run(pieces);
}

}  // namespace vantlow
