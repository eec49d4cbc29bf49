#include "media/joins.h"

#include <algorithm>
#include <array>
#include <span>
#include <utility>

#include "media/mp4_movie.h"
#include "media/mp4_plan.h"
#include "media/mp4_samples.h"

namespace vantlow {
namespace {

constexpr std::int64_t copy_step = 8 * 1024 * 1024;
constexpr std::uint64_t most_samples = 0xFFFFFFFF;

// Hands the samples of one piece to the joined tracks' tables.
class TableSink : public SampleSink {
  public:
    TableSink(const JoinedPiece& piece, std::vector<TrackTables>& tables, const CombineControl& control)
        : piece_(piece), tables_(tables), control_(control) {}
    bool take(std::size_t track, const SampleRun& run) override {
        tables_[piece_.joined[track]].take(run);
        return !control_.is_cancelled();
    }

  private:
    const JoinedPiece& piece_;
    std::vector<TrackTables>& tables_;
    const CombineControl& control_;
};

// Writes the film that was planned.
class Mp4Joiner {
  public:
    Mp4Joiner(const Mp4Plan& plan, CombineControl& control, MediaOutput& output)
        : plan_(plan), control_(control), output_(output) {}

    /// File type, movie box and the head of the media, which then follows.
    Result write_movie();
    Result copy_media();

  private:
    using Sizes = std::vector<TrackTableSizes>;

    Result walk(std::vector<TrackTables>& tables) const;
    Result make_tables(std::vector<TrackTables>& tables, Sizes& sizes) const;
    Result write_tables(const BoxBuilder& boxes, std::int64_t media_position, bool long_offsets);
    static Result reopen(const JoinedPiece& piece, MediaInput& input);
    [[nodiscard]] std::vector<JoinedTrackBoxes> boxes_of(const Sizes& sizes) const;

    const Mp4Plan& plan_;
    CombineControl& control_;
    MediaOutput& output_;
    Sizes sizes_;
};

Result Mp4Joiner::reopen(const JoinedPiece& piece, MediaInput& input) {
    if (Result result = input.open(piece.path); !result.ok()) return result;
    return input.size() == piece.size ? Result{} : input.damaged(0, "the piece was changed meanwhile");
}

// Shows all samples of all pieces to the tables.
Result Mp4Joiner::walk(std::vector<TrackTables>& tables) const {
    for (std::size_t number = 0; number < plan_.pieces.size(); ++number) {
        const JoinedPiece& piece = plan_.pieces[number];
        MediaInput input;
        if (Result result = reopen(piece, input); !result.ok()) return result;
        for (std::size_t i = 0; i < piece.joined.size(); ++i) {
            if (piece.scan.tracks[i].samples > 0)
                tables[piece.joined[i]].begin_piece(plan_.mapping(number, i));
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
    for (std::size_t i = 0; i < plan_.tracks.size(); ++i) {
        const JoinedTrack& track = plan_.tracks[i];
        boxes.push_back({&plan_.pieces[track.first_piece].movie.tracks[track.first_track], track.id,
                         track.timescale, track.descriptions.entries(), track.groups.groups(),
                         plan_.timeline.tracks[i], sizes[i]});
    }
    return boxes;
}

Result Mp4Joiner::write_movie() {
    std::vector<TrackTables> counting;
    for (const JoinedTrack& track : plan_.tracks) counting.emplace_back(track.groups.groups().size());
    Sizes sizes;
    if (Result result = make_tables(counting, sizes); !result.ok()) return result;

    constexpr std::uint64_t most_32 = 0xFFFFFFFF;
    const auto total = static_cast<std::uint64_t>(plan_.media_size());
    const bool long_media = total + 8 > most_32;
    const std::int64_t media_header = long_media ? 16 : 8;
    std::int64_t last_chunk = 0;
    for (const TrackTableSizes& track : sizes) last_chunk = std::max(last_chunk, track.last_chunk);
    const bool is_quicktime = plan_.pieces.front().movie.is_quicktime;
    const auto build = [&](bool long_offsets) {
        BoxBuilder boxes;
        put_file_type(boxes, is_quicktime);
        put_movie(boxes, plan_.pieces.front().movie, boxes_of(sizes), long_offsets);
        return boxes;
    };
    BoxBuilder boxes = build(false);
    const bool long_offsets =
        static_cast<std::uint64_t>(boxes.size() + media_header + media_alignment + 8 + last_chunk) > most_32;
    if (long_offsets) boxes = build(true);
    if (!boxes.fits()) return {Code::unsupported, "the movie box would become larger than 4 GiB"};

    // Large media begins at the beginning of a block; the pieces' places in it were computed for that.
    if (plan_.media_size() >= large_media) {
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

// Writes the boxes, then the tables into their holes.
Result Mp4Joiner::write_tables(const BoxBuilder& boxes, std::int64_t media_position, bool long_offsets) {
    std::vector<std::array<std::int64_t, mp4_table_count>> positions(plan_.tracks.size());
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
    for (std::size_t i = 0; i < plan_.tracks.size(); ++i) {
        tables.emplace_back(plan_.tracks[i].groups.groups().size());
        tables.back().write_to(output_, sizes_[i], positions[i], media_position, long_offsets);
    }
    Sizes again;
    if (Result result = make_tables(tables, again); !result.ok()) return result;
    for (std::size_t i = 0; i < plan_.tracks.size(); ++i) {
        if (again[i].entries != sizes_[i].entries)
            return {Code::unsupported, "a piece was changed meanwhile"};
    }
    return {};
}

Result Mp4Joiner::copy_media() {
    const std::int64_t begin = output_.position();
    for (const JoinedPiece& piece : plan_.pieces) {
        MediaInput input;
        if (Result result = reopen(piece, input); !result.ok()) return result;
        for (const MediaRanges::Range& range : piece.scan.ranges.ranges()) {
            output_.skip(begin + piece.media_start + range.target - output_.position());
            for (std::int64_t at = range.begin; at < range.end;) {
                if (control_.is_cancelled()) return Code::stopped;
                // The first copy goes up to the beginning of a block; from there whole blocks follow.
                const std::int64_t count = std::min(copy_step - at % media_alignment, range.end - at);
                if (Result result = output_.copy(input.file(), at, count); !result.ok()) return result;
                control_.wrote(count);
                at += count;
            }
        }
    }
    return {};
}

}  // namespace

Result join_mp4(const std::vector<std::u16string>& pieces, CombineControl& control, MediaOutput& output,
                CombineOutcome& outcome) {
    const auto plan = plan_mp4(pieces, control);
    if (!plan) return plan.failure();
    Mp4Joiner joiner(*plan, control, output);
    if (Result result = joiner.write_movie(); !result.ok()) return result;
    if (Result result = joiner.copy_media(); !result.ok()) return result;
    outcome.seconds = static_cast<double>(plan->timeline.duration) / 1e9;
    return {};
}

}  // namespace vantlow
