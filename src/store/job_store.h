// The job store of one data folder: the category tree, its jobs by their identities, and their way to the
// disk.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "store/category.h"
#include "store/data_folder_lock.h"
#include "store/database_files.h"
#include "store/database_snapshot.h"
#include "store/settings.h"
#include "store/store_changes.h"
#include "store/store_writer.h"

namespace vantlow {

/// Owns the records. One thread, which calls everything; who runs a job works on a twin of it.
///
/// A change is on the disk after save(), which writes the whole database, or after commit(), which writes the
/// changes into the journal beside it.
class JobStore {
  public:
    struct Options {
        std::u16string folder;           ///< the data folder
        std::u16string download_folder;  ///< of the default categories
        bool can_save = true;            ///< the folder is locked by this process and can be written
        /// The lock of the folder, checked before every write; null: no other process uses the folder.
        DataFolderLock* lock = nullptr;
        /// Called when the folder turned out to have been removed or replaced, before notes() says so. May be
        /// empty.
        std::function<void()> replaced{};
    };
    /// Loads the database of the folder, with the default categories where there is none. Null, with the
    /// reason in `error`, when the database is there but may not be read. With a database of a newer version
    /// the store is empty, has no root, and is never saved.
    static std::unique_ptr<JobStore> open(const Options& options, std::string& error);
    /// A store that is not on a disk, with the default categories: save() does nothing and succeeds.
    static std::unique_ptr<JobStore> in_memory(const std::u16string& download_folder);
    JobStore(const JobStore&) = delete;
    JobStore& operator=(const JobStore&) = delete;

    /// Sentences, UTF-8, for a person: about the loading, and later about the folder.
    [[nodiscard]] const std::vector<std::string>& notes() const noexcept { return notes_; }
    [[nodiscard]] bool is_newer() const noexcept { return newer_; }
    [[nodiscard]] bool is_in_memory() const noexcept { return options_.folder.empty(); }

    [[nodiscard]] CategoryTree& tree() noexcept { return tree_; }
    [[nodiscard]] std::size_t size() const noexcept { return index_.size(); }
    [[nodiscard]] CJobNode* find(const Guid& identity) noexcept;
    /// The jobs whose identity's digits (guid_digits()) begin with these; the search ends at the second.
    [[nodiscard]] std::vector<CJobNode*> find_by_digits(std::string_view digits);
    [[nodiscard]] CClassNode& category_of(const CJobNode& job);
    /// All jobs of a category and of those below it, in display order. Null: of the whole tree.
    [[nodiscard]] std::vector<CJobNode*> jobs_below(CClassNode* category);

    /// Files a job in a category, last in the queue; gives it an identity where it has none of its own.
    CJobNode& add(std::unique_ptr<CJobNode> job, CClassNode& category);
    std::unique_ptr<CJobNode> remove(CJobNode& job);
    /// Moves the job to the end of another category; where it is there already its place stays.
    void move(CJobNode& job, CClassNode& category);
    /// Moves the job to a place in a category, its own or another one; behind the last job where there are
    /// fewer.
    void place(CJobNode& job, CClassNode& category, std::size_t place);
    /// The place of a job in its category.
    [[nodiscard]] std::size_t place_of(const CJobNode& job) { return category_of(job).jobs.place_of(job); }
    /// Updates the job to a newer version of it; the record stays, and with it the place where it is filed.
    void update(CJobNode& job, std::unique_ptr<CJobNode> newer);
    /// Updates only the positions, which the state beside the partial file holds too: this is no change that
    /// commit() writes.
    void update_positions(CJobNode& job, std::unique_ptr<CJobNode> newer);
    void set_state(CJobNode& job, JobState state);
    /// The job becomes the last of those that wait.
    void queue_last(CJobNode& job);
    /// Swaps the places of two jobs that wait, or of two that do not.
    void swap_places(CJobNode& a, CJobNode& b);
    /// The job becomes the first of those that wait.
    void queue_first(CJobNode& job);
    /// The jobs that wait, by their order.
    [[nodiscard]] const std::set<std::pair<std::int32_t, CJobNode*>>& waiting() const noexcept {
        return waiting_;
    }
    /// The jobs that were running or waiting when they were loaded: the last process may have got further
    /// with them than the database knows; then only the states beside their files say so.
    [[nodiscard]] std::set<Guid>& interrupted() noexcept { return interrupted_; }
    CClassNode& add_category(std::u16string name, std::u16string folder, CClassNode& parent);
    /// Does what CategoryTree::remove does, and keeps the index up to date.
    bool remove_category(CClassNode& category);
    /// Does what CategoryTree::move does.
    bool move_category(CClassNode& category, CClassNode& parent);
    /// "Completed" below the root; made where it is missing.
    CClassNode& completed();

    /// Reports that these fields of the job, bits of StoreChange, were changed.
    void changed(CJobNode& job, std::uint32_t fields = StoreChange::all);
    /// Reports that the name or the folder of the category was changed.
    void changed(CClassNode& category);
    /// Reports a change of another kind: only save() makes it safe, and commit() saves.
    void touch();
    /// Calls the listener for all changes from now on, as long as the watch is kept.
    [[nodiscard]] StoreWatchers::Watch watch(StoreWatchers::Listener listener) {
        return watchers_.add(std::move(listener));
    }
    /// Of the last change.
    [[nodiscard]] std::uint64_t revision() const noexcept { return revision_; }
    /// True when something was changed that no save has written.
    [[nodiscard]] bool is_dirty() const noexcept { return revision_ != saved_revision_; }

    /// From now on a thread of the store writes, and commit() may be called. `wake` is called from any thread
    /// when work() has something to do. Both arguments must outlive stop_writing_behind().
    void write_behind(const Settings& settings, std::function<void()> wake);
    /// Ends the writing thread, once everything under way is on the disk; from then on only save() writes.
    void stop_writing_behind();

