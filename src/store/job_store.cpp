#include "store/job_store.h"

#include <algorithm>
#include <limits>

#include "base/text.h"

namespace vantlow {
namespace {

// Nobody counts so far: a larger order stands in a damaged file, and would leave no room behind it.
constexpr std::int32_t largest_order = std::numeric_limits<std::int32_t>::max() / 2;

}  // namespace

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

void JobStore::take(StoredDatabase stored) {
    notes_ = std::move(stored.notes);
    newer_ = stored.status == DatabaseLoad::Status::newer;
    writer_ = std::make_unique<StoreWriter>(options_.folder);
    if (newer_) {
        notes_.emplace_back(
            "The job database was written by a newer version of Vantlow. It is left as it is.");
        return;
    }
    keep_damaged_ = stored.damaged;
    if (stored.damaged || stored.from_copy) touch();
    tree_ = std::move(stored.tree);
    if (stored.status == DatabaseLoad::Status::nothing) {
        tree_ = CategoryTree::with_defaults(options_.download_folder, new_guid());
        touch();
    }
    make_whole();
    // What came from the journal stays in it until the next save.
    untold_ = untold_ || stored.from_journal;
    if (!untold_) writer_->stand_on_database();
}

// What no database of this program holds, but a damaged or foreign one may: identities that are missing or
// not unique, jobs that run although nobody runs them, orders behind which there is no room.
void JobStore::make_whole() {
    std::set<Guid> categories;
    for (CClassNode* category : tree_.all()) {
        if (!categories.insert(category->identity).second) {
            category->identity = new_guid();
            touch();
        }
        for (const auto& job : category->jobs) {
            if (job->identity.is_zero() || index_.contains(job->identity)) {
                job->identity = new_guid();
                touch();
            }
            if (job->state == JobState::running) job->state = JobState::waiting;
            if (job->state == JobState::waiting) interrupted_.insert(job->identity);
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
    touch();
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
    changed(added);
    if (settings_ != nullptr) {
        added_.push_back(added.identity);
        unsettled_.insert(added.identity);
    }
    return added;
}

std::unique_ptr<CJobNode> JobStore::remove(CJobNode& job) {
    waiting_.erase({job.order, &job});
    const auto at = index_.find(job.identity);
    CClassNode& category = *at->second.category;
    index_.erase(at);
    note(Change::job_removed, job.identity);
    return CategoryTree::take(category, job);
}

void JobStore::move(CJobNode& job, CClassNode& category) {
    Filed& filed = index_.at(job.identity);
    if (filed.category == &category) return;
    category.jobs.push_back(CategoryTree::take(*filed.category, job));
    job.category = category.identity;
    filed.category = &category;
    note(Change::job_placed, job.identity, job.category);
}

CJobNode& JobStore::put_in_place(CJobNode& job, std::unique_ptr<CJobNode> newer) {
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
    return **at;
}

CJobNode& JobStore::replace(CJobNode& job, std::unique_ptr<CJobNode> newer) {
    CJobNode& placed = put_in_place(job, std::move(newer));
    changed(placed);
    return placed;
}

CJobNode& JobStore::replace_positions(CJobNode& job, std::unique_ptr<CJobNode> newer) {
    ++revision_;
    return put_in_place(job, std::move(newer));
}

void JobStore::set_state(CJobNode& job, JobState state) {
    if (job.state == state) return;
    waiting_.erase({job.order, &job});
    job.state = state;
    if (state == JobState::waiting) waiting_.emplace(job.order, &job);
    changed(job);
}

void JobStore::queue_last(CJobNode& job) {
    waiting_.erase({job.order, &job});
    job.order = ++last_order_;
    job.state = JobState::waiting;
    waiting_.emplace(job.order, &job);
    changed(job);
}

CClassNode& JobStore::add_category(std::u16string name, std::u16string folder, CClassNode& parent) {
    auto node = std::make_unique<CClassNode>();
    node->identity = new_guid();
    node->name = std::move(name);
    node->folder = folder.empty() ? parent.folder : std::move(folder);
    CClassNode& added = tree_.insert(std::move(node), &parent);
    changed(added);
    return added;
}

bool JobStore::remove_category(CClassNode& category) {
    if (category.parent == nullptr) return false;
    for (const auto& job : category.jobs) index_.at(job->identity).category = category.parent;
    note(Change::category_removed, category.identity);
    return tree_.remove(category);
}

bool JobStore::move_category(CClassNode& category, CClassNode& parent) {
    if (!tree_.move(category, parent)) return false;
    changed(category);
    return true;
}

CClassNode& JobStore::completed() {
    constexpr std::u16string_view name = u"Completed";
    CClassNode& root = *tree_.root();
    for (const auto& child : root.children) {
        if (child->name == name) return *child;
    }
    return add_category(std::u16string(name), root.folder, root);
}

void JobStore::changed(CClassNode& category) {
    note(Change::category, category.identity);
}

}  // namespace vantlow
