#include "app/cli/get/get_run.h"

#include "app/terminal/quantities.h"
#include "base/safe_name.h"
#include "base/text.h"
#include "platform/console.h"

namespace vantlow {
namespace {

// A job that nobody watches must not try for ever: a server that was dead for a day stays dead.
std::chrono::seconds patience_of(const GetOptions& options) {
    if (!options.give_up_after.empty())
        return parse_span(options.give_up_after).value_or(std::chrono::seconds(0));
    const bool is_watched = is_terminal(Stream::error) || is_terminal(Stream::output);
    return is_watched || options.job.retries ? std::chrono::seconds(0) : std::chrono::hours(24);
}

}  // namespace

bool Patience::is_over(const Guid& job, const JobProgress& progress, Clock::time_point now) {
    if (at_most_.count() == 0) return false;
    Seen& seen = seen_[job];
    if (seen.received != progress.received || progress.waiting_for.empty() || progress.awaits_place) {
        seen = {progress.received, now};
        return false;
    }
    return now - seen.since >= at_most_;
}

GetRun::GetRun(Engine& engine, JobOutput& output, StopSource& stop, ThreadPool& threads,
               const GetOptions& options)
    : TerminalClient(engine, output, stop, threads), patience_(patience_of(options)) {
    engine_.file_only([this](const CJobNode& job) { return is_wanted(job); });
}

// Returns false when an earlier run of the same list has fetched the job's file.
bool GetRun::is_wanted(const CJobNode& job) {
    ++filed_;
    const auto file = memory_ ? memory_->take(job) : std::nullopt;
    if (!file) return true;
    JobOutcome outcome;
    outcome.path = file->path;
    outcome.size = file->size;
    outcome.skipped = true;
    output_.ended(unused_number_--, job, outcome);
    return false;
}

void GetRun::add(const JobDraft& draft) {
    const Added added = engine_.add(draft);
    for (const DraftFault& fault : added.faults) output_.complain(text_of(fault));
    if (!added.faults.empty()) all_.add(Code::invalid_url);
}

// A kill between the file's name and the end of its job is no reason to fetch it once more.
void GetRun::before_name(const NameKeeper::Naming& naming) {
    if (memory_ && filed_ > 1) memory_->naming(naming);
}

void GetRun::ended(const JobEnd& end) {
    const Guid& job = end.job->identity;
    JobOutcome outcome = end.outcome;
    patience_.forget(job);
    const auto given_up = given_up_.find(job);
    if (given_up != given_up_.end() && outcome.result.kind() == Kind::stopped && !stop_.requested())
        outcome.result = given_up->second;
    if (pipe_ != nullptr && outcome.result.ok()) {
        Result written = pipe_->offer(outcome.path, outcome.size);
        if (written.ok()) written = pipe_->finish(stop_);
        if (!written.ok()) outcome.result = std::move(written);
    }
    // The memory comes before the report: a file that was reported is not fetched again.
    if (memory_ && filed_ > 1 && outcome.result.ok() && !end.gave_way)
        memory_->add(*end.job, {outcome.path, outcome.size});
    report_end(end, outcome);
    if (end.goes_on) settled_.push_back(job);
}

void GetRun::look_for_hopeless() {
    const auto now = Clock::now();
    for (const RunningJob& running : engine_.running_jobs()) {
        const JobProgress& progress = running.progress;
        if (!patience_.is_over(running.job->identity, progress, now)) continue;
        const std::string tries =
            progress.attempts > 0 ? " after " + std::to_string(progress.attempts) + " attempts" : "";
        give_up(running.job->identity,
                {Code::transient, "Given up" + tries + " without a byte: " + progress.waiting_for});
    }
}

void GetRun::give_up(const Guid& job, Result why) {
    if (given_up_.emplace(job, std::move(why)).second) static_cast<void>(engine_.stop(job));
}

void GetRun::look_at_clock() {
    if (!end_ || engine_.clock().now() < *end_ || stop_.requested()) return;
    ended_by_clock_ = true;
    output_.complain("The time is over. The same command goes on from here.");
    stop_.request();
}

// Offers the file as far as it is there. A file with a hash to check is offered at its end only.
void GetRun::feed_pipe() {
    for (const RunningJob& running : engine_.running_jobs()) {
        const JobProgress& progress = running.progress;
        if (running.job->sources || name_of(progress.path).empty()) continue;
        Result offered = progress.restarts > 0 && progress.head > 0
                             ? pipe_->offer({}, 0)
                             : pipe_->offer(progress.path + std::u16string(partial_suffix), progress.head);
        if (!offered.ok()) give_up(running.job->identity, std::move(offered));
    }
}

void GetRun::remove_settled() {
    // A settled job has been reported, and this command does not wait for what it does beyond that.
    for (const Guid& job : settled_) static_cast<void>(engine_.remove(job, false));
    settled_.clear();
}

void GetRun::drive() {
    constexpr std::chrono::seconds tick_interval{1};
    auto next_tick = from_now(tick_interval);
    engine_.pump();
    remove_settled();
    while (engine_.has_work()) {
        engine_.pump(output_.interval());
        remove_settled();
        output_.show(engine_);
        if (pipe_ != nullptr) feed_pipe();
        if (Clock::now() < next_tick) continue;
        next_tick = from_now(tick_interval);
        engine_.tick();
        look_for_hopeless();
        look_at_clock();
        if (memory_) memory_->save();
    }
    if (stop_.requested() && engine_.waiting() > 0) all_.add(Code::stopped);
    if (!memory_) return;
    if (const FileError error = memory_->close(status() == Exit::done && !stop_.requested()); !error.ok())
        output_.complain(to_utf8(memory_->path()) + ": " + error.text());
}

}  // namespace vantlow
