// The engine's operations that take jobs away, begin them anew, or look at their files again.
#include <algorithm>
#include <set>
#include <utility>

#include "base/safe_name.h"
#include "base/text.h"
#include "bt/magnet.h"
#include "engine/engine.h"
#include "engine/recovery.h"
#include "engine/torrent_files.h"
#include "storage/resume_state.h"

namespace vantlow {
namespace {

using Fault = Done::Fault;

// Removes what is there of these, and notes it in `taken`: where it is in the bin, or nothing if it is
// erased.
Done remove_paths(const std::vector<std::u16string>& paths, Files files, std::vector<BinItem>& taken) {
    Done done;
    for (const std::u16string& path : paths) {
        BinItem item;
        const bool to_bin = files == Files::bin && path_kind(path) != PathKind::none;
        const FileError error = to_bin ? move_to_bin(path, item) : remove_file(path);
        if (!error.ok() && error.fault != FileFault::not_found) done = {Fault::file, error, path};
        if (error.ok()) taken.push_back(std::move(item));
    }
    return done;
}

// The file of a run that ended with the wrong hash, which keeps it under a name of its own.
bool is_kept_as_wrong(const CJobNode& job) {
    return job.state != JobState::finished && job.segments.empty() && job.path.ends_with(wrong_hash_suffix);
}

// Of a job whose bytes are not there any more: as before its first run.
void forget_bytes(CJobNode& job) {
    forget_run(job);
    job.validators = {};
    job.partial_mark = {};
    job.bit_map.clear();
    job.bit_count = 0;
    job.result = Code::ok;
    job.error.clear();
}

std::optional<InfoHash> torrent_of(const CJobNode& job) {
    if (kind_of(job) != JobKind::torrent) return std::nullopt;
    const auto magnet = parse_magnet(to_utf8(job.address), {});
    return magnet ? std::optional(magnet->info_hash) : std::nullopt;
}

void forget_checked(CJobNode& job) {
    job.bit_map.clear();
    job.bit_count = 0;
}

// Gives the file of a finished job the name of an unfinished one, with the state of the job beside it before:
// without it the next download of that name would take it for an abandoned one.
Done make_unfinished(CJobNode& job) {
    const std::u16string partial = job.path + std::u16string(partial_suffix);
    const std::u16string state = job.path + std::u16string(state_suffix);
    const bool is_own = load_own_state(state, job.identity) != nullptr;
    if (path_kind(partial) != PathKind::none) return {Fault::name_taken, {}, partial};
    if (!is_own && path_kind(state) != PathKind::none) return {Fault::name_taken, {}, state};
    job.partial_mark = mark_of(job.path, job);
    FileError error =
        job.partial_mark.is_set() ? save_resume_state(job, state) : FileError{FileFault::other, 0};
    if (error.ok()) error = rename_no_replace(job.path, partial);
    if (error.ok()) return {};
    static_cast<void>(remove_file(state));
    return {Fault::file, error, job.path};
}

// A torrent that is to be checked, or whose sharing failed, has its name already.
bool is_whole_torrent_file(const CJobNode& job) {
    const FileStamp stamp = file_stamp(job.path);
    return kind_of(job) == JobKind::torrent && stamp.there && stamp.size == job.file_size &&
           !was_written_since(stamp, job.finished);
}

bool has_hashes(const CJobNode& job) {
    return job.sources && (job.sources->whole || job.sources->pieces);
}

}  // namespace

// The same torrent, filed twice for one folder, has one set of files.
bool Engine::is_path_of_another(const CJobNode& job) const {
    const auto jobs = store_->jobs_below(nullptr);
    return std::ranges::any_of(jobs, [&job](const CJobNode* other) {
        return other != &job && other->kind == job.kind && other->path == job.path;
    });
}

// Removes the job's file, or the part of it on the disk.
Done Engine::remove_files(const CJobNode& job, Files files, std::vector<BinItem>& taken) const {
    if (files == Files::keep || name_of(job.path).empty()) return {};
    const std::u16string state = job.path + std::u16string(state_suffix);
    const auto torrent = torrent_of(job);
    if (torrent && is_path_of_another(job)) return {Fault::anothers_file, {}, job.path};
    if (torrent && path_kind(job.path) == PathKind::folder) {
        // Anything else that somebody has put into the folder comes back with it from the bin.
        if (files == Files::bin) return remove_paths({job.path, state}, files, taken);
        const auto content = read_torrent_content(torrents_.find_info(*torrent), *torrent);
        // Without the document nobody knows which files in there are the job's.
        if (!content) return {Fault::file, {FileFault::not_found, 0}, job.path};
        const Result removed = remove_torrent_files(*content, job.path, job.finished);
        if (!removed.ok()) return {Fault::file, {FileFault::other, removed.system_error}, job.path};
        taken.emplace_back();
        return {};
    }
    if (is_kept_as_wrong(job)) {
        const bool is_its_own = file_stamp(job.path).size == job.file_size;
        return is_its_own ? remove_paths({job.path}, files, taken) : Done();
    }
    if (is_anothers_file(job)) return {Fault::anothers_file, {}, job.path};
    const bool finished = job.state == JobState::finished;
    std::vector<std::u16string> paths{finished ? job.path : job.path + std::u16string(partial_suffix)};
    // Beside the name of a finished job it is that of another download, unless a crash came between the two.
    if (!finished || load_own_state(state, job.identity)) paths.push_back(state);
    if (!finished && is_whole_torrent_file(job)) paths.push_back(job.path);
    return remove_paths(paths, files, taken);
}

// The documents of torrents go with the last job that needs them.
void Engine::drop_torrents(const std::vector<const CJobNode*>& gone) {
    std::set<InfoHash> unneeded;
    for (const CJobNode* job : gone) {
        if (const auto torrent = torrent_of(*job)) unneeded.insert(*torrent);
    }
    if (unneeded.empty()) return;
    for (const CJobNode* job : store_->jobs_below(nullptr)) {
        if (const auto torrent = torrent_of(*job)) unneeded.erase(*torrent);
    }
    // One that stays for want of rights is found by nobody, and does no harm.
    for (const InfoHash& torrent : unneeded) static_cast<void>(torrents_.drop(torrent));
}

// From now on the last removal cannot be taken back.
void Engine::forget_removed() {
    std::vector<const CJobNode*> gone;
    for (const Remembered& one : removed_) gone.push_back(one.job.get());
    drop_torrents(gone);
    removed_.clear();
}

Done Engine::remove(const Guid& job, bool with_files) {
    CJobNode* const record = store_->find(job);
    if (record == nullptr) return {Fault::no_job};
    const Files files = with_files ? Files::erase : Files::keep;
    if (runner_) runner_->stop(job);
    call_off_move(job);
    const bool is_free = !runner_ || (!runner_->holds_files(job) && !is_moving(job));
    if (is_free) return remove_now(*record, files, false);
    leaving_[job] = {files, false};
    return {Fault::running};
}

Removed Engine::remove_all(const std::vector<Guid>& jobs, Files files) {
    forget_removed();
    for (auto& [job, leaving] : leaving_) leaving.is_remembered = false;
    Removed all;
    for (const Guid& job : jobs) {
        CJobNode* const record = store_->find(job);
        if (record == nullptr) continue;
        if (runner_) runner_->stop(job);
        call_off_move(job);
        if (runner_ && (runner_->holds_files(job) || is_moving(job))) {
            leaving_[job] = {files, true};
            ++all.waiting;
            continue;
        }
        Done done = remove_now(*record, files, true);
        if (done.ok()) ++all.removed;
        if (!done.ok()) all.failures.emplace_back(job, std::move(done));
    }
    return all;
}

// A job whose files could not be removed stays filed, unless its files were meant to stay.
Done Engine::remove_now(CJobNode& job, Files files, bool is_remembered) {
    std::vector<BinItem> taken;
    if (Done done = files == Files::keep ? Done() : end_left_over(job); !done.ok()) return done;
    if (Done done = remove_files(job, files, taken); !done.ok()) {
        for (const BinItem& item : taken) static_cast<void>(take_from_bin(item));
        return done;
    }
    const Guid identity = job.identity;
    if (torn_moves_.erase(identity) > 0) mover_.forget(identity);
    failed_moves_.erase(identity);
    const std::size_t place = store_->place_of(job);
    questions_.withdraw(identity);
    std::unique_ptr<CJobNode> gone = store_->remove(job);
    if (is_remembered && !in_memory()) {
        removed_.push_back({std::move(gone), place, std::move(taken)});
    } else {
        drop_torrents({gone.get()});
    }
    if (runner_) {
        runner_->remove_log(identity);
    } else {
        remove_job_log(options_.data_folder, identity);
    }
    return {};
}

std::size_t Engine::leaving_for_undo() const noexcept {
    return static_cast<std::size_t>(std::count_if(leaving_.begin(), leaving_.end(),
                                                  [](const auto& one) { return one.second.is_remembered; }));
}

Done Engine::undo_removal() {
    if (removals_to_undo() == 0) return {Fault::nothing_to_undo};
    // Those that have not ended yet only stop.
    std::erase_if(leaving_, [](const auto& one) { return one.second.is_remembered; });
    Done done;
    std::vector<Remembered> back = std::exchange(removed_, {});
    // Each was removed when those before it were gone already: the last one comes back first.
    for (auto one = back.rbegin(); one != back.rend(); ++one) {
        bool is_lost = false;
        for (const BinItem& item : one->files) {
            const FileError error = take_from_bin(item);
            if (!error.ok()) is_lost = true;
            if (!error.ok() && !item.from.empty()) done = {Fault::file, error, item.from};
        }
        if (is_lost) {
            forget_bytes(*one->job);
            one->job->state = JobState::failed;
            one->job->result = Code::local_file;
            one->job->error = "The file was removed with the job.";
        }
        CClassNode& category = *category_or_first(one->job->category);
        CJobNode& job = store_->add(std::move(one->job), category);
        store_->keep(job);
        store_->place(job, category, one->place);
        if (job.state == JobState::running) store_->set_state(job, JobState::stopped);
    }
    if (runner_) runner_->filed();
    return done;
}

Done Engine::start_over(const Guid& job) {
    CJobNode* const record = store_->find(job);
    if (record == nullptr) return {Fault::no_job};
    if (runner_ && runner_->holds_files(job)) return {Fault::running};
    if (is_moving(job)) return {Fault::moving};
    if (Done done = end_left_over(*record); !done.ok()) return done;
    if (runner_) runner_->stop(job);
    std::vector<BinItem> none;
    if (record->state != JobState::finished) {
        Done done = remove_files(*record, Files::erase, none);
        if (!done.ok() && done.fault != Fault::anothers_file) return done;
    }
    questions_.withdraw(job);
    if (runner_) runner_->name(job);
    auto anew = record->twin();
    forget_bytes(*anew);
    store_->update(*record, std::move(anew));
    store_->queue_last(*record);
    return {};
}

bool Engine::can_check(const Guid& job) const {
    const CJobNode* const record = store_->find(job);
    if (record == nullptr || is_running(job) || is_moving(job)) return false;
    if (kind_of(*record) == JobKind::torrent) return !name_of(record->path).empty();
    return kind_of(*record) == JobKind::transfer && has_hashes(*record) && record->file_size > 0 &&
           (record->state == JobState::finished || !record->segments.empty());
}

// An unfinished job without missing parts is checked before its file gets its name; so a finished one becomes
// that.
Done Engine::check(const Guid& job) {
    CJobNode* const record = store_->find(job);
    if (record == nullptr) return {Fault::no_job};
    if (is_running(job)) return {Fault::running};
    if (is_moving(job)) return {Fault::moving};
    if (Done done = end_left_over(*record); !done.ok()) return done;
    if (!can_check(job)) return {Fault::no_hash};
    // The parts that are wrong would be fetched anew into it.
    if (record->state == JobState::finished && is_anothers_file(*record))
        return {Fault::anothers_file, {}, record->path};
    auto again = record->twin();
    if (const auto torrent = torrent_of(*record)) {
        const auto content = read_torrent_content(torrents_.find_info(*torrent), *torrent);
        const Result doubted = content ? doubt_torrent_files(*content, record->path) : content.failure();
        if (!doubted.ok()) return {Fault::file, {FileFault::other, doubted.system_error}, record->path};
        again->finished = 0;
    } else if (record->state == JobState::finished) {
        again->segments.clear();
        again->append_segment(again->file_size, again->file_size);
        again->finished = 0;
        if (Done done = make_unfinished(*again); !done.ok()) return done;
    } else if (const std::u16string path = record->path + std::u16string(state_suffix);
               const auto state = load_own_state(path, job)) {
        forget_checked(*state);
        if (const FileError error = save_resume_state(*state, path); !error.ok())
            return {Fault::file, error, path};
    }
    forget_checked(*again);           // pieces that were checked once are checked again
    if (runner_) runner_->stop(job);  // it may be shared, or wait for that
    set_to_be_shared(*again, false);
    store_->update(*record, std::move(again));
    if (runner_) runner_->name(job);
    store_->queue_last(*record);
    store_->queue_first(*record);
    return {};
}

Done Engine::start_all(const Guid& category) {
    CClassNode* const node = store_->tree().find(category);
    if (node == nullptr) return {Fault::no_category};
    for (const CJobNode* job : store_->jobs_below(node)) {
        if (job->state != JobState::finished) static_cast<void>(start(job->identity));
    }
    return {};
}

Done Engine::stop_all(const Guid& category) {
    CClassNode* const node = store_->tree().find(category);
    if (node == nullptr) return {Fault::no_category};
    for (const CJobNode* job : store_->jobs_below(node)) static_cast<void>(stop(job->identity));
    return {};
}

}  // namespace vantlow
