#include "engine/session_runner.h"

#include <algorithm>
#include <ctime>
#include <utility>

#include "platform/file.h"

namespace vantlow {
namespace {

// Further lines are dropped: no reader falls so far behind and still wants them.
constexpr std::size_t most_lines = 100000;

// Sessions that end may wait for the names of their files, and others for their trackers.
constexpr std::chrono::milliseconds serving_step{20};
// Each has a thread and connections of its own.
constexpr std::size_t most_sharing = 100;

bool has_settled(const JobSession& session) {
    return session.settled().has_value();
}

}  // namespace

SessionRunner::SessionRunner(Tools tools)
    : tools_(std::move(tools)),
      stop_(tools_.stop),
      services_{tools_.connections, tools_.libraries, tools_.settings, stop_, tools_.threads} {}

SessionRunner::~SessionRunner() {
    stop_all();
    wait_for_all();
}

CJobLog::Listener SessionRunner::listener_of(Entry& entry, const Guid& job) {
    JobLogFile* const file = entry.file.get();
    if (!tools_.gathers_log) {
        if (file == nullptr) return {};
        return [file](const CLogNode& line) { file->add(line); };
    }
    return [this, file, number = entry.number, job](const CLogNode& line) {
        if (file != nullptr) file->add(line);
        const MutexLock guard(mutex_);
        if (lines_.size() < most_lines) lines_.push_back({number, line, job});
    };
}

TorrentSharing SessionRunner::sharing_for(const CJobNode& job,
                                          std::optional<std::int64_t> whole_since) const {
    TorrentSharing sharing = tools_.shares_finished ? sharing_of(job, tools_.settings) : tools_.sharing;
    sharing.whole_since = whole_since;
    return sharing;
}

SessionRunner::Entry& SessionRunner::make_entry(const CJobNode& job, const SessionKind& kind,
                                                std::optional<std::int64_t> whole_since) {
    auto made = std::make_unique<Entry>();
    Entry& entry = *made;
    entry.number = next_number_++;
    entry.kind = &kind;
    entry.path = job.path;
    if (!tools_.logs_in.empty()) entry.file = std::make_unique<JobLogFile>(tools_.logs_in, job.identity);
    entry.log = std::make_unique<CJobLog>(listener_of(entry, job.identity));
    ProxyFault fault;
    RunOptions options = run_options_of(job, tools_.settings, tools_.proxies_in, fault);
    options.default_agent = tools_.agent;
    options.keep_state = tools_.keeps_state;
    if (tools_.names != nullptr || tools_.before_name) {
        NameKeeper::Naming naming{job.identity, {}, 0, job.address, job.file_name};
        options.before_name = [this, naming](const std::u16string& path, std::int64_t size) mutable {
            naming.path = path;
            naming.size = size;
            // The name of a torrent's folder does not say that the files in it are whole.
            const bool says_the_end = path_kind(path) != PathKind::folder;
            if (tools_.before_name && says_the_end) tools_.before_name(naming);
            if (tools_.names != nullptr) tools_.names->wait_for(naming, [this] { wake(); });
        };
    }
    if (!fault.ok()) entry.log->line(Direction::error, fault.text_for_people());
    const auto on_end = [this, identity = job.identity] {
        {
            const MutexLock guard(mutex_);
            ended_.push_back(identity);
        }
        changed_.notify_all();
        if (tools_.wake) tools_.wake();
    };
    entry.session = kind.make({job.twin(), std::move(options), *entry.log, on_end, tools_.questions,
                               tools_.torrents, sharing_for(job, whole_since), tools_.torrent_services},
                              services_);
    sessions_[job.identity] = std::move(made);
    return entry;
}

std::unique_ptr<Inquiry> SessionRunner::inquire(const CJobNode& job, std::function<void()> wake) {
    ProxyFault fault;
    RunOptions options = run_options_of(job, tools_.settings, tools_.proxies_in, fault);
    options.default_agent = tools_.agent;
    return std::make_unique<Inquiry>(job, options, services_, std::move(wake));
}

CJobNode* SessionRunner::next_waiting() const {
    for (const auto& [order, job] : tools_.store.waiting()) {
        if (!may_begin(*job)) continue;
        const SessionKind* kind = find_session_kind(tools_.sessions, kind_of(*job));
        if (kind == nullptr || kind->takes_place) return job;
    }
    return nullptr;
}

// Ends a job of a kind that this program does not carry out.
void SessionRunner::end_without_session(CJobNode& job) {
    job.result = Code::unsupported;
    tools_.store.set_state(job, JobState::failed);
    JobEnd end;
    end.number = next_number_++;
    end.job = job.twin();
    end.outcome.result = Code::unsupported;
    end.outcome.path = job.path;
    ends_.push_back(std::move(end));
}

// False when the system has no thread for it now.
bool SessionRunner::launch(CJobNode& job, const SessionKind& kind) {
    const Guid identity = job.identity;
    Entry& entry = make_entry(job, kind);
    const Result began = entry.session->start();
    if (!began.ok() && places_ > 0) {
        // A thread becomes free when one of the others ends, at the latest.
        sessions_.erase(identity);
        return false;
    }
    if (!began.ok()) entry.session->fail(began);
    ++places_;
    tools_.store.set_state(job, JobState::running);
    return true;
}

bool SessionRunner::start_next() {
    const auto most = static_cast<std::size_t>(tools_.settings.number(setting::max_jobs));
    if (stop_.requested() || places_ >= most) return false;
    CJobNode* const job = next_waiting();
    if (job == nullptr) return false;
    const SessionKind* const kind = find_session_kind(tools_.sessions, kind_of(*job));
    if (kind == nullptr) {
        end_without_session(*job);
        return true;
    }
    const bool interrupted = tools_.store.interrupted().erase(job->identity) > 0;
    const bool is_left = recovery_.catch_up(*job, interrupted);
    if (tools_.store.interrupted().empty()) recovery_.end();
    if (is_left) return launch(*job, *kind);
    tools_.store.set_state(*job, JobState::finished);
    if (tools_.settings.flag(setting::move_completed)) tools_.store.move(*job, tools_.store.completed());
    return true;
}

bool SessionRunner::start_waiting() {
    bool any = false;
    while (start_next()) any = true;
    while (start_sharing()) any = true;
    start_beside();
    return any;
}

void SessionRunner::share(const Guid& job, std::int64_t whole_since) {
    // A session that is about to end is followed by another one.
    if (!start_again(job)) to_share_.emplace_back(job, whole_since);
}

bool SessionRunner::start_sharing() {
    if (stop_.requested() || sharing_ >= most_sharing) return false;
    // One that was stopped for a move of its files goes on behind that.
    const auto next =
        std::ranges::find_if(to_share_, [this](const auto& one) { return !is_held(one.first); });
    if (next == to_share_.end()) return false;
    const auto [identity, whole_since] = *next;
    to_share_.erase(next);
    const CJobNode* const job = tools_.store.find(identity);
    if (job == nullptr || !is_to_be_shared(*job) || sessions_.contains(identity)) return true;
    const SessionKind* const kind = find_session_kind(tools_.sessions, kind_of(*job));
    if (kind == nullptr) return true;
    Entry& entry = make_entry(*job, *kind, whole_since);
    entry.shares = entry.told = true;
    ++sharing_;
    if (const Result began = entry.session->start(); !began.ok()) entry.session->fail(began);
    tools_.changes.job(identity, job_field::progress);
    return true;
}

// Starts the jobs that are looked after while their records go on waiting, as far as there is room.
void SessionRunner::start_beside() {
    if (stop_.requested() || !std::exchange(look_beside_, false)) return;
    std::vector<std::pair<CJobNode*, const SessionKind*>> found;
    std::unordered_map<JobKind, std::size_t> count = beside_;
    for (const auto& entry : leaving_) ++count[entry->kind->kind];
    std::size_t room = 0;
    for (const SessionKind& kind : tools_.sessions) {
        if (!kind.takes_place) room += kind.most_at_once - std::min(kind.most_at_once, count[kind.kind]);
    }
    if (room == 0) return;
    for (const auto& [order, job] : tools_.store.waiting()) {
        look_beside_ = look_beside_ || tools_.store.is_unsettled(*job);
        if (!may_begin(*job)) continue;
        const SessionKind* const kind = find_session_kind(tools_.sessions, kind_of(*job));
        if (kind == nullptr || kind->takes_place || count[kind->kind] >= kind->most_at_once) continue;
        ++count[kind->kind];
        found.emplace_back(job, kind);
        if (found.size() >= room) break;
    }
    for (const auto& [job, kind] : found) {
        Entry& entry = make_entry(*job, *kind);
        if (const Result began = entry.session->start(); !began.ok()) entry.session->fail(began);
        ++beside_[kind->kind];
    }
}

void SessionRunner::stop(const Guid& job) {
    std::erase_if(to_share_, [&job](const auto& one) { return one.first == job; });
    const auto at = sessions_.find(job);
    if (at == sessions_.end()) return;
    Entry& entry = *at->second;
    entry.stop_asked = true;
    entry.start_again = false;
    entry.session->stop();
    if (entry.kind->takes_place) return;
    --beside_[entry.kind->kind];
    leaving_.push_back(std::move(at->second));
    sessions_.erase(at);
}

bool SessionRunner::start_again(const Guid& job, bool first) {
    const auto at = sessions_.find(job);
    if (at == sessions_.end() || !at->second->stop_asked) return false;
    at->second->start_again = true;
    at->second->comes_first = first;
    return true;
}

void SessionRunner::take_rules(const Guid& job, const std::shared_ptr<const JobRules>& rules) {
    if (const auto at = sessions_.find(job); at != sessions_.end()) at->second->session->take_rules(rules);
}

void SessionRunner::take_trackers(const Guid& job, const std::vector<std::string>& trackers) {
    if (const auto at = sessions_.find(job); at != sessions_.end())
        at->second->session->take_trackers(trackers);
}

void SessionRunner::wait(std::chrono::milliseconds at_most) {
    MutexLock guard(mutex_);
    changed_.wait_for(guard, at_most,
                      [this]() VANTLOW_REQUIRES(mutex_) { return !ended_.empty() || woken_; });
    woken_ = false;
}

void SessionRunner::wake() {
    {
        const MutexLock guard(mutex_);
        woken_ = true;
    }
    changed_.notify_all();
    if (tools_.wake) tools_.wake();
}

void SessionRunner::take_end_of(Entry& entry, const Guid& identity) {
    const bool owes_choice = entry.session->owes_choice();
    SessionEnd end = entry.session->take_end();
    if (entry.file) entry.file->write();
    --(entry.shares ? sharing_ : entry.kind->takes_place ? places_ : beside_[entry.kind->kind]);
    CJobNode* const record = tools_.store.find(identity);
    if (record != nullptr && entry.shares) {
        take_end_of_sharing(entry, *record, *end.job, end.outcome.result);
    } else if (record != nullptr) {
        auto newer = record->twin();
        take_end(*newer, *end.job);
        // A job that only the end of the program stopped goes on when it is run again.
        const bool stopped = end.outcome.result.kind() == Kind::stopped;
        newer->state = stopped && !entry.stop_asked ? JobState::waiting : end.job->state;
        // A torrent that was whole just when it was to stop for a moment goes on with being shared.
        const bool is_whole = newer->state == JobState::finished && kind_of(*newer) == JobKind::torrent;
        const bool goes_on_sharing =
            is_whole && entry.start_again && sharing_for(*newer, std::nullopt).goes_on;
        if (goes_on_sharing) set_to_be_shared(*newer, true);
        tools_.store.update(*record, std::move(newer));
        const bool wants_more = record->state == JobState::finished && owes_choice;
        if (wants_more || (stopped && entry.start_again)) tools_.store.queue_last(*record);
        if (stopped && entry.start_again && entry.comes_first) tools_.store.queue_first(*record);
        if (goes_on_sharing) to_share_.emplace_back(identity, record->finished);
    }
    JobEnd told{entry.number, std::move(end.job), std::move(end.outcome), std::move(end.question)};
    told.stop_asked = entry.stop_asked;
    told.shares = entry.shares;
    ends_.push_back(std::move(told));
}

// The record has been that of a finished job all the time. Only the end of the program leaves it one that is
// to be shared.
void SessionRunner::take_end_of_sharing(Entry& entry, CJobNode& record, CJobNode& ended,
                                        const Result& result) {
    auto newer = record.twin();
    take_positions(*newer, ended);
    const bool is_stopped = result.kind() == Kind::stopped;
    const bool goes_on = stop_.requested() && !entry.stop_asked && (result.ok() || is_stopped);
    if (!result.ok() && !is_stopped) {
        newer->state = JobState::failed;
        newer->result = result.code;
        newer->error = result.message();
    }
    set_to_be_shared(*newer, goes_on || entry.start_again);
    tools_.store.update(record, std::move(newer));
    if (entry.start_again) to_share_.emplace_back(record.identity, 0);
}

// The files of a torrent are there: from now on its job is a finished one, and takes no place.
void SessionRunner::begin_to_share(Entry& entry, JobEnd& told) {
    told.shares = entry.shares = true;
    --places_;
    ++sharing_;
    const JobProgress progress = entry.session->progress();
    told.outcome.path = progress.path;
    told.outcome.size = progress.size;
    told.outcome.received = progress.received;
    CJobNode* const record = tools_.store.find(told.job->identity);
    if (record == nullptr) return;
    auto newer = record->twin();
    if (const auto copy = entry.session->safe_copy()) take_positions(*newer, *copy);
    newer->state = JobState::finished;
    newer->result = Code::ok;
    newer->error.clear();
    newer->finished = static_cast<std::int64_t>(std::time(nullptr));
    entry.path = newer->path;
    set_to_be_shared(*newer, true);
    told.job = newer->twin();
    tools_.store.update(*record, std::move(newer));
}

// Files were chosen of a torrent that is shared: its job waits for another session, which fetches them.
void SessionRunner::fetch_more(const Guid& identity, Entry& entry) {
    entry.stop_asked = true;
    entry.session->stop();
    CJobNode* const record = tools_.store.find(identity);
    if (record == nullptr) return;
    set_to_be_shared(*record, false);
    tools_.store.queue_last(*record);
}

// Drops sessions that were asked to end and need no attention any more.
void SessionRunner::reap() {
    std::erase_if(leaving_, [this](std::unique_ptr<Entry>& entry) {
        if (!entry->session->has_ended()) return false;
        const SessionEnd end = entry->session->take_end();
        const bool log_goes = entry->log_goes;
        entry.reset();  // writes its log
        if (log_goes) remove_job_log(tools_.logs_in, end.job->identity);
        look_beside_ = true;  // there is room
        return true;
    });
}

// Reports each session once that need not be waited for any more; it goes on.
void SessionRunner::settle() {
    if (stop_.requested()) return;
    for (auto& [identity, entry] : sessions_) {
        entry->session->look();
        if (entry->shares && !entry->stop_asked && entry->session->owes_choice())
            fetch_more(identity, *entry);
        if (entry->told || !has_settled(*entry->session)) continue;
        entry->told = true;
        JobEnd told{entry->number, entry->session->job().twin(), {}};
        told.outcome.result = *entry->session->settled();
        told.goes_on = true;
        if (entry->kind->takes_place && entry->session->progress().shares) begin_to_share(*entry, told);
        ends_.push_back(std::move(told));
    }
}

std::vector<JobEnd> SessionRunner::take_ends() {
    std::vector<Guid> ended;
    {
        const MutexLock guard(mutex_);
        ended.swap(ended_);
    }
    for (const Guid& identity : ended) {
        const auto at = sessions_.find(identity);
        // Another session of the job may have begun since.
        if (at == sessions_.end() || !at->second->session->has_ended()) continue;
        const std::unique_ptr<Entry> entry = std::move(at->second);
        sessions_.erase(at);
        take_end_of(*entry, identity);
    }
    reap();
    settle();
    return std::exchange(ends_, {});
}

std::vector<LogLine> SessionRunner::take_log() {
    const MutexLock guard(mutex_);
    return std::exchange(lines_, {});
}

void SessionRunner::tick() {
    look_beside_ = true;
    write_logs();
    // After a crash the file is found again by its name.
    const auto has_new_name = [](const auto& one) {
        Entry& entry = *one.second;
        return entry.kind->takes_place && entry.session->progress().path != entry.path;
    };
    if (std::any_of(sessions_.begin(), sessions_.end(), has_new_name)) refresh_records();
}

void SessionRunner::wait_and_serve() {
    wait(serving_step);
    if (tools_.serve) tools_.serve();
}

void SessionRunner::note_progress() {
    for (auto& [identity, entry] : sessions_) {
        const JobProgress progress = entry->session->progress();
        const std::int64_t done = progress.done + progress.sent;
        if (std::exchange(entry->noted, done) != done) tools_.changes.job(identity, job_field::progress);
    }
}

void SessionRunner::refresh_records() {
    for (auto& [identity, entry] : sessions_) {
        CJobNode* const record = tools_.store.find(identity);
        const auto copy = record != nullptr ? entry->session->safe_copy() : nullptr;
        if (!copy) continue;
        const bool renamed = std::exchange(entry->path, copy->path) != copy->path;
        auto newer = record->twin();
        take_positions(*newer, *copy);
        if (renamed) {
            tools_.store.update(*record, std::move(newer));
        } else {
            tools_.store.update_positions(*record, std::move(newer));
        }
    }
}

void SessionRunner::stop_all() {
    stop_.request();
    std::vector<Guid> beside;
    for (const auto& [identity, entry] : sessions_) {
        // A job that ends with the program was not stopped by a person, so `stop_asked` stays as it is.
        if (entry->kind->takes_place) entry->session->stop();
        if (!entry->kind->takes_place) beside.push_back(identity);
    }
    for (const Guid& identity : beside) stop(identity);
}

void SessionRunner::wait_for_all() {
    std::vector<JobEnd> ends;
    while (!sessions_.empty() || !leaving_.empty()) {
        wait_and_serve();
        std::vector<JobEnd> more = take_ends();
        std::move(more.begin(), more.end(), std::back_inserter(ends));
    }
    ends_ = std::move(ends);
}

bool SessionRunner::takes_place(const Guid& job) const {
    const auto at = sessions_.find(job);
    return at != sessions_.end() && at->second->kind->takes_place && !at->second->shares;
}

bool SessionRunner::is_sharing(const Guid& job) const {
    const auto at = sessions_.find(job);
    if (at != sessions_.end()) return at->second->shares && !at->second->stop_asked;
    return std::any_of(to_share_.begin(), to_share_.end(),
                       [&job](const auto& one) { return one.first == job; });
}

bool SessionRunner::holds_files(const Guid& job) const {
    const auto at = sessions_.find(job);
    return at != sessions_.end() && at->second->kind->takes_place;
}

std::size_t SessionRunner::waiting() const {
    if (!only_named_) return tools_.store.waiting().size();
    return static_cast<std::size_t>(std::count_if(named_.begin(), named_.end(), [this](const Guid& identity) {
        const CJobNode* const job = tools_.store.find(identity);
        return job != nullptr && job->state == JobState::waiting;
    }));
}

bool SessionRunner::has_work() const {
    for (const auto& [identity, entry] : sessions_) {
        if (!entry->told && (entry->kind->takes_place || !stop_.requested())) return true;
    }
    if (stop_.requested()) return false;
    for (const auto& [order, job] : tools_.store.waiting()) {
        if (sessions_.contains(job->identity) || !may_run(*job)) continue;
        const SessionKind* const kind = find_session_kind(tools_.sessions, kind_of(*job));
        if (kind == nullptr || kind->takes_place) return true;
        const auto beside = beside_.find(kind->kind);
        if (beside == beside_.end() || beside->second < kind->most_at_once) return true;
    }
    return false;
}

std::optional<JobProgress> SessionRunner::progress(const Guid& job) const {
    const auto at = sessions_.find(job);
    if (at == sessions_.end() || !at->second->kind->takes_place) return std::nullopt;
    return at->second->session->progress();
}

std::vector<SessionConnection> SessionRunner::connections(const Guid& job) const {
    const auto at = sessions_.find(job);
    return at == sessions_.end() ? std::vector<SessionConnection>() : at->second->session->connections();
}

bool SessionRunner::report(const Guid& job, unsigned parts, TorrentReport& report) const {
    const auto at = sessions_.find(job);
    return at != sessions_.end() && at->second->session->report(parts, report);
}

std::vector<RunningJob> SessionRunner::running_jobs() const {
    return jobs_that(false);
}

std::vector<RunningJob> SessionRunner::sharing_jobs() const {
    return jobs_that(true);
}

std::vector<RunningJob> SessionRunner::jobs_that(bool share) const {
    std::vector<RunningJob> jobs;
    for (const auto& [identity, entry] : sessions_) {
        if (!entry->kind->takes_place || entry->shares != share) continue;
        jobs.push_back({entry->number, &entry->session->job(), entry->session->progress()});
    }
    std::sort(jobs.begin(), jobs.end(),
              [](const RunningJob& a, const RunningJob& b) { return a.number < b.number; });
    return jobs;
}

void SessionRunner::remove_log(const Guid& job) {
    if (tools_.logs_in.empty()) return;
    remove_job_log(tools_.logs_in, job);
    for (const auto& entry : leaving_) {
        if (entry->session->job().identity == job) entry->log_goes = true;
    }
}

void SessionRunner::write_logs() {
    for (auto& [identity, entry] : sessions_) {
        if (entry->file) entry->file->write();
    }
}

}  // namespace vantlow
