// The engine's operations that give the files of jobs other names and other places.
#include <algorithm>
#include <memory>
#include <utility>

#include "base/safe_name.h"
#include "base/text.h"
#include "bt/magnet.h"
#include "engine/engine.h"
#include "engine/recovery.h"
#include "engine/torrent_files.h"
#include "storage/resume_state.h"
#include "store/job_log_file.h"

namespace vantlow {

using Fault = Done::Fault;

namespace {

// Files of other jobs, or of other people, keep their names.
Done look_at_target(const CJobNode& job, const std::u16string& to) {
    if (to.starts_with(job.path + path_separator())) return {Fault::bad_value};
    for (const std::u16string_view suffix : {std::u16string_view(), partial_suffix, state_suffix}) {
        if (path_kind(to + std::u16string(suffix)) != PathKind::none) return {Fault::name_taken, {}, to};
    }
    return {};
}

// Beside the name of a finished file the state is that of another download, unless a kill came between the
// two.
Relocation relocation_of_one_file(const CJobNode& job, const std::u16string& to, bool goes_on) {
    Relocation relocation;
    relocation.goes_on = goes_on;
    if (job.state == JobState::finished) {
        relocation.items.push_back({job.path, to});
        const std::u16string end(state_suffix);
        if (load_own_state(job.path + end, job.identity))
            relocation.items.push_back({job.path + end, to + end, false, true});
        return relocation;
    }
    // That of a run that ended with the wrong hash has a name of its own.
    if (job.path.ends_with(wrong_hash_suffix)) relocation.items.push_back({job.path, to});
    for (const std::u16string_view suffix : {partial_suffix, state_suffix}) {
        const std::u16string end(suffix);
        relocation.items.push_back({job.path + end, to + end, false, suffix == state_suffix});
    }
    return relocation;
}

// The disk of the files may be away: then they are not moved, and not forgotten either.
bool is_nothing_there(const CJobNode& job) {
    const auto has = [&job](std::u16string_view suffix) {
        return path_kind(job.path + std::u16string(suffix)) != PathKind::none;
    };
    if (job.state == JobState::finished) return !has({});
    const bool has_bytes = kind_of(job) == JobKind::torrent || written_end(job) > 0;
    return has_bytes && !has({}) && !has(partial_suffix) && !has(state_suffix);
}

Outcome<Relocation> find_files(const CJobNode& job, const std::u16string& to, const TorrentShelf& shelf,
                               bool goes_on, LogSink& log) {
    const auto magnet =
        kind_of(job) == JobKind::torrent ? parse_magnet(to_utf8(job.address), {}) : std::nullopt;
    if (!magnet) return relocation_of_one_file(job, to, goes_on);
    const auto content = read_torrent_content(shelf.find_info(magnet->info_hash), magnet->info_hash);
    if (!content)
        return Result(Code::local_file,
                      "Without the torrent's document nobody knows which files are its own.");
    return torrent_relocation(*content, job.path, to, job.finished, goes_on, log);
}

// A run that was killed may not have saved which name its job's file was given.
bool is_of(const FileMove& move, CJobNode& job) {
    const bool is_nameless = name_of(job.path).empty() && folder_of(job.path) == folder_of(move.from);
    if (is_nameless) job.path = move.from;
    return job.path == move.from;
}

Done done_of(const RelocationEnd& end) {
    if (end.error.ok()) return end.state == RelocationEnd::State::moved ? Done() : Done{Fault::moving};
    const bool is_taken = end.error.fault == FileFault::exists;
    return {is_taken ? Fault::name_taken : Fault::file, end.error, end.path};
}

}  // namespace

Done Engine::rename(const Guid& job, const std::u16string& name) {
    CJobNode* const record = store_->find(job);
    if (record == nullptr) return {Fault::no_job};
    if (name.empty() || safe_file_name(name) != name) return {Fault::name_refused};
    return ask_to_move(*record, {}, name);
}

Done Engine::move_files(const Guid& job, const std::u16string& folder, const std::u16string& name) {
    CJobNode* const record = store_->find(job);
    if (record == nullptr) return {Fault::no_job};
    if (!name.empty() && safe_file_name(name) != name) return {Fault::name_refused};
    if (folder.empty() || absolute_path(folder) != folder) return {Fault::bad_value};
    return ask_to_move(*record, folder, name);
}

// Faults that are known now are told now; the others, when the session has ended.
Done Engine::ask_to_move(CJobNode& job, const std::u16string& folder, const std::u16string& name) {
    const Guid identity = job.identity;
    if (is_moving(identity)) return {Fault::moving};
    if (Done done = end_left_over(job); !done.ok()) return done;
    const bool has_session = runner_ && runner_->holds_files(identity);
    if (!name_of(job.path).empty()) {
        const std::u16string to =
            join_path(folder.empty() ? folder_of(job.path) : folder, name.empty() ? name_of(job.path) : name);
        if (to == job.path) return {};
        if (Done done = look_at_target(job, to); !done.ok()) return done;
        if (!has_session && is_anothers_file(job)) return {Fault::anothers_file, {}, job.path};
    }
    failed_moves_.erase(identity);
    // The record's last place is to be safe before it gets another one.
    const bool is_free = !has_session && !(runner_ && mover_.is_planned(identity));
    if (is_free) {
        if (runner_ && runner_->is_sharing(identity)) runner_->stop(identity);  // it only waits for that
        Done done = begin_move(job, folder, name);
        if (!is_moving(identity)) after_move(identity, done, true);
        return done;
    }
    wanted_moves_[identity] = {folder, name, runner_->is_sharing(identity)};
    const bool takes_place = runner_->takes_place(identity);
    runner_->stop(identity);
    if (takes_place) runner_->start_again(identity, true);
    return {};
}

// No session of the job has its files.
Done Engine::begin_move(CJobNode& job, const std::u16string& folder, const std::u16string& name) {
    const std::u16string within = folder.empty() ? folder_of(job.path) : folder;
    // A run that was killed at its beginning has left the name beside the file alone.
    if (name_of(job.path).empty() && kind_of(job) == JobKind::transfer) {
        if (const auto state = ResumeIndex(folder_of(job.path)).take(job.identity))
            take_positions(job, *state);
    }
    if (name_of(job.path).empty()) {
        job.path = join_path(within, {});
        if (!name.empty()) job.file_name = name;
        store_->changed(job, StoreChange::place);
        return {};
    }
    const std::u16string to = join_path(within, name.empty() ? name_of(job.path) : name);
    if (to == job.path) return {};
    if (Done done = look_at_target(job, to); !done.ok()) return done;
    const bool is_torrent = kind_of(job) == JobKind::torrent;
    if (is_anothers_file(job) || (is_torrent && is_path_of_another(job)))
        return {Fault::anothers_file, {}, job.path};
    if (is_nothing_there(job)) return {Fault::file, {FileFault::not_found, 0}, job.path};
    return start_move(job, {job.identity, job.path, to}, false);
}

Done Engine::start_move(CJobNode& job, FileMove move, bool goes_on) {
    const std::shared_ptr<const CJobNode> twin = job.twin();
    const auto find = [this, twin, to = move.to, goes_on](LogSink& log) {
        return find_files(*twin, to, torrents_, goes_on, log);
    };
    const bool only_renames = folder_of(move.from) == folder_of(move.to);
    if (!runner_ || only_renames) return finish_move(mover_.move_now(std::move(move), find));
    const std::u16string to = move.to;
    const FileError error = mover_.start(std::move(move), find);
    changes_.job(job.identity, job_field::place | job_field::progress);
    return error.ok() ? Done() : Done{Fault::file, error, to};
}

// Brings the record to where its files are.
Done Engine::finish_move(const FileMover::Ended& ended) {
    using State = RelocationEnd::State;
    const Guid job = ended.move.job;
    Done done = done_of(ended.end);
    if (ended.end.state == State::cut_short) return done;  // the next run goes on
    if (!in_memory()) {
        JobLogFile file(options_.data_folder, job);
        CJobLog log([&file](const CLogNode& line) { file.add(line); });
        for (const CLogNode& line : ended.log) file.add(line);
        const std::string to = to_utf8(ended.move.to);
        if (done.ok()) log.line(Direction::note, "The files have moved to " + to + ".");
        if (ended.end.state == State::unchanged && ended.end.error.ok())
            log.line(Direction::note, "The files stay where they are: their move was called off.");
        if (!ended.end.error.ok())
            log.line(Direction::error, "The files could not be moved to " + to + ". " +
                                           to_utf8(ended.end.path) + ": " + ended.end.error.text());
    }
    CJobNode* const record = store_->find(job);
    if (ended.end.state == State::torn) {
        torn_moves_.insert(job);
        // Nobody waits for it; start() tries again.
        if (record != nullptr && record->state == JobState::waiting)
            store_->set_state(*record, JobState::stopped);
        return done;
    }
    if (ended.end.state == State::unchanged || record == nullptr) {
        mover_.forget(job);
        return done;
    }
    if (name_of(ended.move.to) != name_of(ended.move.from)) record->file_name = name_of(ended.move.to);
    record->path = ended.move.to;
    store_->changed(*record, StoreChange::place);
    if (!runner_) return done;  // the plan is read again when the record is on the disk, and dropped
    saver_.when_safe([this, job] { mover_.forget(job); });
    return done;
}

// A move that a kill has cut short, or that could not be taken back.
Done Engine::end_left_over(CJobNode& job) {
    const Guid identity = job.identity;
    std::optional<FileMove> move;
    for (const FileMove& one : mover_.left_over()) {
        if (one.job == identity) move = one;
    }
    if (torn_moves_.erase(identity) > 0) {
        if (const auto progress = mover_.progress(identity)) move = {identity, job.path, progress->to};
    }
    if (!move) return {};
    mover_.forget(identity);
    if (!is_of(*move, job)) return {};
    if (Done done = start_move(job, *std::move(move), true); !done.ok()) return done;
    return is_moving(identity) ? Done{Fault::moving} : Done();
}

void Engine::go_on_moving() {
    for (const FileMove& move : mover_.left_over()) {
        CJobNode* const record = store_->find(move.job);
        if (record == nullptr || !is_of(move, *record)) {
            mover_.forget(move.job);
            continue;
        }
        const Done done = start_move(*record, move, true);
        if (!done.ok()) failed_moves_[move.job] = done;
    }
}

void Engine::call_off_move(const Guid& job) {
    wanted_moves_.erase(job);
    mover_.call_off(job);
}

bool Engine::take_moves() {
    bool is_any = false;
    for (auto at = wanted_moves_.begin(); at != wanted_moves_.end();) {
        CJobNode* const record = store_->find(at->first);
        if (record != nullptr && (runner_->holds_files(at->first) || mover_.is_planned(at->first))) {
            ++at;
            continue;
        }
        const Guid job = at->first;
        const WantedMove wanted = std::move(at->second);
        at = wanted_moves_.erase(at);
        is_any = true;
        if (record == nullptr) continue;
        // A kill from here on finds it as it is to be.
        if (wanted.shares && record->state == JobState::finished) {
            set_to_be_shared(*record, true);
            store_->changed(*record, StoreChange::state);
        }
        const Done done = begin_move(*record, wanted.folder, wanted.name);
        if (!is_moving(job)) after_move(job, done, false);
    }
    for (const FileMover::Ended& ended : mover_.take_ended()) {
        const Done done = finish_move(ended);
        is_any = true;
        if (ended.end.state != RelocationEnd::State::cut_short) after_move(ended.move.job, done, false);
    }
    // Lists show how far the others are.
    if (mover_.has_any()) {
        for (const Guid& job : mover_.jobs()) changes_.job(job, job_field::progress);
    }
    return is_any;
}

// The job goes on, from wherever its files are.
void Engine::after_move(const Guid& job, const Done& done, bool is_told) {
    CJobNode* const record = store_->find(job);
    if (record == nullptr) return;
    if (done.fault != Fault::none && done.fault != Fault::moving) failed_moves_[job] = done;
    changes_.job(job, job_field::place | job_field::progress);
    if (const auto at = leaving_.find(job); at != leaving_.end()) {
        const Leaving leaving = at->second;
        leaving_.erase(at);
        if (remove_now(*record, leaving.files, leaving.is_remembered).ok()) return;
    }
    const bool was_called_off = done.fault == Fault::moving;
    if (!is_told && !was_called_off) tell([&](EngineListener& listener) { listener.moved(job, done); });
    if (!runner_ || torn_moves_.contains(job)) return;
    if (shares_finished_ && is_to_be_shared(*record) && !runner_->is_sharing(job))
        runner_->share(job, record->finished);
    runner_->filed();
}

bool Engine::is_moving(const Guid& job) const {
    return wanted_moves_.contains(job) || mover_.has(job);
}

std::optional<FileMoveProgress> Engine::file_move(const Guid& job) const {
    return mover_.has(job) ? mover_.progress(job) : std::nullopt;
}

Done Engine::last_move(const Guid& job) const {
    const auto at = failed_moves_.find(job);
    return at == failed_moves_.end() ? Done() : at->second;
}

}  // namespace vantlow
