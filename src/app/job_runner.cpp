#include "app/job_runner.h"

#include <algorithm>

#include "app/job_factory.h"
#include "app/job_plan.h"
#include "app/program_proxies.h"
#include "app/store_command.h"
#include "app/torrent_plans.h"
#include "base/text.h"
#include "platform/file_stamp.h"
#include "transfer/job/file_names.h"
#include "transfer/job/resume_state.h"

namespace vantlow {
namespace {

// How often what jobs wait for is looked at while their ends are waited for.
constexpr std::chrono::milliseconds ending_step{20};
// A disk that did not take it is not asked each second.
constexpr int ticks_after_failure = 10;

RunOptions options_of(const CJobNode& job, CFerrywellApp& app, Complaint& complaint) {
    RunOptions run;
    GetOptions options;
    options.proxy = to_utf8(job.proxy);
    static_cast<void>(read_run_options(options, run));  // was looked at when the job was made
    complaint = add_program_proxies(app, run);
    // Without the proxy that was asked for nothing is fetched: going directly may be what must not be.
    if (complaint) {
        run.proxy.kind = CProxyNode::http_tunnel;
        run.proxy.trouble = *complaint;
    }
    if (job.sources) run.hash = job.sources->whole;
    run.default_agent = u"Vantlow/" + app.version();
    return run;
}

CLogNode error_line(const std::string& text) {
    CLogNode line;
    line.time = std::chrono::duration_cast<std::chrono::milliseconds>(
                    std::chrono::system_clock::now().time_since_epoch())
                    .count();
    line.direction = Direction::error;
    line.text = text;
    return line;
}

void take_positions(CJobNode& job, CJobNode& from) {
    job.segments = std::move(from.segments);
    job.file_size = from.file_size;
    job.validators = from.validators;
    job.path = from.path;
    job.bit_map = std::move(from.bit_map);
    job.bit_count = from.bit_count;
    job.bit_map_mark = from.bit_map_mark;
}

// The job was cut off between the end of its file and the save that would have told: its partial file is
// gone, and under its name stands a file of its size that is younger than the job.
bool ended_unsaved(const CJobNode& job) {
    if (job.file_size <= 0 || name_of(job.path).empty()) return false;
    if (path_kind(job.path + std::u16string(partial_suffix)) != PathKind::none) return false;
    const FileStamp stamp = file_stamp(job.path);
    return stamp.there && stamp.size == job.file_size && stamp.modified / 1'000'000'000 >= job.created;
}

}  // namespace

JobRunner::JobRunner(CFerrywellApp& app, JobStore& store, ConnectionServices& connections,
                     ThreadPool& threads, Events events)
    : app_(app),
      store_(store),
      events_(std::move(events)),
      stop_(app.stop()),
      queue_({connections, app.libraries(), app.settings(), stop_, threads},
             [this] {
                 if (events_.wake) events_.wake();
             }),
      notes_told_(store.notes().size()),
      desk_({connections, app.libraries(), app.settings()}, stop_) {
    store_.write_behind(app.settings(), [this] {
        if (events_.wake) events_.wake();
    });
}

JobRunner::~JobRunner() {
    stop_.request();
    while (!running_.empty()) pump(std::chrono::milliseconds(100));
    store_.stop_writing_behind();
}

void JobRunner::start(CJobNode& job) {
    named_.insert(job.identity);
    new_torrents_ = true;
    if (job.state == JobState::running || job.state == JobState::waiting) return;
    if (job.state == JobState::finished) {
        job.segments.clear();
        job.file_size = -1;
        job.finished = 0;
        job.path = folder_of(job.path) + path_separator();
    }
    store_.queue_last(job);
}

void JobRunner::stop(CJobNode& job) {
    end_torrent(job.identity);
    const auto at = running_.find(job.identity);
    if (at != running_.end()) {
        at->second.stop_asked = true;
        queue_.stop(at->second.id);
    } else if (job.state == JobState::waiting) {
        store_.set_state(job, JobState::stopped);
    }
}

void JobRunner::wait_for_end(const CJobNode& job) {
    const Guid identity = job.identity;
    while (running_.contains(identity)) serve_while_ending();
}

// Jobs that end may wait for their files' names.
void JobRunner::serve_while_ending() {
    take_names();
    store_.work();
    for (CJobQueue::Ended& ended : queue_.wait(ending_step)) take_end(std::move(ended));
}

CJobNode* JobRunner::next_waiting() {
    for (const auto& [order, job] : store_.waiting()) {
        if (may_run(*job) && !store_.is_unsettled(*job) && job_kind(job->address) != JobKind::torrent)
            return job;
    }
    return nullptr;
}

bool JobRunner::has_work() {
    if (!running_.empty()) return true;
    return !stop_.requested() && (desk_.is_asking() || next_waiting() != nullptr);
}

// Brings the record up to what is on the disk. False when there is nothing left to run.
bool JobRunner::prepare(CJobNode& job) {
    const bool interrupted = store_.interrupted().erase(job.identity) > 0;
    if (interrupted && ended_unsaved(job)) {
        job.segments.clear();
        job.result = Code::ok;
        job.finished = file_stamp(job.path).modified / 1'000'000'000;
        store_.set_state(job, JobState::finished);
        if (app_.settings().flag(setting::move_completed)) store_.move(job, store_.completed());
        return false;
    }
    adopt_state(job, interrupted);
    return true;
}

// The state beside the partial file is newer than what the database knew, where the database knew of one at
// all.
void JobRunner::adopt_state(CJobNode& job, bool interrupted) {
    if (!name_of(job.path).empty()) {
        const auto state = load_resume_state(job.path + std::u16string(state_suffix));
        if (!state || state->identity != job.identity) return;
        state->path = job.path;
        take_positions(job, *state);
        return;
    }
    if (!interrupted) return;
    const std::u16string folder = folder_of(job.path);
    auto at = left_behind_.find(folder);
    if (at == left_behind_.end()) at = left_behind_.emplace(folder, ResumeIndex(folder)).first;
    if (const auto state = at->second.take(job.identity)) take_positions(job, *state);
    if (store_.interrupted().empty()) left_behind_.clear();
}

// A job's thread: its file is whole, and gets this name once the store would find it again under it. Were the
// name given first, a process that is killed in between would fetch the file once more, beside the first.
void JobRunner::record_name(const Guid& identity, const std::u16string& path, std::int64_t size) {
    const auto naming = std::make_shared<Naming>(Naming{identity, path, size, false});
    {
        const std::lock_guard guard(names_mutex_);
        names_.push_back(naming);
    }
    if (events_.wake) events_.wake();
    std::unique_lock guard(names_mutex_);
    names_changed_.wait(guard, [&] { return naming->done; });
}

void JobRunner::take_names() {
    std::vector<std::shared_ptr<Naming>> names;
    {
        const std::lock_guard guard(names_mutex_);
        names.swap(names_);
    }
    if (names.empty()) return;
    for (const auto& naming : names) {
        CJobNode* const record = store_.find(naming->identity);
        if (record == nullptr) continue;
        record->path = naming->path;
        record->file_size = naming->size;
        store_.changed(*record);
    }
    // Where it cannot be made safe the file gets its name all the same: nobody was promised anything.
    store_.commit([this, names](const std::string&) {
        {
            const std::lock_guard guard(names_mutex_);
            for (const auto& naming : names) naming->done = true;
        }
        names_changed_.notify_all();
    });
}

bool JobRunner::launch(CJobNode& job) {
    Running running;
    running.id = queue_.next_id();
    running.log = std::make_unique<JobLogFile>(app_.data_folder(), job.identity);
    running.path = job.path;
    JobLogFile* const log = running.log.get();
    const auto listener = [this, log, id = running.id](const CLogNode& line) {
        log->add(line);
        if (events_.log_line) events_.log_line(id, line);
    };
    Complaint complaint;
    RunOptions options = options_of(job, app_, complaint);
    if (complaint) listener(error_line(*complaint));
    options.before_name = [this, identity = job.identity](const std::u16string& path, std::int64_t size) {
        record_name(identity, path, size);
    };
    store_.set_state(job, JobState::running);
    running_.emplace(job.identity, std::move(running));
    queue_.add(job.twin(), std::move(options), listener);
    queue_.start_waiting();
    if (queue_.drop_waiting().empty()) return true;
    // The limit was lowered a moment ago, or everything is being stopped.
    running_.erase(job.identity);
    store_.set_state(job, JobState::waiting);
    return false;
}

bool JobRunner::start_next() {
    if (stop_.requested()) return false;
    const auto most = static_cast<std::size_t>(app_.settings().number(setting::max_jobs));
    if (running_.size() >= most) return false;
    CJobNode* job = next_waiting();
    if (job == nullptr) return false;
    return !prepare(*job) || launch(*job);
}

void JobRunner::take_end(CJobQueue::Ended ended) {
    const auto at = running_.find(ended.job->identity);
    CJobNode* record = store_.find(ended.job->identity);
    const bool stop_asked = at->second.stop_asked;
    at->second.log->write();
    running_.erase(at);
    if (record != nullptr) {
        auto newer = ended.job->twin();
        if (ended.outcome.result.kind() == Kind::stopped && !stop_asked) newer->state = JobState::waiting;
        newer->comment = record->comment;
        CJobNode& job = store_.replace(*record, std::move(newer));
        const bool followed = ended.outcome.result.ok() && follow(job, ended.outcome);
        const bool file_it =
            !followed && job.state == JobState::finished && app_.settings().flag(setting::move_completed);
        if (file_it) store_.move(job, store_.completed());
    }
    if (events_.ended) events_.ended(ended);
}

// A document that was fetched becomes the jobs that it names, in its place: its record goes with its file.
bool JobRunner::follow(CJobNode& job, const JobOutcome& outcome) {
    GetOptions options;
    options.folder = to_utf8(folder_of(outcome.path));
    options.connections = job.connections;
    options.user = to_utf8(job.user);
    options.password = to_utf8(job.password);
    options.referer = to_utf8(job.referer);
    options.agent = to_utf8(job.agent);
    options.cookie = to_utf8(job.cookie);
    JobFactory factory(options, netrc_lookup());
    auto made = factory.follow(job, outcome);
    if (!made) return false;
    if (!made->complaint.empty()) complain(made->complaint);
    CClassNode* category = store_.tree().find(job.category);
    if (category == nullptr) category = store_.tree().root();
    for (JobRequest& request : made->jobs) {
        request.job->proxy = job.proxy;
        request.job->state = JobState::waiting;
        if (only_named_ && named_.contains(job.identity)) named_.insert(request.job->identity);
        store_.add(std::move(request.job), *category);
    }
    new_torrents_ = new_torrents_ || !made->jobs.empty();
    if (made->jobs.empty() || made->document_stays) return false;
    store_.remove(job);
    return true;
}

void JobRunner::pump(std::chrono::milliseconds at_most) {
    store_.work();
    take_names();
    for (CJobQueue::Ended& ended : queue_.wait(at_most)) take_end(std::move(ended));
    while (start_next()) continue;
    if (new_torrents_) look_for_torrents();
    look_at_torrents();
    commit();
}

// The torrents among the jobs that wait, as far as the desk has room.
void JobRunner::look_for_torrents() {
    new_torrents_ = false;
    std::vector<CJobNode*> found;
    for (const auto& [order, job] : store_.waiting()) {
        if (stop_.requested() || found.size() >= TorrentDesk::most_at_once) break;
        if (job_kind(job->address) == JobKind::torrent && may_run(*job) && !desk_.has(job->identity))
            found.push_back(job);
    }
    for (CJobNode* job : found) {
        if (!desk_.is_full()) begin_torrent(*job);
    }
}

void JobRunner::begin_torrent(CJobNode& job) {
    Torrent& torrent = torrents_[job.identity];
    torrent.id = queue_.take_id();
    torrent.log = std::make_unique<JobLogFile>(app_.data_folder(), job.identity);
    Complaint complaint;
    const RunOptions options = options_of(job, app_, complaint);
    if (complaint) torrent.log->add(error_line(*complaint));
    desk_.begin(job, torrent_proxy(options),
                [this, log = torrent.log.get(), id = torrent.id](const CLogNode& line) {
                    log->add(line);
                    if (events_.log_line) events_.log_line(id, line);
                });
}

void JobRunner::end_torrent(const Guid& identity) {
    desk_.end(identity);
    const auto at = torrents_.find(identity);
    if (at == torrents_.end()) return;
    at->second.log->write();
    torrents_.erase(at);
}

// Each is told once as one that could not be fetched, and goes on waiting.
void JobRunner::look_at_torrents() {
    desk_.look([this](const Guid& identity, const std::string& summary) {
        const CJobNode* record = store_.find(identity);
        if (record == nullptr || !events_.ended) return;
        CJobQueue::Ended told{torrents_.at(identity).id, record->twin(), {}};
        told.job->address = shown_torrent(told.job->address);
        told.outcome.result = {Code::unsupported, summary};
        events_.ended(told);
    });
}

// What happened to jobs is made safe without anybody's waiting for it.
void JobRunner::commit() {
    if (pause_ > 0) return;
    store_.commit([this](const std::string& error) { tell(error); });
}

void JobRunner::settle(JobStore::Settled settled) {
    store_.commit(std::move(settled), JobStore::OnFailure::remove_added);
}

// A disk that stays full is told of once.
void JobRunner::tell(const std::string& failure) {
    if (!failure.empty()) pause_ = ticks_after_failure;
    if (!failure.empty() && failure != told_) complain(failure);
    told_ = failure;
    tell_notes();
}

void JobRunner::tell_notes() {
    while (notes_told_ < store_.notes().size()) complain(store_.notes()[notes_told_++]);
}

// The records of running jobs as they may be saved.
void JobRunner::refresh_records() {
    for (auto& [identity, running] : running_) {
        auto copy = queue_.safe_copy(running.id);
        CJobNode* const record = store_.find(identity);
        if (!copy || record == nullptr) continue;
        const bool renamed = copy->path != running.path;
        running.path = copy->path;
        copy->state = JobState::running;
        copy->comment = record->comment;
        if (renamed) {
            store_.replace(*record, std::move(copy));
        } else {
            store_.replace_positions(*record, std::move(copy));
        }
    }
}

void JobRunner::tick() {
    app_.settings().refresh();
    look_for_torrents();
    write_logs();
    if (pause_ > 0) --pause_;
    // The name of a file is what makes it found again after a crash.
    const auto has_new_name = [this](const auto& entry) {
        return queue_.progress(entry.second.id).path != entry.second.path;
    };
    if (std::any_of(running_.begin(), running_.end(), has_new_name)) refresh_records();
    std::string error;
    if (!store_.is_newer() && !store_.hold_folder(error)) pause_ = ticks_after_failure;
    tell_notes();
    if (const std::string failure = store_.take_failure(); !failure.empty()) tell(failure);
    commit();
}

void JobRunner::save() {
    if (store_.is_newer()) return;  // stays as it is
    refresh_records();
    store_.save_behind();
}

bool JobRunner::close(std::string& error) {
    stop_.request();
    desk_.end_all();
    while (!running_.empty()) serve_while_ending();
    write_logs();
    return !store_.is_dirty() || store_.save(app_.settings(), error);
}

std::optional<JobProgress> JobRunner::progress(const CJobNode& job) {
    const auto at = running_.find(job.identity);
    if (at == running_.end()) return std::nullopt;
    return queue_.progress(at->second.id);
}

void JobRunner::write_logs() {
    for (auto& [identity, running] : running_) running.log->write();
    for (auto& [identity, torrent] : torrents_) torrent.log->write();
}

}  // namespace vantlow
