#include "media/mp4_ranges.h"

#include <algorithm>

namespace vantlow {
namespace {

constexpr std::int64_t first_gap = 64;

}  // namespace

void MediaRanges::add(std::int64_t begin, std::int64_t end) {
    if (begin == end) return;
    if (!ranges_.empty() && ranges_.back().end == begin) {
        ranges_.back().end = end;
        return;
    }
    if (ranges_.size() == most_) {
        join(gap_);
        // Half of the room must be free again, or each further range would sort them all anew.
        while (ranges_.size() > most_ / 2) {
            gap_ = gap_ == 0 ? first_gap : gap_ * 2;
            join(gap_);
        }
    }
    ranges_.push_back({begin, end, 0});
}

void MediaRanges::join(std::int64_t gap) {
    std::sort(ranges_.begin(), ranges_.end(),
              [](const Range& a, const Range& b) { return a.begin < b.begin; });
    std::size_t last = 0;
    for (std::size_t i = 1; i < ranges_.size(); ++i) {
        if (ranges_[i].begin <= ranges_[last].end + gap) {
            ranges_[last].end = std::max(ranges_[last].end, ranges_[i].end);
        } else {
            ranges_[++last] = ranges_[i];
        }
    }
    if (!ranges_.empty()) ranges_.resize(last + 1);
}

void MediaRanges::close() {
    join(gap_);
    ranges_.shrink_to_fit();
    place(0);
}

void MediaRanges::place(std::int64_t media_start) {
    size_ = 0;
    for (Range& range : ranges_) {
        if (range.end - range.begin >= large_media) {
            const std::int64_t apart = (range.begin - media_start - size_) % media_alignment;
            size_ += apart < 0 ? apart + media_alignment : apart;
        }
        range.target = size_;
        size_ += range.end - range.begin;
    }
}

std::int64_t MediaRanges::target_of(std::int64_t offset) const {
    if (ranges_.empty()) return 0;
    const auto holds = [&](const Range& range) { return offset >= range.begin && offset < range.end; };
    if (last_ >= ranges_.size() || !holds(ranges_[last_])) {
        const auto behind =
            std::upper_bound(ranges_.begin(), ranges_.end(), offset,
                             [](std::int64_t at, const Range& range) { return at < range.begin; });
        if (behind == ranges_.begin()) return 0;
        last_ = static_cast<std::size_t>(behind - ranges_.begin()) - 1;
    }
    const Range& range = ranges_[last_];
    return range.target + std::min(offset, range.end) - range.begin;
}

}  // namespace vantlow
