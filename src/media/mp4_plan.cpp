#include "media/mp4_plan.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <utility>

#include "base/text.h"
#include "media/media_input.h"
#include "media/mp4_samples.h"

namespace vantlow {
namespace {

constexpr std::int64_t longest_piece = 10'000'000;  // seconds
constexpr double longest_film = 9e9;                // seconds: nanoseconds of it fit in 63 bits
constexpr std::uint64_t finest_timescale = 10'000'000;

std::string kind_text(FourCC kind) {
    return kind == fourcc("vide")   ? "video"
           : kind == fourcc("soun") ? "sound"
                                    : "\"" + fourcc_text(kind) + "\" track";
}

class Mp4Planner {
  public:
    explicit Mp4Planner(const CombineControl& control) : control_(control) {}

    Outcome<Mp4Plan> make(const std::vector<std::u16string>& paths);

  private:
    Result look_at(const std::u16string& path);
    Result match_tracks(const MediaInput& input, JoinedPiece& piece);
    std::size_t joined_track_for(const JoinedPiece& piece, std::size_t track, std::size_t order);
    void choose_timescale(std::size_t track);
    [[nodiscard]] bool fits(std::size_t track, std::uint64_t timescale) const;
    Result lay_out_pieces();

    const CombineControl& control_;
    Mp4Plan plan_;
};

// Reads the structure of a piece.
Result Mp4Planner::look_at(const std::u16string& path) {
    MediaInput input;
    if (Result result = input.open(path); !result.ok()) return result;
    if (media_kind(input) != MediaKind::mp4)
        return input.damaged(0, "this piece is not an MP4 file like the first one");
    auto movie = read_mp4_piece(input);
    if (!movie) return movie.failure();
    auto scan = scan_mp4_piece(input, *movie, control_);
    if (!scan) return scan.failure();
    JoinedPiece piece;
    piece.path = path;
    piece.size = input.size();
    piece.movie = *std::move(movie);
    piece.scan = *std::move(scan);
    piece.media_start = plan_.media_size();
    piece.scan.ranges.place(piece.media_start);
    if (Result result = match_tracks(input, piece); !result.ok()) return result;
    plan_.pieces.push_back(std::move(piece));
    return {};
}

// Returns the joined track for the piece's track: the one of the same kind and order, or a new one.
std::size_t Mp4Planner::joined_track_for(const JoinedPiece& piece, std::size_t track, std::size_t order) {
    const Mp4Track& source = piece.movie.tracks[track];
    const auto kind_of = [&](const JoinedTrack& joined) {
        const JoinedPiece& first =
            joined.first_piece < plan_.pieces.size() ? plan_.pieces[joined.first_piece] : piece;
        return first.movie.tracks[joined.first_track].kind;
    };
    for (std::size_t i = 0; i < plan_.tracks.size(); ++i) {
        if (kind_of(plan_.tracks[i]) == source.kind && order-- == 0) return i;
    }
    JoinedTrack joined;
    joined.first_piece = plan_.pieces.size();
    joined.first_track = track;
    joined.id = source.id;
    std::uint32_t greatest = 0;
    bool taken = source.id == 0;
    for (const JoinedTrack& other : plan_.tracks) {
        taken = taken || other.id == source.id;
        greatest = std::max(greatest, other.id);
    }
    if (taken) joined.id = greatest + 1;
    plan_.tracks.push_back(std::move(joined));
    return plan_.tracks.size() - 1;
}

Result Mp4Planner::match_tracks(const MediaInput& input, JoinedPiece& piece) {
    for (std::size_t i = 0; i < piece.movie.tracks.size(); ++i) {
        Mp4Track& track = piece.movie.tracks[i];
        const auto order = std::count_if(piece.movie.tracks.begin(),
                                         piece.movie.tracks.begin() + static_cast<std::ptrdiff_t>(i),
                                         [&](const Mp4Track& other) { return other.kind == track.kind; });
        const std::size_t number = joined_track_for(piece, i, static_cast<std::size_t>(order));
        JoinedTrack& joined = plan_.tracks[number];
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

// True when tables that count time in this unit can express how long each sample of each piece lasts, and how
// late it is shown.
bool Mp4Planner::fits(std::size_t track, std::uint64_t timescale) const {
    for (const JoinedPiece& piece : plan_.pieces) {
        for (std::size_t i = 0; i < piece.joined.size(); ++i) {
            if (piece.joined[i] != track) continue;
            const std::uint64_t longest = piece.scan.tracks[i].longest_entry;
            if (longest * timescale / piece.movie.tracks[i].timescale > longest_table_time) return false;
        }
    }
    return true;
}

// Chooses the time scale in which all pieces' times are whole numbers; where that would be too fine, the
// finest of theirs.
void Mp4Planner::choose_timescale(std::size_t track) {
    std::uint64_t common = 1;
    std::uint64_t finest = 1;
    bool exact = true;
    for (const JoinedPiece& piece : plan_.pieces) {
        for (std::size_t i = 0; i < piece.joined.size(); ++i) {
            if (piece.joined[i] != track) continue;
            const std::uint64_t own = piece.movie.tracks[i].timescale;
            finest = std::max(finest, own);
            if (exact) common = std::lcm(common, own);
            exact = exact && common <= std::max(finest, finest_timescale);
        }
    }
    const bool use_common = exact && fits(track, common);
    plan_.tracks[track].timescale = static_cast<std::uint32_t>(use_common ? common : finest);
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

Result Mp4Planner::lay_out_pieces() {
    std::vector<std::uint32_t> timescales;
    for (std::size_t i = 0; i < plan_.tracks.size(); ++i) {
        choose_timescale(i);
        timescales.push_back(plan_.tracks[i].timescale);
        if (!fits(i, timescales.back())) {
            return {Code::unsupported, "the pieces' time scales are too different to be joined"};
        }
    }
    std::vector<std::vector<PieceTimes>> times(plan_.pieces.size(),
                                               std::vector<PieceTimes>(plan_.tracks.size()));
    double film = 0;
    for (std::size_t number = 0; number < plan_.pieces.size(); ++number) {
        const JoinedPiece& piece = plan_.pieces[number];
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
    plan_.timeline = lay_out(timescales, times);
    return {};
}

Outcome<Mp4Plan> Mp4Planner::make(const std::vector<std::u16string>& paths) {
    for (const std::u16string& path : paths) {
        if (Result result = look_at(path); !result.ok()) return result;
    }
    const bool any = std::any_of(plan_.pieces.begin(), plan_.pieces.end(), [](const JoinedPiece& piece) {
        return std::any_of(piece.scan.tracks.begin(), piece.scan.tracks.end(),
                           [](const TrackScan& track) { return track.samples > 0; });
    });
    if (!any) {
        return Result(Code::unsupported,
                      to_utf8(paths.front()) + ": no samples in any of the pieces (at offset 0)");
    }
    if (Result result = lay_out_pieces(); !result.ok()) return result;
    return std::move(plan_);
}

}  // namespace

TrackMapping Mp4Plan::mapping(std::size_t number, std::size_t track) const {
    const JoinedPiece& piece = pieces[number];
    const std::size_t joined = piece.joined[track];
    const std::uint32_t from = piece.movie.tracks[track].timescale;
    const std::uint32_t to = tracks[joined].timescale;
    const std::uint32_t common = std::gcd(from, to);
    TrackMapping mapping;
    mapping.start = timeline.tracks[joined].starts[number];
    mapping.factor = to / common;
    mapping.divisor = from / common;
    mapping.descriptions = piece.descriptions[track];
    mapping.groups = piece.groups[track];
    mapping.ranges = &piece.scan.ranges;
    mapping.media_start = piece.media_start;
    return mapping;
}

Outcome<Mp4Plan> plan_mp4(const std::vector<std::u16string>& paths, const CombineControl& control) {
    return Mp4Planner(control).make(paths);
}

}  // namespace vantlow
