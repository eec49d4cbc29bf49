#include "media/mp4_timeline.h"

#include <algorithm>
#include <utility>

#include "media/mp4_samples.h"

namespace vantlow {
namespace {

constexpr std::int64_t second = 1'000'000'000;  // nanoseconds

// One joined track while pieces are added to it.
class TrackLayout {
  public:
    explicit TrackLayout(std::int64_t timescale) : timescale_(timescale) {}

    // The earliest moment (nanoseconds) at which a piece may begin.
    [[nodiscard]] std::int64_t earliest(const PieceTimes& piece) const {
        std::int64_t end = presented_end();
        // Continuous media: media before the beginning of this piece must not overlap the piece before it.
        if (open_ && piece.present && piece.edits.empty())
            end = std::max(end, media_end_ + shift_ + piece.lead);
        return to_nanoseconds(end);
    }

    void add(const PieceTimes& piece, std::int64_t begin) {
        if (!piece.present) {
            track_.starts.push_back(-1);
            return;
        }
        const std::int64_t at = scale_time(begin, timescale_, second, true);
        if (!piece.edits.empty()) {
            add_edited(piece, at);
        } else {
            add_plain(piece, at);
        }
    }

    TrackTimeline finish() {
        close();
        track_.media_duration = media_end_;
        track_.duration = presented_;
        // All of the media from its beginning on is shown, which is also the meaning of no edit list.
        const bool whole = track_.edits.size() == 1 && track_.edits[0] == EditSpan{shown_end_, 0};
        if (whole) track_.edits.clear();
        return std::move(track_);
    }

    [[nodiscard]] std::int64_t end() const { return to_nanoseconds(presented_end()); }

  private:
    [[nodiscard]] std::int64_t presented_end() const { return open_ ? shown_end_ + shift_ : presented_; }
    [[nodiscard]] std::int64_t to_nanoseconds(std::int64_t ticks) const {
        // The result is rounded up, so that the tick it becomes again is no earlier one.
        return ticks / timescale_ * second + (ticks % timescale_ * second + timescale_ - 1) / timescale_;
    }

    void add_plain(const PieceTimes& piece, std::int64_t at) {
        std::int64_t start = at - piece.lead - shift_;
        if (open_ && start - media_end_ > longest_table_time) close();
        if (!open_) {
            start = media_end_;
            shift_ = at - piece.lead - start;
            show_nothing_until(at - std::min<std::int64_t>(piece.lead, 0));
            edit_media_ = start + std::max<std::int64_t>(piece.lead, 0);
            open_ = true;
        }
        track_.starts.push_back(start);
        media_end_ = start + piece.duration;
        shown_end_ = start + std::max(piece.shown_end, std::max<std::int64_t>(piece.lead, 0));
    }

    void add_edited(const PieceTimes& piece, std::int64_t at) {
        close();
        show_nothing_until(at);
        track_.starts.push_back(media_end_);
        for (EditSpan edit : piece.edits) {
            if (edit.media_time >= 0) edit.media_time += media_end_;
            show(edit);
        }
        media_end_ += piece.duration;
    }

    void show(const EditSpan& edit) {
        if (edit.duration <= 0) return;
        presented_ += edit.duration;
        track_.edits.push_back(edit);
    }
    void show_nothing_until(std::int64_t time) {
        if (time > presented_) show({time - presented_, -1});
    }
    // Ends the edit that shows the continuous media.
    void close() {
        if (open_) show({shown_end_ - edit_media_, edit_media_});
        open_ = false;
    }

    std::int64_t timescale_;
    TrackTimeline track_;
    std::int64_t media_end_ = 0;
    std::int64_t shown_end_ = 0;  // of what is shown continuously, in the media
    std::int64_t presented_ = 0;  // by the edits so far
    // True while continuous media is shown: media time `t` is shown at t + shift_.
    bool open_ = false;
    std::int64_t shift_ = 0;
    std::int64_t edit_media_ = 0;  // where the edit began
};

}  // namespace

std::int64_t scale_time(std::int64_t value, std::int64_t factor, std::int64_t divisor, bool down) {
    if (factor == divisor) return value;
    std::int64_t whole = value / divisor;
    std::int64_t rest = value % divisor;
    if (rest < 0) {
        rest += divisor;
        --whole;
    }
    constexpr std::int64_t most = std::int64_t{1} << 61;
    if (whole > most / factor - 1) return most;
    if (whole < -most / factor + 1) return -most;
    return whole * factor + (rest * factor + (down ? 0 : divisor / 2)) / divisor;
}

Timeline lay_out(const std::vector<std::uint32_t>& timescales,
                 const std::vector<std::vector<PieceTimes>>& pieces) {
    std::vector<TrackLayout> layouts;
    layouts.reserve(timescales.size());
    for (const std::uint32_t timescale : timescales) layouts.emplace_back(timescale);
    Timeline timeline;
    for (const std::vector<PieceTimes>& piece : pieces) {
        std::int64_t begin = 0;
        for (std::size_t i = 0; i < layouts.size(); ++i)
            begin = std::max(begin, layouts[i].earliest(piece[i]));
        timeline.piece_starts.push_back(begin);
        for (std::size_t i = 0; i < layouts.size(); ++i) layouts[i].add(piece[i], begin);
    }
    for (TrackLayout& layout : layouts) {
        timeline.duration = std::max(timeline.duration, layout.end());
        timeline.tracks.push_back(layout.finish());
    }
    return timeline;
}

}  // namespace vantlow
