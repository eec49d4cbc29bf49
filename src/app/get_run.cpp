#include "app/get_run.h"

#include "app/display_text.h"
#include "app/rate_text.h"
#include "app/torrent_plans.h"
#include "base/text.h"
#include "platform/console.h"
#include "transfer/job/file_names.h"

namespace vantlow {
namespace {

// A job that nobody watches is not to try for ever: something that is dead for a day is.
std::chrono::seconds patience_of(const GetOptions& options) {
    if (!options.give_up_after.empty())
        return parse_span(options.give_up_after).value_or(std::chrono::seconds(0));
    const bool is_watched = is_terminal(Stream::error) || is_terminal(Stream::output);
    return is_watched || options.retries ? std::chrono::seconds(0) : std::chrono::hours(24);
}

}  // namespace

bool Patience::is_over(CJobQueue::Id id, const JobProgress& progress, Clock::time_point now) {
    if (at_most_.count() == 0) return false;
    Seen& seen = seen_[id];
    if (seen.received != progress.received || progress.waiting_for.empty() || progress.awaits_place) {
        seen = {progress.received, now};
        return false;
    }
    return now - seen.since >= at_most_;
}

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
                torrent_proxy(run), global.json, output, all_),
      patience_(patience_of(options)) {}

void GetRun::file(MadeJobs made) {
    if (!made.complaint.empty()) {
        output_.complain(made.complaint);
        all_.add(Code::invalid_url);
    }
    for (JobRequest& request : made.jobs) {
        ++filed_;
        const bool is_torrent = request.kind == JobKind::torrent;
        if (!is_torrent && skip(request)) continue;
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

// True when an earlier run of the same list has fetched its file.
bool GetRun::skip(JobRequest& request) {
    const auto file = memory_ ? memory_->take(*request.job) : std::nullopt;
    if (!file) return false;
    JobOutcome outcome;
    outcome.path = file->path;
    outcome.size = file->size;
    outcome.skipped = true;
    output_.ended({queue_.take_id(), std::move(request.job), std::move(outcome)});
    return true;
}

void GetRun::ended(CJobQueue::Ended& job) {
    patience_.forget(job.id);
    const auto given_up = given_up_.find(job.id);
    if (given_up != given_up_.end() && job.outcome.result.kind() == Kind::stopped && !stop_.requested())
        job.outcome.result = given_up->second;
    JobOutcome& outcome = job.outcome;
    if (pipe_ != nullptr && outcome.result.ok()) {
        Result written = pipe_->offer(outcome.path, outcome.size);
        if (written.ok()) written = pipe_->finish(stop_);
        if (!written.ok()) outcome.result = std::move(written);
    }
    all_.add(outcome.result);
    std::optional<MadeJobs> made;
    if (outcome.result.ok() && !stop_.requested() && pipe_ == nullptr) {
        made = factory_.follow(*job.job, outcome);
        // Before it is told: what was told is not fetched again.
        if (!made && memory_ && filed_ > 1) memory_->add(*job.job, {outcome.path, outcome.size});
    }
    output_.ended(job);
    if (made) file(std::move(*made));
}

void GetRun::look_for_hopeless() {
    const auto now = Clock::now();
    for (const CJobQueue::Id id : queue_.running_ids()) {
        const JobProgress progress = queue_.progress(id);
        if (!patience_.is_over(id, progress, now)) continue;
        give_up(id, {Code::transient, "Given up after " + std::to_string(progress.attempts) +
                                          " attempts without a byte: " + progress.waiting_for});
    }
}

void GetRun::give_up(CJobQueue::Id id, Result why) {
    if (given_up_.emplace(id, std::move(why)).second) queue_.stop(id);
}

// What a hash is to be held against is not shown before.
void GetRun::feed_pipe() {
    for (const CJobQueue::Id id : queue_.running_ids()) {
        const JobProgress progress = queue_.progress(id);
        if (run_.hash || queue_.job(id).sources || name_of(progress.path).empty()) continue;
        Result offered = progress.restarts > 0 && progress.head > 0
                             ? pipe_->offer({}, 0)
                             : pipe_->offer(progress.path + std::u16string(partial_suffix), progress.head);
        if (!offered.ok()) give_up(id, std::move(offered));
    }
}

void GetRun::drive(const std::function<void()>& tick) {
    constexpr std::chrono::seconds tick_interval{1};
    auto next_tick = from_now(tick_interval);
    while (((queue_.waiting() > 0 || torrents_.has_work()) && !stop_.requested()) || queue_.running() > 0) {
        queue_.start_waiting();
        torrents_.look();
        for (CJobQueue::Ended& job : queue_.wait(output_.interval())) ended(job);
        output_.show(queue_);
        if (pipe_ != nullptr) feed_pipe();
        if (Clock::now() >= next_tick) {
            tick();
            look_for_hopeless();
            if (memory_) memory_->save();
            next_tick = from_now(tick_interval);
        }
    }
    for (const CJobQueue::Ended& dropped : queue_.drop_waiting()) all_.add(dropped.outcome.result);
    if (!memory_) return;
    if (const FileError error = memory_->close(status() == Exit::done && !stop_.requested()); !error.ok())
        output_.complain(to_utf8(memory_->path()) + ": " + error.text());
}

}  // namespace vantlow
