// The job store's way to the disk: commits into the journal, saves of the whole, and the folder that they go
// to.
#include <algorithm>
#include <iterator>
#include <limits>

#include "base/text.h"
#include "platform/local_text.h"
#include "store/job_store.h"

namespace vantlow {
namespace {

// More changes at once are as fast in a new database as in the journal.
constexpr std::size_t most_changes = 5000;
// A journal of this size is folded into the database; of a large database it may reach a part of its size.
constexpr std::uint64_t long_journal = 4U << 20U;
constexpr std::uint64_t part_of_database = 8;
// The longest time that a step of an image may keep the store's thread.
constexpr std::chrono::milliseconds image_step{5};

std::uint64_t size_of(const DatabaseImage& image) {
    std::uint64_t size = 0;
    for (const auto& piece : image) size += piece.size();
    return size;
}

// Empty where none is wished.
std::u16string backup_of_today(const Settings& settings) {
    const std::u16string folder = settings.text(setting::backup_to);
    return folder.empty() ? folder : backup_path(folder, short_date_today());
}

}  // namespace

void JobStore::note(Change what, const Guid& identity, const Guid& category, std::size_t place) {
    ++revision_;
    if (settings_ == nullptr) return;  // only a save will write it
    if (what == Change::job && !noted_jobs_.insert(identity).second) return;
    if (what == Change::job_removed) noted_jobs_.erase(identity);  // a job that comes back is noted anew
    noted_.push_back({what, identity, category, place});
}

void JobStore::write_behind(const Settings& settings, std::function<void()> wake) {
    settings_ = &settings;
    writer_->start(std::move(wake));
}

void JobStore::stop_writing_behind() {
    save_for_those_who_wait();
    while (is_saving()) {
        if (snapshot_) {
            snapshot_->go_on(std::chrono::steady_clock::time_point::max());
            hand_to_writer(*settings_);
        }
        writer_->wait();
        take_answers();
        save_for_those_who_wait();
    }
    writer_->finish();
    take_answers();
    settings_ = nullptr;
}

// Makes a batch in the order of the changes; it holds a job's fields as they are now.
JournalBatch JobStore::batch_of_changes() {
    JournalBatch batch;
    for (const Noted& noted : noted_) {
        switch (noted.what) {
            case Change::job:
                if (const CJobNode* job = find(noted.identity)) batch.job(*job, noted.category);
                break;
            case Change::job_removed:
                batch.job_removed(noted.identity);
                break;
            case Change::job_placed:
                batch.job_placed(noted.identity, noted.category, noted.place);
                break;
            case Change::category:
                if (const CClassNode* node = tree_.find(noted.identity)) batch.category(*node);
                break;
            case Change::category_removed:
                batch.category_removed(noted.identity);
                break;
        }
    }
    forget_noted();
    return batch;
}

void JobStore::forget_noted() {
    noted_.clear();
    noted_jobs_.clear();
}

void JobStore::commit(Settled settled, OnFailure rule) {
    Waiting waiting{0, std::move(settled), std::exchange(added_, {})};
    if (rule == OnFailure::keep) {
        for (const Guid& added : waiting.added) unsettled_.erase(added);
        waiting.added.clear();
    }
    if (noted_.empty() && !untold_) {
        // Earlier changes may still be on their way.
        if (!for_next_save_.empty()) {
            for_next_save_.push_back(std::move(waiting));
        } else if (!for_this_save_.empty()) {
            for_this_save_.push_back(std::move(waiting));
        } else if (!in_flight_.empty()) {
            waiting.ticket = in_flight_.back().ticket;
            in_flight_.push_back(std::move(waiting));
        } else {
            settle(waiting, {});
        }
        return;
    }
    std::string error;
    if (!may_write(error)) {
        forget_noted();
        untold_ = true;
        settle(waiting, error);
        return;
    }
    // A change must not stand in a journal without the changes that it builds on.
    if (untold_ || saving_untold_ || !writer_->can_append() || noted_.size() > most_changes) {
        forget_noted();
        untold_ = true;
        for_next_save_.push_back(std::move(waiting));
        save_for_those_who_wait();
        return;
    }
    waiting.ticket = writer_->append(batch_of_changes().payload());
    in_flight_.push_back(std::move(waiting));
}

void JobStore::keep(const CJobNode& job) {
    unsettled_.erase(job.identity);
    std::erase(added_, job.identity);
}

void JobStore::settle(Waiting& waiting, const std::string& error) {
    for (const Guid& identity : waiting.added) {
        unsettled_.erase(identity);
        CJobNode* const job = error.empty() ? nullptr : find(identity);
        if (job != nullptr) remove(*job);
    }
    if (waiting.settled) waiting.settled(error);
}

void JobStore::save_behind() {
    std::string error;
    if (is_saving() || (!is_dirty() && writer_->journal_size() == 0 && !owes_files(*settings_))) return;
    if (!may_write(error) || !begin_save(error)) failure_ = error;
}

// Only one save runs at a time: it may not hold the changes that are waited for.
void JobStore::save_for_those_who_wait() {
    if (is_saving() || for_next_save_.empty()) return;
    for_this_save_ = std::exchange(for_next_save_, {});
    std::string error;
    if (begin_save(error)) return;
    for (Waiting& one : std::exchange(for_this_save_, {})) settle(one, error);
}

bool JobStore::work() {
    take_answers();
    if (settings_ == nullptr) return false;
    save_for_those_who_wait();
    const std::uint64_t longest = std::max(long_journal, image_size_ / part_of_database);
    if (!save_failed_ && writer_->journal_size() > longest) save_behind();
    if (!snapshot_) return false;
    if (!snapshot_->go_on(std::chrono::steady_clock::now() + image_step)) return true;
    hand_to_writer(*settings_);
    return false;
}

void JobStore::take_answers() {
    for (const StoreWriter::Answer& answer : writer_->take_answers()) {
        std::string error;
        if (answer.ticket == save_ticket_) {
            end_save(answer);
            if (!answer.error.ok()) error = failure_;
        } else if (!answer.error.ok()) {
            untold_ = true;
            error = "The journal of the job database in " + to_utf8(options_.folder) +
                    " cannot be written: " + answer.error.text();
        }
        std::vector<Waiting> done;
        for (Waiting& waiting : in_flight_) {
            if (waiting.ticket == answer.ticket) done.push_back(std::move(waiting));
        }
        std::erase_if(in_flight_, [&](const Waiting& waiting) { return waiting.ticket == answer.ticket; });
        for (Waiting& waiting : done) settle(waiting, error);
    }
}

bool JobStore::begin_save(std::string& error) {
    if (!put_damaged_aside(error)) return false;
    saving_revision_ = revision_;
    saving_untold_ = std::exchange(untold_, false);
    if (!noted_.empty() && !saving_untold_ && writer_->can_append()) {
        in_flight_.push_back({writer_->append(batch_of_changes().payload()), {}, {}});
    } else if (!noted_.empty()) {
        forget_noted();
        saving_untold_ = true;
    }
    writer_->begin_image();
    snapshot_.emplace(tree_);
    return true;
}

void JobStore::hand_to_writer(const Settings& settings) {
    StoreWriter::Save save;
    save.image = snapshot_->take_image();
    snapshot_.reset();
    image_size_ = size_of(save.image);
    save.backup = backup_of_today(settings);
    backed_up_ = save.backup;
    lacks_copy_ = false;
    save_ticket_ = writer_->save(std::move(save));
    for (Waiting& one : for_this_save_) {
        one.ticket = save_ticket_;
        in_flight_.push_back(std::move(one));
    }
    for_this_save_.clear();
}

void JobStore::end_save(const StoreWriter::Answer& answer) {
    save_ticket_ = 0;
    saving_untold_ = false;
    save_failed_ = !answer.error.ok();
    copy_failed_ = !answer.copy.ok();
    const std::string where = to_utf8(options_.folder);
    if (save_failed_) {
        untold_ = true;
        failure_ = "The job database in " + where + " cannot be saved: " + answer.error.text();
        return;
    }
    saved_revision_ = saving_revision_;
    if (copy_failed_) {
        failure_ = "The copy of the job database in " + where + " cannot be written: " + answer.copy.text();
    } else if (!answer.backup.ok()) {
        failure_ = "The backup of the job database cannot be written: " + answer.backup.text();
    }
}

bool JobStore::owes_files(const Settings& settings) const {
    return !is_in_memory() && !newer_ && options_.can_save &&
           (lacks_copy_ || backup_of_today(settings) != backed_up_);
}

bool JobStore::save(const Settings& settings, std::string& error) {
    if (is_in_memory()) return true;
    writer_->wait();
    take_answers();
    untold_ = untold_ || (snapshot_ && saving_untold_);
    snapshot_.reset();  // a new image holds more
    std::vector<Waiting> waiting = std::exchange(for_this_save_, {});
    for (Waiting& one : std::exchange(for_next_save_, {})) waiting.push_back(std::move(one));
    if (!may_write(error) || !begin_save(error)) {
        for (Waiting& one : waiting) settle(one, error);
        return false;
    }
    snapshot_->go_on(std::chrono::steady_clock::time_point::max());
    hand_to_writer(settings);
    writer_->wait();
    failure_.clear();
    take_answers();
    error = take_failure();
    for (Waiting& one : waiting) settle(one, save_failed_ ? error : std::string());
    return !save_failed_ && !copy_failed_;
}

bool JobStore::may_write(std::string& error) {
    if (newer_) {
        error = "The job database is of a newer version and is not written.";
        return false;
    }
    if (!options_.can_save) {
        error = "The data folder " + to_utf8(options_.folder) + " cannot be written.";
        return false;
    }
    return hold_folder(error);
}

bool JobStore::put_damaged_aside(std::string& error) {
    if (!keep_damaged_) return true;
    std::u16string kept_as;
    const FileError kept = keep_damaged_database(options_.folder, kept_as);
    if (!kept.ok() && kept.fault != FileFault::not_found) {
        error =
            "The damaged job database in " + to_utf8(options_.folder) + " cannot be renamed: " + kept.text();
        return false;
    }
    if (kept.ok()) notes_.push_back("The damaged file is kept as " + to_utf8(kept_as) + ".");
    keep_damaged_ = false;
    return true;
}

// Looked at before every promise that something is safe, behind every write, and once a second. Within that
// second somebody else may own the folder that is there then, and no more looks would change that: such an
// owner finds the folder without a lock whatever this process does. Nothing is lost by it: that owner's jobs
// are filed beside these, or this process saves nothing and says so.
bool JobStore::hold_folder(std::string& error) {
    if (options_.lock == nullptr || options_.lock->is_in_place()) {
        folder_lost_ = false;
        return true;
    }
    const std::string where = "The data folder " + to_utf8(options_.folder);
    FileError failed;
    writer_->wait();  // it looks at the lock, too
    const DataFolderLock::Claim claim = options_.lock->claim_again(failed);
    if (claim == DataFolderLock::Claim::mine && options_.lock->is_in_place() && failed.ok()) {
        writer_->forget_folder();
        take_answers();
        // An image that was begun before does not hold the jobs that are found now.
        snapshot_.reset();
        std::move(for_this_save_.begin(), for_this_save_.end(), std::back_inserter(for_next_save_));
        for_this_save_.clear();
        StoredDatabase other = load_database_files(options_.folder);
        if (other.error.ok() && other.status != DatabaseLoad::Status::newer) {
            keep_damaged_ = other.damaged;
            take_over(std::move(other.tree));
            touch();
            if (options_.replaced) options_.replaced();
            notes_.push_back(where +
                             " was removed or replaced. The jobs are saved in the folder that is there now.");
            folder_lost_ = false;
            return true;
        }
        options_.can_save = false;  // that database must not be overwritten
        failed = other.error;
    }
    error = where + " was removed or replaced, and ";
    error += claim == DataFolderLock::Claim::taken ? "another Vantlow owns the folder that is there now"
             : failed.ok()                         ? "a newer Vantlow wrote the folder that is there now"
                           : "the folder that is there now cannot be used: " + failed.text();
    error += failed.ok() ? ": nothing is saved." : "";
    if (!std::exchange(folder_lost_, true)) {
        if (options_.replaced) options_.replaced();
        notes_.push_back(error);
    }
    return false;
}

// The jobs of another process that owned the folder for a while, filed beside those of this one.
void JobStore::take_over(CategoryTree other) {
    std::unordered_map<const CClassNode*, CClassNode*> own;
    for (CClassNode* theirs : other.all()) {
        CClassNode* const parent = theirs->parent != nullptr ? own.at(theirs->parent) : nullptr;
        CClassNode* mine = parent == nullptr ? tree_.root() : tree_.find(theirs->identity);
        if (mine == nullptr) {
            const auto alike = std::find_if(parent->children.begin(), parent->children.end(),
                                            [&](const auto& child) { return child->name == theirs->name; });
            mine = alike != parent->children.end() ? alike->get()
                                                   : &add_category(theirs->name, theirs->folder, *parent);
        }
        own[theirs] = mine;
        while (!theirs->jobs.empty()) {
            auto job = theirs->jobs.take(*theirs->jobs.front());
            if (find(job->identity) != nullptr) continue;
            if (job->state == JobState::running) job->state = JobState::waiting;
            keep(add(std::move(job), *mine));  // it is safe where it was found
        }
    }
}

}  // namespace vantlow
