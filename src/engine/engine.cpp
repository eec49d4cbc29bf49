#include "engine/engine.h"

#include <algorithm>
#include <utility>

#include "base/text.h"
#include "bt/dht_service.h"
#include "bt/ip_filter_keeper.h"
#include "bt/magnet.h"
#include "bt/port_mapper.h"
#include "bt/torrent_settings.h"
#include "bt/tracker_list_keeper.h"
#include "engine/recovery.h"
#include "engine/selection.h"

namespace vantlow {
namespace {

using Fault = Done::Fault;

}  // namespace

Engine::Engine(std::unique_ptr<JobStore> store, Options options)
    : store_(std::move(store)),
      options_(std::move(options)),
      timetable_(*options_.clock),
      saver_(*store_, options_.settings,
             [this](const std::string& text) {
                 tell([&text](EngineListener& listener) { listener.store_said(text); });
             }),
      settings_version_(options_.settings.version()),
      torrents_(in_memory() ? std::u16string() : options_.data_folder),
      mover_(in_memory() ? std::u16string() : options_.data_folder, options_.stop) {
    for (CJobNode* job : store_->jobs_below(nullptr)) {
        decide_kind(*job);
        timetable_.take(*job);
    }
    watch_ = store_->watch([this](const StoreChange& change) { note(change); });
}

void Engine::note(const StoreChange& change) {
    using What = StoreChange::What;
    take_into_timetable(change);
    switch (change.what) {
        case What::job_added:
            return changes_.job(change.identity, job_field::added);
        case What::job_changed:
            return changes_.job(change.identity, change.fields);
        case What::job_removed:
            return changes_.job(change.identity, job_field::removed);
        case What::everything:
            changes_.everything();
            break;
        default:
            break;
    }
    changes_.categories();
}

Engine::~Engine() {
    if (runner_) end_running();
    forget_removed();
}

void Engine::run(Running running) {
    gathers_log_ = running.gathers_log;
    questions_.open_for(running.question_time, [this, wake = running.wake] {
        questions_changed_ = true;
        if (wake) wake();
    });
    saver_.begin(running.wake);
    if (!in_memory()) names_ = std::make_unique<NameKeeper>();
    ip_filter_ = std::make_unique<IpFilterKeeper>(options_.settings, options_.libraries.ssh, running.threads,
                                                  options_.data_folder);
    hash_table_ = std::make_unique<DhtService>(
        options_.libraries.btdht, options_.settings, running.connections.resolver,
        in_memory() ? std::u16string() : options_.data_folder, ip_filter_.get());
    port_mapper_ = std::make_unique<PortMapper>(options_.libraries.portmap, PortMapper::Calls::ipv4);
    // A thread of its own: each of them waits for its router for seconds.
    firewall_opener_ = std::make_unique<PortMapper>(options_.libraries.portmap, PortMapper::Calls::ipv6);
    tracker_list_ = std::make_unique<TrackerListKeeper>(options_.settings, running.connections,
                                                        options_.libraries, running.threads, options_.stop,
                                                        options_.data_folder, !in_memory());
    runner_ = std::make_unique<SessionRunner>(SessionRunner::Tools{
        *store_,
        changes_,
        questions_,
        *options_.sessions,
        options_.settings,
        options_.libraries,
        running.connections,
        running.threads,
        options_.stop,
        in_memory() ? std::u16string() : options_.data_folder,
        options_.data_folder,
        options_.agent,
        std::move(running.wake),
        running.gathers_log,
        options_.keeps_state,
        names_.get(),
        std::move(running.before_name),
        [this] { serve(); },
        &torrents_,
        options_.sharing,
        running.shares_finished,
        {hash_table_.get(), ip_filter_.get(), port_mapper_.get(), firewall_opener_.get(),
         tracker_list_.get()},
        [this](const Guid& job) { return is_moving(job) || torn_moves_.contains(job); }});
    mover_.begin(running.threads, [this] { runner_->wake(); });
    go_on_moving();
    shares_finished_ = running.shares_finished;
    if (shares_finished_) go_on_sharing();
}

// Shares what was shared when the program ended.
void Engine::go_on_sharing() {
    for (const CJobNode* job : store_->jobs_below(nullptr)) {
        if (is_to_be_shared(*job) && !is_moving(job->identity)) runner_->share(job->identity, job->finished);
    }
}

void Engine::end_running() {
    mover_.end();
    runner_.reset();
    tracker_list_.reset();
    // Both routers are told at the same time.
    for (PortMapper* const mapper : {port_mapper_.get(), firewall_opener_.get()}) {
        if (mapper != nullptr) mapper->end();
    }
    firewall_opener_.reset();
    port_mapper_.reset();
    hash_table_.reset();
    ip_filter_.reset();
    names_.reset();
    saver_.end();
    questions_.open_for({}, {});
}

// Goes on saving, and takes the names that sessions are about to give their files into the store; then these
// sessions go on.
void Engine::serve() {
    saver_.work();
    if (!names_) return;
    const NameKeeper::Waiting names = names_->take();
    if (names.empty()) return;
    for (const auto& naming : names) {
        CJobNode* const record = store_->find(naming->job);
        if (record == nullptr) continue;
        record->path = naming->path;
        record->file_size = naming->size;
        store_->changed(*record, StoreChange::place | StoreChange::positions);
    }
    // Where it cannot be made safe the file gets its name all the same, since nothing was promised.
    saver_.when_safe([this, names] { names_->let_go(names); });
}

void Engine::run_only_started() {
    runner_->only_named();
}

void Engine::pump(std::chrono::milliseconds at_most) {
    if (at_most.count() > 0) runner_->wait(at_most);
    serve();
    take_ends();
    take_answers();
    runner_->start_waiting();
    // Jobs that this program does not carry out, and those that ended meanwhile: their places wait for
    // others.
    if (take_ends()) runner_->wake();
    if (take_moves()) runner_->wake();
    saver_.commit();
    tell_questions();
    deliver();
}

bool Engine::take_ends() {
    if (gathers_log_) {
        const std::vector<LogLine> lines = runner_->take_log();
        if (!lines.empty()) tell([&lines](EngineListener& listener) { listener.logged(lines); });
    }
    std::vector<JobEnd> ends = runner_->take_ends();
    for (JobEnd& end : ends) take_end(end);
    return !ends.empty();
}

void Engine::take_end(JobEnd& end) {
    CJobNode* const record = store_->find(end.job->identity);
    std::optional<Followed> followed;
    const bool was_shared = end.shares && !end.goes_on;
    if (record != nullptr && !was_shared && kind_of(*record) == JobKind::torrent && end.outcome.result.ok())
        tell([record](EngineListener& listener) { listener.data_complete(record->identity); });
    const bool is_leaving = leaving_.contains(end.job->identity);
    if (record != nullptr && !is_leaving && !end.goes_on && !was_shared && end.outcome.result.ok())
        followed = follow(*record, end);
    end.gave_way = followed && followed->gave_way;
    tell([&end](EngineListener& listener) { listener.ended(end); });
    if (followed) tell([&followed](EngineListener& listener) { listener.followed(*followed); });
    if (record == nullptr || end.gave_way) return;
    if (!end.goes_on) return file_ended(*record, end);
    if (end.shares) move_finished(*record);
}

// Updates the record of a job that ended.
void Engine::file_ended(CJobNode& record, const JobEnd& end) {
    if (const auto at = leaving_.find(record.identity); at != leaving_.end()) {
        const Leaving leaving = at->second;
        leaving_.erase(at);
        if (remove_now(record, leaving.files, leaving.is_remembered).ok()) return;
    }
    if (in_memory()) {
        const bool over = record.state == JobState::finished || record.state == JobState::failed;
        if (over || end.stop_asked) store_->remove(record);
        return;
    }
    if (end.question && record.state == JobState::failed) questions_.leave(*end.question);
    if (!end.shares) move_finished(record);
}

void Engine::move_finished(CJobNode& record) {
    if (record.state == JobState::finished && options_.settings.flag(setting::move_completed))
        store_->move(record, store_->completed());
}

// Replaces a fetched document with the jobs that it names: its record goes with its file.
std::optional<Followed> Engine::follow(CJobNode& document, const JobEnd& end) {
    if (!options_.follows || options_.stop.requested()) return std::nullopt;
    std::optional<MadeJobs> made;
    if (maker_) {
        made = maker_->follow(*end.job, end.outcome);
    } else {
        JobMaker maker(draft_of(document, end.outcome), options_.credentials);
        maker.keep_torrents(torrents_);
        maker.use_tracker(default_tracker(options_.settings));
        made = maker.follow(document, end.outcome);
    }
    if (!made) return std::nullopt;
    const bool gives_way = !made->jobs.empty() && !made->document_stays;
    Followed followed{document.identity, gives_way, {}, std::move(made->faults)};
    const bool named = runner_->is_named(document.identity);
    file_made(std::move(made->jobs), document.category, followed.jobs);
    if (document.rules && document.rules->asks_which) ask_which(followed.jobs, name_of(end.outcome.path));
    for (const Guid& job : followed.jobs) {
        if (named) runner_->name(job);
    }
    if (gives_way) {
        questions_.withdraw(document.identity);
        store_->remove(document);
    }
    return followed;
}

// Turns an answer into a rule of the job's own. False where the job stays as it is.
bool Engine::take_answer(CJobNode& job, const QuestionBoard::Answered& one) {
    JobRules rules = job.rules ? *job.rules : JobRules();
    const QuestionAnswer& answer = one.answer;
    switch (one.question.kind) {
        case QuestionKind::credentials:
            if (answer.user.empty()) return false;
            job.user = answer.user;
            job.password = answer.password;
            return true;
        case QuestionKind::certificate:
            rules.insecure = true;
            break;
        case QuestionKind::overwrite:
            rules.overwrite = answer.yes ? 2 : 0;
            break;
        case QuestionKind::host_key:
        case QuestionKind::which_files:
            return false;
    }
    if (!answer.yes && !answer.rename) return false;
    job.rules = std::make_shared<const JobRules>(std::move(rules));
    return true;
}

// The jobs are filed at once, so that nothing is lost whatever happens before the answer.
void Engine::ask_which(const std::vector<Guid>& jobs, const std::u16string& document) {
    if (jobs.size() < 2 || !questions_.can_ask()) return;
    Question question;
    question.kind = QuestionKind::which_files;
    question.path = document;
    for (const Guid& identity : jobs) {
        CJobNode& job = *store_->find(identity);
        const bool starts = job.state == JobState::waiting;
        const std::int64_t size = job.sources && job.sources->size >= 0 ? job.sources->size : -1;
        const std::u16string& name = job.file_name.empty() ? job.address : job.file_name;
        question.files.push_back({identity, name, size, starts});
        if (starts) store_->set_state(job, JobState::stopped);
    }
    questions_.leave(std::move(question));
}

bool Engine::awaits_choice() const {
    return !options_.stop.requested() && questions_.has(QuestionKind::which_files);
}

void Engine::choose_files(const Question& question, const QuestionAnswer& answer) {
    const auto chosen = select(answer.selection, question.files.size());
    for (std::size_t i = 0; i < question.files.size(); ++i) {
        const Question::File& file = question.files[i];
        CJobNode* const job = store_->find(file.job);
        if (job == nullptr || job->state != JobState::stopped) continue;  // somebody else decided about it
        const bool is_meant =
            !answer.none && (!chosen || std::find(chosen->begin(), chosen->end(), i) != chosen->end());
        if (!is_meant) static_cast<void>(remove(file.job, false));
        if (is_meant && file.starts) static_cast<void>(start(file.job));
    }
}

void Engine::take_answers() {
    for (const QuestionBoard::Answered& one : questions_.take_answered()) {
        if (one.question.kind == QuestionKind::which_files) {
            choose_files(one.question, one.lapsed ? QuestionAnswer() : one.answer);
            continue;
        }
        CJobNode* const job = store_->find(one.question.job);
        if (one.lapsed || job == nullptr || !take_answer(*job, one)) continue;
        store_->changed(*job, StoreChange::options);
        static_cast<void>(start(job->identity));
    }
}

void Engine::tell_questions() {
    if (!questions_changed_.exchange(false)) return;
    changes_.questions();
    const std::vector<Question> open = questions_.open();
    tell([&open](EngineListener& listener) { listener.asked(open); });
}

void Engine::deliver() {
    const auto now = std::chrono::steady_clock::now();
    if (listeners_.empty() || now < next_delivery_) return;
    next_delivery_ = now + options_.change_interval;
    if (runner_) runner_->note_progress();
    if (!changes_.has_news()) return;
    const Changes changes = changes_.deliver();
    tell([&changes](EngineListener& listener) { listener.changed(changes); });
}

void Engine::tick() {
    options_.settings.refresh();
    if (std::exchange(settings_version_, options_.settings.version()) != settings_version_)
        changes_.settings();
    if (runner_) keep_to_times();
    if (runner_) runner_->tick();
    saver_.tick();
}

void Engine::settle(JobStore::Settled settled) {
    saver_.settle(std::move(settled));
}

void Engine::save_behind() {
    if (runner_) runner_->refresh_records();
    saver_.save_behind();
}

bool Engine::save(std::string& error) {
    if (runner_) runner_->refresh_records();
    return !store_->is_dirty() || store_->save(options_.settings, error);
}

bool Engine::close(std::string& error) {
    if (runner_) {
        // A later run fetches what nobody chose from.
        for (const Question& question : questions_.open()) {
            if (question.kind == QuestionKind::which_files) choose_files(question, {});
        }
        runner_->stop_all();
        runner_->wait_for_all();
        take_ends();
        mover_.end();
        take_moves();
        runner_->write_logs();
    }
    const bool has_any = store_->is_dirty() || (runner_ && store_->owes_files(options_.settings));
    return !has_any || store_->save(options_.settings, error);
}

// ---- Looking.

std::vector<const CJobNode*> Engine::find_by_digits(std::string_view digits) const {
    const auto found = store_->find_by_digits(digits);
    return {found.begin(), found.end()};
}

std::vector<const CJobNode*> Engine::jobs_below(const CClassNode* category) const {
    CClassNode* const node = category == nullptr ? nullptr : store_->tree().find(category->identity);
    const auto jobs = store_->jobs_below(node);
    return {jobs.begin(), jobs.end()};
}

const CClassNode* Engine::find_category(const Guid& category) const {
    return store_->tree().find(category);
}

std::vector<const CClassNode*> Engine::find_category(std::u16string_view name) const {
    const auto found = store_->tree().find_named(name);
    return {found.begin(), found.end()};
}

std::vector<const CClassNode*> Engine::categories() const {
    const auto all = store_->tree().all();
    return {all.begin(), all.end()};
}

std::optional<JobProgress> Engine::progress(const Guid& job) const {
    return runner_ ? runner_->progress(job) : std::nullopt;
}

std::vector<SessionConnection> Engine::connections(const Guid& job) const {
    return runner_ ? runner_->connections(job) : std::vector<SessionConnection>();
}

std::vector<RunningJob> Engine::running_jobs() const {
    return runner_ ? runner_->running_jobs() : std::vector<RunningJob>();
}

std::vector<RunningJob> Engine::sharing_jobs() const {
    return runner_ ? runner_->sharing_jobs() : std::vector<RunningJob>();
}

std::vector<const CJobNode*> Engine::queue() const {
    std::vector<const CJobNode*> jobs;
    jobs.reserve(store_->waiting().size());
    for (const auto& [order, job] : store_->waiting()) jobs.push_back(job);
    return jobs;
}

std::size_t Engine::waiting() const {
    return runner_ ? runner_->waiting() : store_->waiting().size();
}

std::string Engine::torrent_info(const CJobNode& job) const {
    const auto magnet =
        kind_of(job) == JobKind::torrent ? parse_magnet(to_utf8(job.address), {}) : std::nullopt;
    return magnet ? torrents_.find_info(magnet->info_hash) : std::string();
}

std::optional<TorrentReport> Engine::torrent_report(const Guid& job, unsigned parts) const {
    const CJobNode* const record = store_->find(job);
    if (record == nullptr || kind_of(*record) != JobKind::torrent) return std::nullopt;
    TorrentReport report;
    if (!runner_ || !runner_->report(job, parts, report)) {
        TorrentReport at_rest = report_at_rest(*record, torrent_info(*record), parts);
        at_rest.phase = report.phase;
        at_rest.checked_pieces = report.checked_pieces;
        report = std::move(at_rest);
    }
    report.document = torrents_.find_facts(report.info_hash);
    return report;
}

std::vector<CLogNode> Engine::log_of(const Guid& job) {
    if (runner_) runner_->write_logs();
    return read_job_log(options_.data_folder, job);
}

// ---- Doing: see also job_operations.cpp and category_operations.cpp.

Done Engine::answer(std::uint64_t question, QuestionAnswer answer) {
    if (!questions_.answer(question, std::move(answer))) return {Fault::no_question};
    return {};
}

Done Engine::set_setting(std::u16string_view section, std::u16string_view key, std::u16string_view value) {
    const FileError error = options_.settings.write(section, key, value);
    if (!error.ok()) return {Fault::setting, error};
    changes_.settings();
    return {};
}

Done Engine::unset_setting(std::u16string_view section, std::u16string_view key) {
    const FileError error = options_.settings.erase(section, key);
    if (!error.ok()) return {Fault::setting, error};
    changes_.settings();
    return {};
}

Done Engine::set_limit(std::optional<std::int64_t> rate) {
    const auto write = [this](const NumberSetting& setting, std::int64_t value) {
        return set_setting(setting.section, setting.key, to_utf16(std::to_string(value)));
    };
    if (rate && *rate <= 0) return {Fault::bad_value};
    if (rate) {
        if (Done done = write(setting::speed_limit, *rate); !done.ok()) return done;
    }
    return write(setting::limit, rate ? 1 : 0);
}

}  // namespace vantlow
