#include "app/process/live_jobs.h"

#include <algorithm>
#include <cmath>

#include "app/terminal/progress_lines.h"

namespace vantlow {
namespace {

constexpr std::chrono::milliseconds least_distance{240};

}  // namespace

std::int64_t LiveJob::seconds_left() const noexcept {
    if (size < 0 || speed < 1) return -1;
    return static_cast<std::int64_t>(
        std::ceil(static_cast<double>(std::max<std::int64_t>(size - done, 0)) / speed));
}

void LiveJobs::look(Time now) {
    if (round_ > 0 && now - last_ < least_distance) return;
    last_ = now;
    ++round_;
    for (RunningJob& running : engine_.running_jobs()) {
        JobProgress& progress = running.progress;
        Entry& entry = jobs_[running.job->identity];
        received_ += std::max<std::int64_t>(progress.received - entry.received, 0);
        entry.received = progress.received;
        entry.done = std::max<std::int64_t>(progress.done, 0);
        entry.size = progress.size > 0 ? progress.size : -1;
        entry.speed = entry.meter.update(progress.received, now);
        entry.connections = progress.connections;
        entry.awaits_place = progress.awaits_place;
        entry.waits = wait_text(progress, Clock::now());
        entry.path = std::move(progress.path);
        entry.round = round_;
    }
    std::erase_if(jobs_, [this](const auto& one) { return one.second.round != round_; });
    if (jobs_.empty()) down_ = SpeedMeter();
    down_.update(received_, now);
}

const LiveJob* LiveJobs::find(const CJobNode& job) const {
    if (job.state != JobState::running) return nullptr;
    const auto at = jobs_.find(job.identity);
    return at == jobs_.end() ? nullptr : &at->second;
}

const LiveJob* LiveJobs::find(const Guid& job) const {
    const CJobNode* const record = engine_.find(job);
    return record != nullptr ? find(*record) : nullptr;
}

}  // namespace vantlow