    enum class OnFailure { keep, remove_added };
    /// `error` is empty when it is all on the disk, else a sentence.
    using Settled = std::function<void(const std::string& error)>;
    /// Makes everything that was changed until now safe, and tells when it is; from this thread, at once or
    /// out of work(). With `remove_added` jobs that were added since the last commit are removed again where
    /// it fails. Only while writing behind.
    void commit(Settled settled, OnFailure rule = OnFailure::keep);
    /// Has a job that was added stay where its commit fails: one that was removed before and comes back.
    void keep(const CJobNode& job);
    /// True for a job whose adding is not safe yet, and may be taken back: nothing should be done for it.
    [[nodiscard]] bool is_unsettled(const CJobNode& job) const { return unsettled_.contains(job.identity); }
    /// Begins to save in the background where there is anything to save, or a file is owed; only while
    /// writing behind.
    void save_behind();
    /// True where the copy of the database was missing at the start, or there is no backup of today, which
    /// the settings want, from this run: both come with the next save.
    [[nodiscard]] bool owes_files(const Settings& settings) const;
    /// To be called after a wake: tells who waits, and goes on with what is to be written, for some
    /// milliseconds at most. True when it is to be called again as soon as others had their turn.
    bool work();
    /// The sentence of the last save in the background that failed, or whose copy or backup did; given once.
    [[nodiscard]] std::string take_failure() { return std::exchange(failure_, {}); }

    /// Writes the database, its copy, and today's backup where the settings name a folder for it. A failure
    /// leaves the store dirty; the sentence says what failed. A failure of the backup is only told.
    bool save(const Settings& settings, std::string& error);
    /// Checks that the data folder is still the one that is locked. Where it is not, takes the lock of the
    /// folder that is there now, and the jobs that another process filed in it meanwhile. False, with a
    /// sentence, when somebody else owns that folder: nothing can be saved then.
    bool hold_folder(std::string& error);

  private:
    struct Filed {
        CJobNode* job = nullptr;
        CClassNode* category = nullptr;
    };
    enum class Change { job, job_removed, job_placed, category, category_removed };
    struct Noted {
        Change what = Change::job;
        Guid identity;
        Guid category;  ///< where the job was filed then
        std::size_t place = 0;
    };
    /// Orders identities by their digits, so that those that begin alike stand together.
    struct DigitsLess {
        bool operator()(const Guid& a, const Guid& b) const noexcept;
    };
    /// Who waits for a ticket.
    struct Waiting {
        StoreWriter::Ticket ticket = 0;
        Settled settled;
        std::vector<Guid> added;  ///< to be removed again where it fails
    };
    explicit JobStore(const Options& options) : options_(options) {}
    void take(StoredDatabase stored);
    void make_whole();
    void renumber();
    void file(CJobNode& job, CClassNode& category);
    void take_over(CategoryTree other);
    void put_in_place(CJobNode& job, std::unique_ptr<CJobNode> newer);
    void tell(StoreChange::What what, const Guid& identity, std::uint32_t fields = 0);
    void note(Change what, const Guid& identity, const Guid& category = {}, std::size_t place = 0);
    [[nodiscard]] JournalBatch batch_of_changes();
    void forget_noted();
    [[nodiscard]] bool may_write(std::string& error);
    bool put_damaged_aside(std::string& error);
    [[nodiscard]] bool is_saving() const noexcept { return snapshot_ || save_ticket_ != 0; }
    bool begin_save(std::string& error);
    void hand_to_writer(const Settings& settings);
    void save_for_those_who_wait();
    void take_answers();
    void end_save(const StoreWriter::Answer& answer);
    void settle(Waiting& waiting, const std::string& error);

    Options options_;
    CategoryTree tree_;
    bool newer_ = false;
    bool keep_damaged_ = false;  ///< the file on the disk is damaged and was not renamed yet
    std::vector<std::string> notes_;
    std::map<Guid, Filed, DigitsLess> index_;
    StoreWatchers watchers_;
    std::set<std::pair<std::int32_t, CJobNode*>> waiting_;
    std::set<Guid> interrupted_;
    std::int32_t last_order_ = 0;

    std::uint64_t revision_ = 0;
    std::uint64_t saved_revision_ = 0;    ///< of what is in the database on the disk
    std::uint64_t saving_revision_ = 0;   ///< of what is being saved
    const Settings* settings_ = nullptr;  ///< while writing behind
    std::unique_ptr<StoreWriter> writer_;
    std::vector<Noted> noted_;                       ///< since the last commit
    std::unordered_set<Guid, GuidHash> noted_jobs_;  ///< of `noted_` the jobs that changed
    bool untold_ = false;         ///< something changed since the last save began that is in no journal
    bool saving_untold_ = false;  ///< the same of what is being saved
    std::vector<Guid> added_;     ///< since the last commit
    std::unordered_set<Guid, GuidHash> unsettled_;
    std::vector<Waiting> in_flight_;
    std::vector<Waiting> for_this_save_;  ///< whose image is being made
    std::vector<Waiting> for_next_save_;
    std::optional<DatabaseSnapshot> snapshot_;
    StoreWriter::Ticket save_ticket_ = 0;  ///< of the save that is on its way; 0: none
    bool save_failed_ = false;
    bool lacks_copy_ = false;
    std::u16string backed_up_;  ///< the path of the last backup of this run, or of the attempt
    bool copy_failed_ = false;
    std::uint64_t image_size_ = 0;
    bool folder_lost_ = false;  ///< somebody else owns what is there now
    std::string failure_;
};

}  // namespace vantlow
