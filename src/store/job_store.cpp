#include "store/job_store.h"

#include <algorithm>
#include <iterator>
#include <limits>

#include "base/text.h"
#include "platform/process.h"

namespace vantlow {
namespace {

// Nobody counts so far: a larger order stands in a damaged file, and would leave no room behind it.
constexpr std::int32_t largest_order = std::numeric_limits<std::int32_t>::max() / 2;

}  // namespace

Guid new_guid() {
    unsigned char bytes[16];
    random_guid(bytes);
    Guid guid;
    std::copy(std::begin(bytes), std::end(bytes), guid.bytes.begin());
    return guid;
}

std::unique_ptr<JobStore> JobStore::open(const Options& options, std::string& error) {
    StoredDatabase stored = load_database_files(options.folder);
    if (!stored.error.ok()) {
        error = "The job database in " + to_utf8(options.folder) + " cannot be read: " + stored.error.text();
        return nullptr;
    }
    // NOLINTNEXTLINE(modernize-make-unique): the constructor is private
    std::unique_ptr<JobStore> store(new JobStore(options));
    store->take(std::move(stored));
    return store;
}

std::unique_ptr<JobStore> JobStore::in_memory(const std::u16string& download_folder) {
    // NOLINTNEXTLINE(modernize-make-unique): the constructor is private
    std::unique_ptr<JobStore> store(new JobStore({{}, download_folder, false}));
    store->tree_ = CategoryTree::with_defaults(download_folder, new_guid());
    return store;
}

void JobStore::take(StoredDatabase stored) {
    notes_ = std::move(stored.notes);
    newer_ = stored.status == DatabaseLoad::Status::newer;
    if (newer_) {
        notes_.emplace_back(
            "The job database was written by a newer version of Vantlow. It is left as it is.");
        return;
    }
    keep_damaged_ = stored.damaged;
    dirty_ = stored.damaged || stored.from_copy;
    tree_ = std::move(stored.tree);
    if (stored.status == DatabaseLoad::Status::nothing) {
        tree_ = CategoryTree::with_defaults(options_.download_folder, new_guid());
        dirty_ = true;
    }
    make_whole();
}

// What no database of this program holds, but a damaged or foreign one may: identities that are missing or
// not unique, jobs that run although nobody runs them, orders behind which there is no room.
void JobStore::make_whole() {
    std::set<Guid> categories;
    for (CClassNode* category : tree_.all()) {
        if (!categories.insert(category->identity).second) {
            category->identity = new_guid();
            dirty_ = true;
        }
        for (const auto& job : category->jobs) {
            if (job->identity.is_zero() || index_.contains(job->identity)) {
                job->identity = new_guid();
                dirty_ = true;
            }
            if (job->state == JobState::running) {
                job->state = JobState::waiting;
                interrupted_.insert(job->identity);
            }
            last_order_ = std::max(last_order_, job->order);
            job->category = category->identity;
            file(*job, *category);
        }
    }
    if (last_order_ > largest_order) renumber();
}

// Gives the jobs small orders, in the order that they have.
void JobStore::renumber() {
    std::vector<CJobNode*> jobs = jobs_below(nullptr);
    std::stable_sort(jobs.begin(), jobs.end(),
                     [](const CJobNode* a, const CJobNode* b) { return a->order < b->order; });
    waiting_.clear();
    last_order_ = 0;
    for (CJobNode* job : jobs) {
        job->order = ++last_order_;
        if (job->state == JobState::waiting) waiting_.emplace(job->order, job);
    }
    dirty_ = true;
}

void JobStore::file(CJobNode& job, CClassNode& category) {
    index_[job.identity] = {&job, &category};
    if (job.state == JobState::waiting) waiting_.emplace(job.order, &job);
}

CJobNode* JobStore::find(const Guid& identity) noexcept {
    const auto at = index_.find(identity);
    return at == index_.end() ? nullptr : at->second.job;
}

std::vector<CJobNode*> JobStore::find_by_digits(std::string_view digits) {
    std::vector<CJobNode*> found;
    if (const auto whole = guid_from_digits(digits)) {
        if (CJobNode* job = find(*whole)) found.push_back(job);
        return found;
    }
    for (const auto& [identity, filed] : index_) {
        const auto own = guid_digits(guid_text(identity));
        if (own->starts_with(digits)) found.push_back(filed.job);
        if (found.size() > 1) break;
    }
    return found;
}

CClassNode& JobStore::category_of(const CJobNode& job) {
    return *index_.at(job.identity).category;
}

std::vector<CJobNode*> JobStore::jobs_below(CClassNode* category) {
    std::vector<CJobNode*> jobs;
    jobs.reserve(index_.size());
    for (const CClassNode* node : tree_.all()) {
        const CClassNode* at = node;
        while (category != nullptr && at != nullptr && at != category) at = at->parent;
        if (at == nullptr) continue;
        for (const auto& job : node->jobs) jobs.push_back(job.get());
    }
    return jobs;
}

CJobNode& JobStore::add(std::unique_ptr<CJobNode> job, CClassNode& category) {
    CJobNode& added = *category.jobs.emplace_back(std::move(job));
    if (added.identity.is_zero() || index_.contains(added.identity)) added.identity = new_guid();
    added.category = category.identity;
    added.order = ++last_order_;
    file(added, category);
    touch();
    return added;
}

std::unique_ptr<CJobNode> JobStore::remove(CJobNode& job) {
    waiting_.erase({job.order, &job});
    const auto at = index_.find(job.identity);
    CClassNode& category = *at->second.category;
    index_.erase(at);
    touch();
    return CategoryTree::take(category, job);
}

void JobStore::move(CJobNode& job, CClassNode& category) {
    Filed& filed = index_.at(job.identity);
    if (filed.category == &category) return;
    category.jobs.push_back(CategoryTree::take(*filed.category, job));
    job.category = category.identity;
    filed.category = &category;
    touch();
}

CJobNode& JobStore::replace(CJobNode& job, std::unique_ptr<CJobNode> newer) {
    Filed& filed = index_.at(job.identity);
    waiting_.erase({job.order, &job});
    newer->identity = job.identity;
    newer->category = job.category;
    newer->order = job.order;
    auto& jobs = filed.category->jobs;
    const auto at =
        std::find_if(jobs.begin(), jobs.end(), [&](const auto& entry) { return entry.get() == &job; });
    *at = std::move(newer);
    file(**at, *filed.category);
    touch();
    return **at;
}

void JobStore::set_state(CJobNode& job, JobState state) {
    if (job.state == state) return;
    waiting_.erase({job.order, &job});
    job.state = state;
    if (state == JobState::waiting) waiting_.emplace(job.order, &job);
    touch();
}

void JobStore::queue_last(CJobNode& job) {
    waiting_.erase({job.order, &job});
    job.order = ++last_order_;
    job.state = JobState::waiting;
    waiting_.emplace(job.order, &job);
    touch();
}

void JobStore::swap_places(CJobNode& a, CJobNode& b) {
    waiting_.erase({a.order, &a});
    waiting_.erase({b.order, &b});
    std::swap(a.order, b.order);
    waiting_.emplace(a.order, &a);
    waiting_.emplace(b.order, &b);
    touch();
}

void JobStore::queue_first(CJobNode& job) {
    if (waiting_.begin()->second == &job) return;
    if (waiting_.begin()->first <= -largest_order) renumber();
    waiting_.erase({job.order, &job});
    job.order = waiting_.begin()->first - 1;
    waiting_.emplace(job.order, &job);
    touch();
}

CClassNode& JobStore::add_category(std::u16string name, std::u16string folder, CClassNode& parent) {
    auto node = std::make_unique<CClassNode>();
    node->identity = new_guid();
    node->name = std::move(name);
    node->folder = folder.empty() ? parent.folder : std::move(folder);
    touch();
    return tree_.insert(std::move(node), &parent);
}

bool JobStore::remove_category(CClassNode& category) {
    if (category.parent == nullptr) return false;
    for (const auto& job : category.jobs) index_.at(job->identity).category = category.parent;
    touch();
    return tree_.remove(category);
}

CClassNode& JobStore::completed() {
    constexpr std::u16string_view name = u"Completed";
    CClassNode& root = *tree_.root();
    for (const auto& child : root.children) {
        if (child->name == name) return *child;
    }
    return add_category(std::u16string(name), root.folder, root);
}

bool JobStore::save(const Settings& settings, std::string& error) {
    if (is_in_memory()) return true;
    if (newer_) {
        error = "The job database is of a newer version and is not written.";
        return false;
    }
    if (!options_.can_save) {
        error = "The data folder " + to_utf8(options_.folder) + " cannot be written.";
        return false;
    }
    const auto begin = std::chrono::steady_clock::now();
    if (keep_damaged_) {
        std::u16string kept_as;
        const FileError kept = keep_damaged_database(options_.folder, kept_as);
        if (!kept.ok() && kept.fault != FileFault::not_found) {
            error = "The damaged job database in " + to_utf8(options_.folder) +
                    " cannot be put aside: " + kept.text();
            return false;
        }
        if (kept.ok()) notes_.push_back("The damaged file is kept as " + to_utf8(kept_as) + ".");
        keep_damaged_ = false;
    }
    CQoMemFile image(database_growth_step);
    save_database(tree_, image);
    FileError copy;
    if (const FileError failed = save_database_files(options_.folder, image.bytes(), copy); !failed.ok()) {
        error = "The job database in " + to_utf8(options_.folder) + " cannot be saved: " + failed.text();
        return false;
    }
    dirty_ = false;
    const FileError backup = back_up(settings, image.bytes());
    save_took_ =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begin);
    if (!backup.ok()) error = "The backup of the job database cannot be written: " + backup.text();
    if (!copy.ok())
        error = "The copy of the job database in " + to_utf8(options_.folder) +
                " cannot be written: " + copy.text();
    return copy.ok();
}

// A whole backup each day, written over by the later saves of that day.
FileError JobStore::back_up(const Settings& settings, std::span<const std::byte> image) const {
    const std::u16string folder = settings.text(setting::backup_to);
    if (folder.empty()) return {};
    return write_file_atomically(backup_path(folder, short_date_today()), image, Privacy::owner_only);
}

}  // namespace vantlow
