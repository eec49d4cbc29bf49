#include "media/mp4_scan.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <utility>

#include "media/mp4_samples.h"

namespace vantlow {
namespace {

constexpr std::int64_t second = 1'000'000'000;  // nanoseconds

class ScanSink : public SampleSink {
  public:
    ScanSink(std::size_t tracks, std::uint64_t most_samples, const CombineControl& control)
        : most_samples_(most_samples), control_(control) {
        scan_.tracks.resize(tracks);
    }

    void begins_at(std::size_t track, std::int64_t time) override { scan_.tracks[track].zero = time; }

    bool take(std::size_t track, const SampleRun& run) override {
        TrackScan& scan = scan_.tracks[track];
        const std::int64_t shown = run.decode_time + run.composition;
        const std::int64_t length = std::int64_t{run.duration} * run.count;
        if (scan.samples == 0) {
            scan.first_shown = shown;
            scan.last_shown = shown + length;
        }
        scan.first_shown = std::min(scan.first_shown, shown);
        scan.last_shown = std::max(scan.last_shown, shown + length);
        scan.duration = run.decode_time + length;
        const auto apart = static_cast<std::uint64_t>(std::abs(std::int64_t{run.composition}));
        scan.longest_entry = std::max({scan.longest_entry, std::uint64_t{run.duration}, apart});
        scan.samples += run.count;
        samples_ += run.count;
        scan_.ranges.add(run.offset, run.offset + std::int64_t{run.size} * run.count);
        return !has_too_many() && !control_.is_cancelled();
    }

    [[nodiscard]] bool has_too_many() const noexcept { return samples_ > most_samples_; }
    [[nodiscard]] PieceScan& scan() noexcept { return scan_; }

  private:
    PieceScan scan_;
    std::uint64_t most_samples_;
    std::uint64_t samples_ = 0;  // of all tracks
    const CombineControl& control_;
};

// The media before the first moment that is shown, and the time before it in which nothing is shown.
struct Lead {
    std::int64_t empty = 0;       // joined ticks
    std::int64_t media_time = 0;  // ticks of the track
    std::int64_t duration = 0;    // ticks of the movie; 0: to the end
    bool is_one = true;           // the edit list says nothing else
};

Lead lead_of(const std::vector<Mp4Edit>& edits, std::int64_t joined, std::int64_t movie) {
    Lead lead;
    std::size_t at = 0;
    std::int64_t empty = 0;
    for (; at < edits.size() && edits[at].media_time < 0; ++at) empty += edits[at].duration;
    lead.empty = scale_time(empty, joined, movie);
    if (at == edits.size()) return lead;
    lead.media_time = edits[at].media_time;
    lead.duration = edits[at].duration;
    lead.is_one = at + 1 == edits.size() && edits[at].rate == 0x10000;
    return lead;
}

}  // namespace

Outcome<PieceScan> scan_mp4_piece(const MediaInput& input, const Mp4Piece& piece,
                                  const CombineControl& control) {
    // Samples have bytes, so all tracks together have no more samples than bytes, apart from a few empty
    // ones.
    const auto most_samples = std::max(static_cast<std::uint64_t>(input.size()), most_empty_samples);
    ScanSink sink(piece.tracks.size(), most_samples, control);
    if (Result result = walk_samples(input, piece, sink); !result.ok()) return result;
    if (sink.has_too_many()) return input.damaged(0, "more samples than the file can hold");
    if (control.is_cancelled()) return Code::stopped;
    sink.scan().ranges.close();
    return std::move(sink.scan());
}

std::int64_t begin_of(const Mp4Piece& piece, const PieceScan& scan) {
    std::int64_t begin = std::numeric_limits<std::int64_t>::max();
    for (std::size_t i = 0; i < piece.tracks.size(); ++i) {
        if (scan.tracks[i].samples > 0)
            begin = std::min(begin, scale_time(scan.tracks[i].zero, second, piece.tracks[i].timescale));
    }
    return begin == std::numeric_limits<std::int64_t>::max() ? 0 : begin;
}

PieceTimes times_of(const Mp4Piece& piece, const Mp4Track& track, const TrackScan& scan, std::int64_t begin,
                    std::uint32_t joined_timescale) {
    const std::int64_t joined = joined_timescale;
    const auto in_joined = [&](std::int64_t time) { return scale_time(time, joined, track.timescale); };
    PieceTimes times;
    times.present = scan.samples > 0;
    times.duration = in_joined(scan.duration);
    times.shown_end = in_joined(scan.last_shown);
    if (!times.present) return times;
    const std::int64_t late = in_joined(scan.zero) - scale_time(begin, joined, second);
    const Lead lead = lead_of(track.edits, joined, piece.timescale);
    times.lead = in_joined(lead.media_time) - lead.empty - late;

    // Encoders of sound need a few hidden samples to begin, and to fill their last block. Whole pictures that
    // are hidden were cut out by somebody.
    const std::int64_t hidden_before = lead.media_time - scan.first_shown;
    const std::int64_t shown_until =
        lead.media_time + scale_time(lead.duration, track.timescale, piece.timescale);
    const std::int64_t hidden_behind = lead.duration == 0 ? 0 : scan.last_shown - shown_until;
    const auto average = std::max<std::int64_t>(scan.duration / static_cast<std::int64_t>(scan.samples), 1);
    const std::int64_t movie_tick = scale_time(1, track.timescale, piece.timescale) + 1;
    const std::int64_t allowed = average * (track.kind == fourcc("soun") ? 3 : 1) + movie_tick;
    if (lead.is_one && hidden_before <= allowed && hidden_behind <= allowed) return times;

    if (late > 0) times.edits.push_back({late, -1});
    for (const Mp4Edit& edit : track.edits) {
        const std::int64_t rest = scan.last_shown - std::max<std::int64_t>(edit.media_time, 0);
        std::int64_t duration = edit.duration == 0 && &edit == &track.edits.back()
                                    ? in_joined(rest)
                                    : scale_time(edit.duration, joined, piece.timescale);
        // An edit of less than a tick must not become 0, which means "all of the media", as no edit does.
        if (edit.duration > 0) duration = std::max<std::int64_t>(duration, 1);
        times.edits.push_back({duration, edit.media_time < 0 ? -1 : in_joined(edit.media_time), edit.rate});
    }
    return times;
}

}  // namespace vantlow
