#include "store/job_store.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "base/text.h"
#include "store/journal.h"

namespace vantlow {
namespace {

// The first eight bytes of an identity as the number that its first sixteen digits are: see guid_text().
std::uint64_t first_digits(const Guid& id) noexcept {
    const auto digits = [&id](std::size_t from, std::size_t count) {
        std::uint64_t number = 0;
        for (std::size_t i = count; i-- > 0;) number = (number << 8U) | id.bytes[from + i];
        return number;
    };
    return digits(0, 4) << 32U | digits(4, 2) << 16U | digits(6, 2);
}

// No queue gets this long: a larger order comes from a damaged file, and would leave no room behind it.
constexpr std::int32_t largest_order = std::numeric_limits<std::int32_t>::max() / 2;

}  // namespace

bool JobStore::DigitsLess::operator()(const Guid& a, const Guid& b) const noexcept {
    const std::uint64_t first_a = first_digits(a);
    const std::uint64_t first_b = first_digits(b);
    if (first_a != first_b) return first_a < first_b;
    return std::memcmp(a.bytes.data() + 8, b.bytes.data() + 8, 8) < 0;
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
    writer_ = std::make_unique<StoreWriter>(
        options_.folder, [lock = options_.lock] { return lock == nullptr || lock->is_in_place(); });
    if (newer_) {
        notes_.emplace_back(
            "The job database was written by a newer version of Vantlow. It is left as it is.");
        return;
    }
    const std::u16string copy = database_path(options_.folder) + std::u16string(copy_suffix);
    lacks_copy_ = path_kind(copy) == PathKind::none;
    keep_damaged_ = stored.damaged;
    if (stored.damaged || stored.from_copy) touch();
    tree_ = std::move(stored.tree);
    if (stored.status == DatabaseLoad::Status::nothing) {
        tree_ = CategoryTree::with_defaults(options_.download_folder, new_guid());
        replay(JournalFrames::read(stored.left_journal), tree_);
        touch();
    }
    make_whole();
    // Changes from the journal stay in it until the next save.
    untold_ = untold_ || stored.from_journal;
    if (!untold_) writer_->stand_on_database();
}

namespace {

// Nobody runs the job any more: it waits, unless its form went out, which is not sent again without being
// asked.
void interrupt(CJobNode& job) {
    job.state = job.form ? JobState::failed : JobState::waiting;
    if (!job.form) return;
    job.result = Code::server_error;
    job.error =
        "The program ended before the answer to the form was whole. Start the download anew to send it "
        "again.";
}

}  // namespace

// Repairs states that this program never writes but a damaged or foreign database may hold: identities that
// are missing or not unique, jobs that count as running although nobody runs them, orders that leave no room
// behind them.
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
            if (job->state == JobState::running) interrupt(*job);
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
    if (digits.size() > 32) return found;
    const auto first = guid_from_digits(std::string(digits) + std::string(32 - digits.size(), '0'));
    if (!first) return found;
    for (auto at = index_.lower_bound(*first); at != index_.end() && found.size() < 2; ++at) {
        if (!guid_digits(guid_text(at->first))->starts_with(digits)) break;
        found.push_back(at->second.job);
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
    CJobNode& added = category.jobs.push_back(std::move(job));
    if (added.identity.is_zero() || index_.contains(added.identity)) added.identity = new_guid();
    added.category = category.identity;
    added.order = ++last_order_;
    file(added, category);
    if (settings_ != nullptr) {
        added_.push_back(added.identity);
        unsettled_.insert(added.identity);
    }
    note(Change::job, added.identity, added.category);
    tell(StoreChange::What::job_added, added.identity, StoreChange::all);
    return added;
}

std::unique_ptr<CJobNode> JobStore::remove(CJobNode& job) {
    note(Change::job_removed, job.identity);
    tell(StoreChange::What::job_removed, job.identity);
    if (snapshot_) snapshot_->keep(job);
    waiting_.erase({job.order, &job});
    const auto at = index_.find(job.identity);
    CClassNode& category = *at->second.category;
    index_.erase(at);
    return category.jobs.take(job);
}

void JobStore::move(CJobNode& job, CClassNode& category) {
    if (&category_of(job) != &category) place(job, category, category.jobs.size());
}

void JobStore::place(CJobNode& job, CClassNode& category, std::size_t place) {
    Filed& filed = index_.at(job.identity);
    category.jobs.insert(place, filed.category->jobs.take(job));
    job.category = category.identity;
    filed.category = &category;
    note(Change::job_placed, job.identity, job.category, place);
    tell(StoreChange::What::job_changed, job.identity, StoreChange::category);
}

void JobStore::put_in_place(CJobNode& job, std::unique_ptr<CJobNode> newer) {
    const bool waited = job.state == JobState::waiting;
    job.take_from(*newer);
    if (waited) waiting_.erase({job.order, &job});
    if (job.state == JobState::waiting) waiting_.emplace(job.order, &job);
}

void JobStore::update(CJobNode& job, std::unique_ptr<CJobNode> newer) {
    put_in_place(job, std::move(newer));
    changed(job);
}

void JobStore::update_positions(CJobNode& job, std::unique_ptr<CJobNode> newer) {
    put_in_place(job, std::move(newer));
    ++revision_;
    tell(StoreChange::What::job_changed, job.identity, StoreChange::positions);
}

void JobStore::changed(CJobNode& job, std::uint32_t fields) {
    note(Change::job, job.identity, job.category);
    tell(StoreChange::What::job_changed, job.identity, fields);
}

void JobStore::set_state(CJobNode& job, JobState state) {
    if (job.state == state) return;
    waiting_.erase({job.order, &job});
    job.state = state;
    if (state == JobState::waiting) waiting_.emplace(job.order, &job);
    changed(job, StoreChange::state);
}

void JobStore::queue_last(CJobNode& job) {
    waiting_.erase({job.order, &job});
    job.order = ++last_order_;
    job.state = JobState::waiting;
    waiting_.emplace(job.order, &job);
    changed(job, StoreChange::state | StoreChange::order);
}

void JobStore::swap_places(CJobNode& a, CJobNode& b) {
    for (CJobNode* const job : {&a, &b}) waiting_.erase({job->order, job});
    std::swap(a.order, b.order);
    for (CJobNode* const job : {&a, &b})
        if (job->state == JobState::waiting) waiting_.emplace(job->order, job);
    changed(a, StoreChange::order);
    changed(b, StoreChange::order);
}

void JobStore::queue_first(CJobNode& job) {
    if (waiting_.begin()->second == &job) return;
    if (waiting_.begin()->first <= -largest_order) renumber();
    waiting_.erase({job.order, &job});
    job.order = waiting_.begin()->first - 1;
    waiting_.emplace(job.order, &job);
    changed(job, StoreChange::order);
}

CClassNode& JobStore::add_category(std::u16string name, std::u16string folder, CClassNode& parent) {
    auto node = std::make_unique<CClassNode>();
    node->identity = new_guid();
    node->name = std::move(name);
    node->folder = folder.empty() ? parent.folder : std::move(folder);
    CClassNode& added = tree_.insert(std::move(node), &parent);
    note(Change::category, added.identity);
    tell(StoreChange::What::category_added, added.identity);
    return added;
}

bool JobStore::remove_category(CClassNode& category) {
    if (category.parent == nullptr) return false;
    note(Change::category_removed, category.identity);
    tell(StoreChange::What::category_removed, category.identity);
    std::vector<Guid> moved;
    for (const auto& job : category.jobs) moved.push_back(job->identity);
    for (const Guid& job : moved) index_.at(job).category = category.parent;
    const bool removed = tree_.remove(category);
    ++revision_;
    for (const Guid& job : moved) tell(StoreChange::What::job_changed, job, StoreChange::category);
    return removed;
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
    tell(StoreChange::What::category_changed, category.identity);
}

void JobStore::touch() {
    ++revision_;
    untold_ = true;
    tell(StoreChange::What::everything, {});
}

void JobStore::tell(StoreChange::What what, const Guid& identity, std::uint32_t fields) {
    watchers_.tell({what, identity, fields, revision_});
}

}  // namespace vantlow
