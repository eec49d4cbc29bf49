#include "app/get_run.h"

#include "engine/torrent_plans.h"

namespace vantlow {

void TorrentsOfGet::look() {
    while (!waiting_.empty() && !desk_.is_full()) {
        Torrent next = std::move(waiting_.front());
        waiting_.pop_front();
        desk_.begin(*next.job, proxy_, std::move(next.listener));
        asked_.emplace(next.job->identity, std::move(next));
    }
    std::vector<CJobQueue::Ended> ended;
    desk_.look([&](const Guid& identity, const std::string& summary) {
        Torrent torrent = std::move(asked_.at(identity));
        asked_.erase(identity);
        JobOutcome outcome;
        outcome.result = {Code::unsupported, summary};
        if (!json_) torrent.job->address = shown_torrent(torrent.job->address);
        ended.push_back({torrent.id, std::move(torrent.job), std::move(outcome)});
    });
    for (const CJobQueue::Ended& one : ended) {
        all_.add(one.outcome.result);
        output_.ended(one);
        desk_.end(one.job->identity);
    }
}

GetRun::GetRun(const TransferServices& services, const GlobalOptions& global, const GetOptions& options,
               const RunOptions& run, GetOutput& output)
    : verbose_(global.verbose),
      run_(run),
      stop_(services.stop),
      output_(output),
      queue_(services),
      factory_(options, netrc_lookup()),
      torrents_({services.connections, services.libraries, services.settings}, services.stop,
                torrent_proxy(run), global.json, output, all_) {}

void GetRun::file(MadeJobs made) {
    if (!made.complaint.empty()) {
        output_.complain(made.complaint);
        all_.add(Code::invalid_url);
    }
    for (JobRequest& request : made.jobs) {
        const bool is_torrent = request.kind == JobKind::torrent;
        const CJobQueue::Id id = is_torrent ? queue_.take_id() : queue_.next_id();
        CJobLog::Listener listener;
        if (verbose_) listener = [this, id](const CLogNode& line) { output_.log_line(id, line); };
        if (is_torrent) {
            torrents_.add(id, std::move(request.job), std::move(listener));
        } else {
            queue_.add(std::move(request.job), run_, std::move(listener));
        }
    }
}

void GetRun::ended(const CJobQueue::Ended& job) {
    all_.add(job.outcome.result);
    output_.ended(job);
    if (!job.outcome.result.ok() || stop_.requested()) return;
    if (auto made = factory_.follow(*job.job, job.outcome)) file(std::move(*made));
}

void GetRun::drive(const std::function<void()>& tick) {
    constexpr std::chrono::seconds tick_interval{1};
    auto next_tick = from_now(tick_interval);
    while (((queue_.waiting() > 0 || torrents_.has_work()) && !stop_.requested()) || queue_.running() > 0) {
        queue_.start_waiting();
        torrents_.look();
        for (const CJobQueue::Ended& job : queue_.wait(output_.interval())) ended(job);
        output_.show(queue_);
        if (Clock::now() >= next_tick) {
            tick();
            next_tick = from_now(tick_interval);
        }
    }
    for (const CJobQueue::Ended& dropped : queue_.drop_waiting()) all_.add(dropped.outcome.result);
}

}  // namespace vantlow
