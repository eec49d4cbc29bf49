#include "transfer/job/segment_book.h"

#include <algorithm>

#include "transfer/job/work_rule.h"

namespace vantlow {

void SegmentBook::strike(const Worker& worker) {
    std::erase(workers_, &worker);
}

Worker* SegmentBook::worker_of(const CJobSeg& segment) const {
    if (segment.worker == 0) return nullptr;
    const auto at = std::find_if(workers_.begin(), workers_.end(),
                                 [&](const Worker* worker) { return worker->id == segment.worker; });
    return at == workers_.end() ? nullptr : *at;
}

std::int64_t SegmentBook::position_of(const CJobSeg& segment) const {
    const Worker* const worker = worker_of(segment);
    return worker == nullptr ? segment.start
                             : std::max(segment.start, worker->position.load(std::memory_order_relaxed));
}

void SegmentBook::assign(CJobSeg& segment, Worker& worker) {
    segment.worker = worker.id;
    worker.segment = &segment;
    worker.begin_at(segment.start, segment.end);
}

CJobSeg& SegmentBook::cut(std::size_t index, std::int64_t at) {
    CJobSeg& old = *job_.segments[index];
    auto piece = std::make_unique<CJobSeg>();
    piece->start = at;
    piece->end = old.end;
    if (job_.min_split_size > 0)
        piece->extra().first_block = first_whole_block(at, job_.block_base, job_.min_split_size);
    old.end = at;
    if (Worker* const worker = worker_of(old)) worker->limit = at;
    return **job_.segments.insert(job_.segments.begin() + static_cast<std::ptrdiff_t>(index) + 1,
                                  std::move(piece));
}

bool SegmentBook::hand_back(CJobSeg& segment) {
    if (segment.start >= segment.end) return false;
    for (const auto& front : job_.segments) {
        Worker* const reader = worker_of(*front);
        if (front->end != segment.start || front.get() == &segment || reader == nullptr) continue;
        if (!reader->receiving || reader->retired) continue;
        front->end = segment.end;
        reader->limit = segment.end;
        segment.end = segment.start;
        if (Worker* const loser = worker_of(segment)) loser->limit = segment.start;
        return true;
    }
    return false;
}

std::optional<std::size_t> SegmentBook::starting_at(std::int64_t at, bool waiting) const {
    for (std::size_t i = 0; i < job_.segments.size(); ++i) {
        const CJobSeg& segment = *job_.segments[i];
        if (segment.start != at || segment.start >= segment.end) continue;
        const Worker* const worker = worker_of(segment);
        const bool is_waiting =
            worker != nullptr && !worker->receiving && worker->position.load(std::memory_order_relaxed) == at;
        if (waiting ? is_waiting : worker == nullptr) return i;
    }
    return std::nullopt;
}

CJobSeg* SegmentBook::idle_behind(std::int64_t at) const {
    for (const auto& segment : job_.segments) {
        if (segment->worker == 0 && segment->start >= at && segment->start < segment->end)
            return segment.get();
    }
    return nullptr;
}

bool SegmentBook::is_worked_on_behind(std::int64_t at) const {
    return std::any_of(job_.segments.begin(), job_.segments.end(), [&](const auto& segment) {
        return segment->worker != 0 && segment->start >= at && segment->start < segment->end;
    });
}

std::int64_t SegmentBook::advance(std::int64_t offset, std::int64_t bytes) {
    // Parts of neighbours that met on their way are written as one.
    std::int64_t at = offset;
    for (auto& segment : job_.segments) {
        if (segment->start != at || segment->end <= at) continue;
        at = segment->start = std::min(offset + bytes, segment->end);
    }
    return at;
}

void SegmentBook::take_back(std::int64_t begin, std::int64_t end) {
    std::vector<Range> gaps;
    std::int64_t at = begin;
    for (const auto& segment : job_.segments) {
        if (segment->start >= segment->end || segment->end <= at) continue;
        if (segment->start >= end) break;
        if (segment->start > at) gaps.push_back({at, segment->start});
        at = segment->end;
    }
    if (at < end) gaps.push_back({at, end});
    for (const Range& gap : gaps) {
        auto segment = std::make_unique<CJobSeg>();
        segment->start = gap.begin;
        segment->end = gap.end;
        // The search goes on behind complete segments that stand within the range.
        const auto place = std::find_if(job_.segments.begin(), job_.segments.end(),
                                        [&](const auto& next) { return next->start >= gap.end; });
        job_.segments.insert(place, std::move(segment));
    }
}

// A complete segment needs no record: the gap that it leaves says as much. One record stays, so that a job
// that is complete is not taken for one that never began.
void SegmentBook::drop_complete() {
    std::erase_if(job_.segments, [&](const auto& segment) {
        return segment->worker == 0 && segment->start >= segment->end && segment != job_.segments.front();
    });
}

void SegmentBook::begin_anew() {
    job_.segments.clear();
    job_.append_segment(0, unknown_end);
}

bool SegmentBook::is_missing(std::int64_t begin, std::int64_t end) const {
    return std::any_of(job_.segments.begin(), job_.segments.end(), [&](const auto& segment) {
        return segment->start < segment->end && segment->start < end && segment->end > begin;
    });
}

bool SegmentBook::is_all_there() const {
    return job_.file_size >= 0 && std::all_of(job_.segments.begin(), job_.segments.end(),
                                              [](const auto& s) { return s->start >= s->end; });
}

std::int64_t SegmentBook::there_from(std::int64_t at) const {
    std::int64_t from = 0;
    for (const auto& segment : job_.segments) {
        if (segment->start < segment->end && segment->start < at) from = std::min(segment->end, at);
    }
    return from;
}

std::int64_t SegmentBook::there_until(std::int64_t at) const {
    for (const auto& segment : job_.segments) {
        if (segment->start < segment->end && segment->end > at) return std::max(at, segment->start);
    }
    return std::max(at, job_.file_size);
}

std::vector<SegmentBook::Range> SegmentBook::there() const {
    std::vector<Range> ranges;
    std::int64_t at = 0;
    for (const auto& segment : job_.segments) {
        if (segment->start >= segment->end) continue;
        if (segment->start > at) ranges.push_back({at, segment->start});
        at = segment->end;
    }
    if (at < job_.file_size) ranges.push_back({at, job_.file_size});
    return ranges;
}

}  // namespace vantlow
