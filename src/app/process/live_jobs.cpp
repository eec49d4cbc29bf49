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
        count_sent(running);
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
    const std::vector<RunningJob> shared = engine_.sharing_jobs();
    for (const RunningJob& job : shared) count_sent(job);
    std::erase_if(jobs_, [this](const auto& one) { return one.second.round != round_; });
    std::erase_if(sent_by_, [this](const auto& one) { return !engine_.progress(one.first); });
    if (jobs_.empty()) down_ = SpeedMeter();
    if (sent_by_.empty()) up_ = SpeedMeter();
    up_.update(sent_, now);
    down_.update(received_, now);
}

void LiveJobs::count_sent(const RunningJob& running) {
    const std::int64_t sent = running.progress.sent;
    if (sent == 0) return;
    std::int64_t& before = sent_by_[running.job->identity];
    sent_ += std::max<std::int64_t>(sent - before, 0);
    before = sent;
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
