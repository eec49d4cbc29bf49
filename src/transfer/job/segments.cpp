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

// The segment that begins where the asker stands and whose own connection has not answered yet: the asker's
// answer flows on into it without another request.
std::optional<std::size_t> CTransferMainThread::segment_to_go_on_with(const CTransferSubThread& asker) const {
    if (!asker.finished_one) return std::nullopt;
    for (std::size_t i = 0; i < job_.segments.size(); ++i) {
        const CJobSeg& segment = *job_.segments[i];
        const bool waits = segment.worker != nullptr && segment.worker != &asker &&
                           !segment.worker->is_active() && segment.worker->position() == segment.start;
        if (waits && segment.start == asker.position() && segment.start < segment.end) return i;
    }
    return std::nullopt;
}

// What the asker takes, by the rule; null when there is nothing for it.
CJobSeg* CTransferMainThread::choose_segment(const CTransferSubThread& asker, std::int64_t split_size) {
    if (const auto next = segment_to_go_on_with(asker))
        return cut_segment(*next, job_.segments[*next]->start);
    std::vector<WorkItem> items;
    for (const auto& segment : job_.segments) {
        const bool active = segment->worker != nullptr;
        const bool fixed =
            active ? segment->end == unknown_end || is_suspect(*segment) : !may_serve(asker.mirror, *segment);
        const std::int64_t start =
            active ? std::max(segment->start, segment->worker->position()) : segment->start;
        items.push_back({start, fixed ? start : segment->end, active});
    }
    const auto take = choose_work(items, split_size);
    if (!take) return nullptr;
    if (!take->cut) return job_.segments[take->index].get();
    return cut_segment(take->index, cut_at(take->start, items[take->index].start, split_size));
}

bool CTransferMainThread::take_work(CTransferSubThread& asker) {
    const Settings& settings = services_.settings;
    if (asker.finished_one && settings.flag(setting::only_own_part)) return false;
    const std::int64_t split_size = std::max(settings.number(setting::split_size), job_.min_split_size);
    {
        const std::lock_guard guard(lock_);
        const auto is_taken = [](const auto& segment) { return segment->worker != nullptr; };
        // One that waited for a mirror in vain, until others had done its work, ends.
        if (asker.mirror == MirrorSet::none || !mirrors_.is_usable(asker.mirror)) return false;
        if (only_one_ && std::any_of(job_.segments.begin(), job_.segments.end(), is_taken)) return false;
        // What is complete needs no record: the gap that it leaves says as much. One record stays, so that a
        // job that is complete is not taken for one that never began.
        std::erase_if(job_.segments, [&](const auto& segment) {
            return segment->worker == nullptr && segment->start >= segment->end &&
                   segment != job_.segments.front();
        });
        CJobSeg* segment = choose_segment(asker, split_size);
        if (segment == nullptr) return false;
        segment->worker = &asker;
        asker.segment = segment;
        asker.begin_at(segment->start, segment->end);
    }
    const std::lock_guard guard(mutex_);
    ++attached_;
    return true;
}

// Called with the job lock held.
bool CTransferMainThread::is_all_there() const {
    return job_.file_size >= 0 && !taking_over_ && to_take_back_.empty() &&
           std::all_of(job_.segments.begin(), job_.segments.end(), [this](const auto& segment) {
               const bool compares = verify_joints_ && segment->worker != nullptr;
               return segment->start >= segment->end && !compares;
           });
}

// Called with the job lock held.
bool CTransferMainThread::is_complete() const {
    return is_all_there() && good_pieces_ == piece_states_.size();
}

bool CTransferMainThread::release(CTransferSubThread& asker) {
    std::int64_t best = best_speed_;
    const std::int64_t speed = asker.segment_speed();
    while (speed > best && !best_speed_.compare_exchange_weak(best, speed)) {
    }
    // Nothing may be held back for a segment that another connection takes: its start says what is written.
    const Result drained = file_.drain();
    bool complete = false;
    {
        const std::lock_guard guard(lock_);
        asker.segment->worker = nullptr;
        asker.segment = nullptr;
        complete = drained.ok() && is_complete();
    }
    {
        const std::lock_guard guard(mutex_);
        --attached_;
        news_there_ = true;
        if (!drained.ok() && !fatal_) fatal_ = drained;
    }
    // With nothing left to take the asker is about to end, which is news enough.
    if (!complete) news_.notify_all();
    return complete;
}

void CTransferMainThread::written(std::int64_t offset, std::int64_t bytes) {
    std::vector<std::size_t> whole;
    {
        const std::lock_guard guard(lock_);
        whole = advance(offset, bytes);
    }
    for (const std::size_t piece : whole) pieces_->add(piece);
}

// Called with the job lock held; the pieces that are whole now.
std::vector<std::size_t> CTransferMainThread::advance(std::int64_t offset, std::int64_t bytes) {
    // Parts of neighbours that met on their way are written as one.
    std::int64_t at = offset;
    for (auto& segment : job_.segments) {
        if (segment->start != at || segment->end <= at) continue;
        at = segment->start = std::min(offset + bytes, segment->end);
    }
    return pieces_ ? find_whole_pieces(offset, at) : std::vector<std::size_t>();
}

void CTransferMainThread::delivered(const CTransferSubThread& asker, std::int64_t offset,
                                    std::int64_t bytes) {
    const std::lock_guard guard(lock_);
    if (mirrors_.are_several() || pieces_) origins_.add(offset, offset + bytes, asker.mirror);
}

void CTransferMainThread::ended(CTransferSubThread& asker, const Result& last) {
    {
        const std::lock_guard guard(lock_);
        if (asker.mirror != MirrorSet::none) --mirrors_.at(asker.mirror).connections;
        asker.mirror = MirrorSet::none;
    }
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
    // What the asker received may still be held back. A disk that does not take it says so at the next write.
    static_cast<void>(file_.drain());
    const std::lock_guard guard(lock_);
    std::int64_t end_before = 0;
    for (const auto& segment : job_.segments) {
        if (segment.get() == asker.segment) break;
        if (segment->start < segment->end) end_before = segment->end;
    }
    // Only what was handed to the system can be read back.
    const std::int64_t there = std::min(asker.segment->start, asker.position());
    return asker.position() == there ? std::clamp<std::int64_t>(there - end_before, 0, joint) : 0;
}

// How much the next segment has written behind this one's end; negative: it is about to write there.
std::int64_t CTransferMainThread::overlap_behind(const CTransferSubThread& asker) {
    constexpr std::int64_t joint = 4 * 1024;
    if (!verify_joints_ || asker.segment == nullptr) return 0;
    const std::lock_guard guard(lock_);
    const std::int64_t end = asker.segment->end;
    std::int64_t next = job_.file_size;  // where the next missing byte behind the end is
    for (const auto& segment : job_.segments) {
        if (segment->start >= end && segment.get() != asker.segment && segment->start < segment->end) {
            next = segment->start;
            if (next == end && segment->worker != nullptr && segment->worker->is_active()) return -1;
            break;
        }
    }
    return std::clamp<std::int64_t>(next - end, 0, joint);
}

}  // namespace vantlow
