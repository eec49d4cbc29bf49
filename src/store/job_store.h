// The job store of one data folder: the category tree, its jobs by their identities, and their way to the
// disk.
#pragma once

#include <chrono>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "store/category.h"
#include "store/database_files.h"
#include "store/settings.h"

namespace vantlow {

/// Owns the records. One thread, which calls everything; who runs a job works on a twin of it.
class JobStore {
  public:
    struct Options {
        std::u16string folder;           ///< the data folder
        std::u16string download_folder;  ///< of the default categories
        bool can_save = true;            ///< the folder is locked by this process and can be written
    };
    /// Loads the database of the folder, with the default categories where there is none. Null, with the
    /// reason in `error`, when the database is there but may not be read. With a database of a newer version
    /// the store is empty, has no root, and is never saved.
    static std::unique_ptr<JobStore> open(const Options& options, std::string& error);
    /// A store that is on no disk, with the default categories: save() does nothing and succeeds.
    static std::unique_ptr<JobStore> in_memory(const std::u16string& download_folder);
    JobStore(const JobStore&) = delete;
    JobStore& operator=(const JobStore&) = delete;

    /// What a person has to be told about the loading, UTF-8 sentences.
    [[nodiscard]] const std::vector<std::string>& notes() const noexcept { return notes_; }
    [[nodiscard]] bool is_newer() const noexcept { return newer_; }
    [[nodiscard]] bool is_in_memory() const noexcept { return options_.folder.empty(); }

    [[nodiscard]] CategoryTree& tree() noexcept { return tree_; }
    [[nodiscard]] std::size_t size() const noexcept { return index_.size(); }
    [[nodiscard]] CJobNode* find(const Guid& identity) noexcept;
    /// The jobs whose identity's digits (guid_digits()) begin like this; at most two are looked for.
    [[nodiscard]] std::vector<CJobNode*> find_by_digits(std::string_view digits);
    [[nodiscard]] CClassNode& category_of(const CJobNode& job);
    /// All jobs of a category and of those below it, in display order. Null: of the whole tree.
    [[nodiscard]] std::vector<CJobNode*> jobs_below(CClassNode* category);

    /// Files a job in a category, last in the queue; gives it an identity where it has none of its own.
    CJobNode& add(std::unique_ptr<CJobNode> job, CClassNode& category);
    std::unique_ptr<CJobNode> remove(CJobNode& job);
    void move(CJobNode& job, CClassNode& category);
    /// Puts a newer version of the same job in its place; where it is filed stays.
    CJobNode& replace(CJobNode& job, std::unique_ptr<CJobNode> newer);
    void set_state(CJobNode& job, JobState state);
    /// The job becomes the last of those that wait.
    void queue_last(CJobNode& job);
    /// Of two jobs that wait, each gets the other's place.
    void swap_places(CJobNode& a, CJobNode& b);
    /// The job becomes the first of those that wait.
    void queue_first(CJobNode& job);
    /// The jobs that wait, by their order.
    [[nodiscard]] const std::set<std::pair<std::int32_t, CJobNode*>>& waiting() const noexcept {
        return waiting_;
    }
    /// The jobs that were running when the database was saved last, though nobody ended them; they wait now.
    [[nodiscard]] std::set<Guid>& interrupted() noexcept { return interrupted_; }
    CClassNode& add_category(std::u16string name, std::u16string folder, CClassNode& parent);
    /// As CategoryTree::remove, the index kept true.
    bool remove_category(CClassNode& category);
    /// "Completed" below the root; made where it is missing.
    CClassNode& completed();

    /// Something changed that is to be saved.
    void touch() noexcept { dirty_ = true; }
    [[nodiscard]] bool is_dirty() const noexcept { return dirty_; }
    /// Writes the database, its copy, and today's backup where the settings name a folder for it. A failure
    /// leaves the store dirty; the sentence says what failed. A failure of the backup is only told.
    bool save(const Settings& settings, std::string& error);
    [[nodiscard]] std::chrono::milliseconds last_save_took() const noexcept { return save_took_; }

  private:
    struct Filed {
        CJobNode* job = nullptr;
        CClassNode* category = nullptr;
    };
    explicit JobStore(const Options& options) : options_(options) {}
    void take(StoredDatabase stored);
    void make_whole();
    void renumber();
    void file(CJobNode& job, CClassNode& category);
    FileError back_up(const Settings& settings, std::span<const std::byte> image) const;

    Options options_;
    CategoryTree tree_;
    bool newer_ = false;
    bool dirty_ = false;
    bool keep_damaged_ = false;  ///< the file on the disk is damaged and was not renamed yet
    std::vector<std::string> notes_;
    std::unordered_map<Guid, Filed, GuidHash> index_;
    std::set<std::pair<std::int32_t, CJobNode*>> waiting_;
    std::set<Guid> interrupted_;
    std::int32_t last_order_ = 0;
    std::chrono::milliseconds save_took_{0};
};

/// A fresh identity.
Guid new_guid();

}  // namespace vantlow
