#include "store/job.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "platform/process.h"

namespace vantlow {

Guid new_guid() {
    unsigned char bytes[16];
    random_guid(bytes);
    Guid guid;
    std::copy(std::begin(bytes), std::end(bytes), guid.bytes.begin());
    return guid;
}

CJobSeg::Extra& CJobSeg::extra() {
    if (!extra_) extra_ = std::make_unique<Extra>();
    return *extra_;
}

std::string_view job_state_name(JobState state) noexcept {
    switch (state) {
        case JobState::waiting:
            return "waiting";
        case JobState::running:
            return "running";
        case JobState::stopped:
            return "stopped";
        case JobState::finished:
            return "finished";
        case JobState::failed:
            return "failed";
    }
    return "stopped";
}

CJobNode::CJobNode(const CJobNode& other) : CQueueNode(other), JobFacts(other), category(other.category) {
    segments.reserve(other.segments.size());
    for (const auto& segment : other.segments) append_segment(segment->start, segment->end);
    schedule.reserve(other.schedule.size());
    for (const auto& entry : other.schedule) schedule.push_back(std::make_unique<CScheduleNode>(*entry));
}

std::unique_ptr<CJobNode> CJobNode::twin() const {
    auto copy = std::make_unique<CJobNode>(*this);
    copy->identity = identity;
    for (std::size_t i = 0; i < segments.size(); ++i) {
        const CJobSeg::Extra* const extra = segments[i]->find_extra();
        if (extra != nullptr) copy->segments[i]->extra() = *extra;
    }
    return copy;
}

void CJobNode::take_from(CJobNode& other) noexcept {
    static_cast<JobFacts&>(*this) = std::move(static_cast<JobFacts&>(other));
    segments = std::move(other.segments);
    schedule = std::move(other.schedule);
}

CJobSeg& CJobNode::append_segment(std::int64_t start, std::int64_t end) {
    CJobSeg& segment = *segments.emplace_back(std::make_unique<CJobSeg>());
    segment.start = start;
    segment.end = end;
    return segment;
}

std::int32_t CJobNode::thread_limit() const noexcept {
    return std::clamp(max_threads > 0 ? max_threads : connections, 1, most_connections);
}

std::optional<std::int32_t> CJobNode::own_retry_limit() const noexcept {
    if (retry_by_settings != 0) return std::nullopt;
    return std::max(retries, -1);
}

}  // namespace vantlow
