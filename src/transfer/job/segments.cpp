// The job's segments: taking work, moving on, giving back.
#include <algorithm>

#include "transfer/job/main_thread.h"
#include "transfer/job/work_rule.h"

namespace vantlow {

// Called with the job lock held. The new segment stands right behind the one that it was cut from.
CJobSeg* CTransferMainThread::cut_segment(std::size_t index, std::int64_t start) {
    CJobSeg& old = *job_.segments[index];
    auto piece = std::make_unique<CJobSeg>();
    piece->start = start;
    piece->end = old.end;
    if (job_.min_split_size > 0)
        piece->first_block = first_whole_block(start, job_.block_base, job_.min_split_size);
    old.end = start;
    if (old.worker != nullptr) old.worker->set_limit(start);
    return job_.segments
        .insert(job_.segments.begin() + static_cast<std::ptrdiff_t>(index) + 1, std::move(piece))
        ->get();
}

bool CTransferMainThread::take_work(CTransferSubThread& asker) {
    const Settings& settings = services_.settings;
    if (asker.finished_one && settings.flag(setting::only_own_part)) return false;
    const std::int64_t split_size = std::max(settings.number(setting::split_size), job_.min_split_size);
    bool taken = false;
    {
        const std::lock_guard guard(lock_);
        if (only_one_ && std::any_of(job_.segments.begin(), job_.segments.end(),
                                     [](const auto& s) { return s->worker != nullptr; })) {
            return false;
        }
        // What is complete needs no record: the gap that it leaves says as much. One record stays, so that a
        // job that is complete is not taken for one that never began.
        std::erase_if(job_.segments, [&](const auto& s) {
            return s->worker == nullptr && s->start >= s->end && job_.segments.size() > 1 &&
                   s != job_.segments.front();
        });
        std::vector<WorkItem> items;
        for (const auto& segment : job_.segments) {
            const bool active = segment->worker != nullptr;
            const bool fixed = active && segment->end == unknown_end;
            const std::int64_t start =
                active ? std::max(segment->start, segment->worker->position()) : segment->start;
            items.push_back({start, fixed ? start : segment->end, active});
        }
        if (const auto take = choose_work(items, split_size)) {
            CJobSeg* segment =
                take->cut ? cut_segment(take->index, take->start) : job_.segments[take->index].get();
            segment->worker = &asker;
            asker.segment = segment;
            asker.begin_at(segment->start, segment->end);
            taken = true;
        }
    }
    if (taken) {
        const std::lock_guard guard(mutex_);
        ++attached_;
    }
    return taken;
}

void CTransferMainThread::release(CTransferSubThread& asker) {
    std::int64_t best = best_speed_;
    const std::int64_t speed = asker.segment_speed();
    while (speed > best && !best_speed_.compare_exchange_weak(best, speed)) {
    }
    // Nothing may be held back for a segment that another connection takes: its start says what is written.
    const Result drained = file_.drain();
    {
        const std::lock_guard guard(lock_);
        asker.segment->worker = nullptr;
        asker.segment = nullptr;
    }
    {
        const std::lock_guard guard(mutex_);
        --attached_;
        news_there_ = true;
        if (!drained.ok() && !fatal_) fatal_ = drained;
    }
    news_.notify_all();
}

void CTransferMainThread::written(std::int64_t offset, std::int64_t bytes) {
    const std::lock_guard guard(lock_);
    for (auto& segment : job_.segments) {
        if (segment->start != offset || segment->end <= offset) continue;
        segment->start = std::min(offset + bytes, segment->end);
        return;
    }
}

void CTransferMainThread::ended(CTransferSubThread& asker, const Result& last) {
    {
        const std::lock_guard guard(mutex_);
        ended_.push_back(&asker);
        if (!last.ok() && last.kind() != Kind::stopped) last_failure_ = last;
        news_there_ = true;
    }
    news_.notify_all();
}

void CTransferMainThread::end_found(CTransferSubThread& asker) {
    const std::lock_guard guard(lock_);
    asker.segment->end = asker.position();
    asker.set_limit(asker.position());
    job_.file_size = asker.position();
}

// The bytes between the end of the segment in front and this one's beginning are in the file.
std::int64_t CTransferMainThread::overlap_before(const CTransferSubThread& asker) {
    constexpr std::int64_t joint = 16 * 1024;
    if (!verify_joints_) return 0;
    const std::lock_guard guard(lock_);
    std::int64_t end_before = 0;
    for (const auto& segment : job_.segments) {
        if (segment.get() == asker.segment) break;
        end_before = segment->end;
    }
    // Only what was handed to the system can be read back.
    const std::int64_t there = std::min(asker.segment->start, asker.position());
    return asker.position() == there ? std::clamp<std::int64_t>(there - end_before, 0, joint) : 0;
}

// How much the next segment has written behind this one's end.
std::int64_t CTransferMainThread::overlap_behind(const CTransferSubThread& asker) {
    constexpr std::int64_t joint = 4 * 1024;
    if (!verify_joints_ || asker.segment == nullptr) return 0;
    const std::lock_guard guard(lock_);
    const std::int64_t end = asker.segment->end;
    std::int64_t next = job_.file_size;  // where the next missing byte behind the end is
    for (const auto& segment : job_.segments) {
        if (segment->start >= end && segment.get() != asker.segment && segment->start < segment->end) {
            next = segment->start;
            break;
        }
    }
    return std::clamp<std::int64_t>(next - end, 0, joint);
}

}  // namespace vantlow
