#include "app/window/model/job_rows.h"

#include <algorithm>
#include <ctime>
#include <utility>

namespace vantlow {
namespace {

// A view reads more than this anew instead of row by row.
constexpr std::size_t most_single_news = 1000;
constexpr std::chrono::milliseconds move_interval{1000};

// One row while all are sorted: its key stands in an arena, the first bytes of it also here.
struct Sorted {
    std::uint64_t first = 0;
    std::uint32_t offset = 0;
    std::uint32_t length = 0;
    std::uint32_t slot = 0;
};

std::uint64_t first_bytes(std::string_view key) noexcept {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < 8; ++i)
        value = value << 8U | (i < key.size() ? static_cast<unsigned char>(key[i]) : 0U);
    return value;
}

// Sorts by keys in an arena. What all keys begin with ("https://", a folder) is compared once.
void sort_keys(std::vector<Sorted>& rows, std::string_view arena) {
    if (rows.empty()) return;
    const std::string_view sample = arena.substr(rows[0].offset, rows[0].length);
    std::size_t same = sample.size();
    for (const Sorted& row : rows) {
        const std::string_view key = arena.substr(row.offset, std::min<std::size_t>(row.length, same));
        same = static_cast<std::size_t>(std::mismatch(key.begin(), key.end(), sample.begin()).first -
                                        key.begin());
    }
    for (Sorted& row : rows) {
        row.offset += static_cast<std::uint32_t>(same);
        row.length -= static_cast<std::uint32_t>(same);
        row.first = first_bytes(arena.substr(row.offset, row.length));
    }
    std::sort(rows.begin(), rows.end(), [arena](const Sorted& a, const Sorted& b) {
        if (a.first != b.first) return a.first < b.first;
        return arena.substr(a.offset, a.length) < arena.substr(b.offset, b.length);
    });
}

// A row on its way to another place.
struct Mover {
    std::string key;
    std::uint32_t slot = 0;
    std::size_t before = 0;  ///< the row, of those that stay, that it stands in front of
};

std::vector<std::uint32_t> without(const std::vector<std::uint32_t>& rows,
                                   const std::vector<std::size_t>& out) {
    std::vector<std::uint32_t> stay;
    stay.reserve(rows.size());
    std::size_t from = 0;
    for (const std::size_t row : out) {
        stay.insert(stay.end(), rows.begin() + static_cast<std::ptrdiff_t>(from),
                    rows.begin() + static_cast<std::ptrdiff_t>(row));
        from = row + 1;
    }
    stay.insert(stay.end(), rows.begin() + static_cast<std::ptrdiff_t>(from), rows.end());
    return stay;
}

// The rows with the movers among them; `in` gets where these stand.
std::vector<std::uint32_t> merged(const std::vector<std::uint32_t>& stay, std::vector<Mover>& movers,
                                  std::vector<std::size_t>& in) {
    std::ranges::sort(movers, [](const Mover& a, const Mover& b) {
        return a.before != b.before ? a.before < b.before : a.key < b.key;
    });
    std::vector<std::uint32_t> rows;
    rows.reserve(stay.size() + movers.size());
    std::size_t from = 0;
    for (const Mover& mover : movers) {
        rows.insert(rows.end(), stay.begin() + static_cast<std::ptrdiff_t>(from),
                    stay.begin() + static_cast<std::ptrdiff_t>(mover.before));
        from = mover.before;
        in.push_back(rows.size());
        rows.push_back(mover.slot);
    }
    rows.insert(rows.end(), stay.begin() + static_cast<std::ptrdiff_t>(from), stay.end());
    return rows;
}

std::int64_t wall_time() noexcept {
    return static_cast<std::int64_t>(std::time(nullptr));
}

}  // namespace

JobRows::JobRows(const Engine& engine, const LiveJobs& live)
    : engine_(engine), live_(live), order_({}, engine, live) {
    rebuild();
}

JobRows::Slot JobRows::slot_of(const Guid& job) {
    const auto [at, is_new] = by_job_.try_emplace(job, 0);
    if (!is_new) return at->second;
    if (free_.empty()) {
        at->second = static_cast<Slot>(slots_.size());
        slots_.emplace_back();
    } else {
        at->second = free_.back();
        free_.pop_back();
    }
    slots_[at->second] = {job, hidden, false, false, false};
    return at->second;
}

// Reads all jobs: which are shown, and in which order.
void JobRows::rebuild() {
    const std::vector<const CJobNode*> jobs = engine_.jobs_below(nullptr);
    std::vector<bool> there(slots_.size(), false);
    by_job_.reserve(jobs.size());
    std::string arena;
    std::vector<Sorted> sorted;
    sorted.reserve(jobs.size());
    walk_.resize(jobs.size());
    for (std::size_t i = 0; i < jobs.size(); ++i) {
        const CJobNode* const job = jobs[i];
        // Most jobs stand where they stood when all were read last.
        const bool known =
            walk_[i] < slots_.size() && !slots_[walk_[i]].free && slots_[walk_[i]].job == job->identity;
        if (!known) walk_[i] = slot_of(job->identity);
        const Slot slot = walk_[i];
        if (slot >= there.size()) there.resize(slots_.size(), false);
        there[slot] = true;
        slots_[slot].row = hidden;
        slots_[slot].moves = slots_[slot].changes = false;
        if (!filter_.passes(*job)) continue;
        const std::size_t begin = arena.size();
        order_.append_key(*job, arena);
        sorted.push_back(
            {0, static_cast<std::uint32_t>(begin), static_cast<std::uint32_t>(arena.size() - begin), slot});
    }
    for (Slot slot = 0; slot < there.size(); ++slot) {
        if (!there[slot] && !slots_[slot].free) forget(slots_[slot].job);
    }
    sort_keys(sorted, arena);
    rows_.resize(sorted.size());
    std::ranges::transform(sorted, rows_.begin(), &Sorted::slot);
    renumber(0);
    moving_.clear();
    changed_.clear();
    live_rows_.clear();
    if (order_.is_live()) add_live_rows();
}

void JobRows::renumber(std::size_t first) {
    for (std::size_t row = first; row < rows_.size(); ++row)
        slots_[rows_[row]].row = static_cast<std::uint32_t>(row);
}

void JobRows::forget(const Guid& job) {
    const auto at = by_job_.find(job);
    if (at == by_job_.end()) return;
    slots_[at->second].free = true;
    slots_[at->second].row = hidden;
    free_.push_back(at->second);
    by_job_.erase(at);
    selection_.erase(job);
}

void JobRows::show(const View& view, std::u16string_view search) {
    search_ = search;
    filter_ = JobFilter(view, search, engine_, wall_time());
    rebuild();
    send({0, true, {}, {}, {}});
}

void JobRows::sort_by(std::vector<SortKey> keys) {
    RowOrder wanted(std::move(keys), engine_, live_);
    if (wanted.keys() == order_.keys()) return;
    order_ = std::move(wanted);
    rebuild();
    send({0, true, {}, {}, {}});
}

std::optional<std::size_t> JobRows::row_of(const Guid& job) const {
    const auto at = by_job_.find(job);
    if (at == by_job_.end() || slots_[at->second].row == hidden) return std::nullopt;
    return slots_[at->second].row;
}

std::optional<RowFacts> JobRows::facts(std::size_t row) const {
    if (row >= rows_.size()) return std::nullopt;
    const CJobNode* const job = engine_.find(at(row));
    if (job == nullptr) return std::nullopt;
    return facts_of(*job, engine_, live_);
}

std::string JobRows::cell(std::size_t row, Column column) const {
    auto found = facts(row);
    if (!found) return {};
    if (column == Column::order && found->job.state == JobState::waiting)
        found->place = place_of(found->job.identity);
    return found->cell(column);
}

// All places are counted once after a change of the queue, and only where somebody looks at them.
std::size_t JobRows::place_of(const Guid& job) const {
    if (places_.empty()) {
        std::size_t place = 0;
        for (const CJobNode* const waiting : engine_.queue()) places_[waiting->identity] = ++place;
    }
    const auto at = places_.find(job);
    return at != places_.end() ? at->second : 0;
}

void JobRows::select(const std::vector<Guid>& jobs) {
    selection_ = {jobs.begin(), jobs.end()};
}

void JobRows::select(const Guid& job, bool selected) {
    if (selected) selection_.insert(job);
    if (!selected) selection_.erase(job);
}

std::vector<std::size_t> JobRows::selected_rows() const {
    std::vector<std::size_t> rows;
    for (const Guid& job : selection_) {
        if (const auto row = row_of(job)) rows.push_back(*row);
    }
    std::ranges::sort(rows);
    return rows;
}

std::size_t JobRows::selected_count() const {
    return static_cast<std::size_t>(
        std::ranges::count_if(selection_, [this](const Guid& job) { return row_of(job).has_value(); }));
}

std::vector<Guid> JobRows::selected() const {
    std::vector<Guid> jobs;
    for (const std::size_t row : selected_rows()) jobs.push_back(at(row));
    return jobs;
}

// A change of one job: its cells differ, or it waits to be put in its place.
void JobRows::note(Slot slot, std::uint32_t fields) {
    Entry& entry = slots_[slot];
    const std::uint32_t movers = order_.fields() | filter_.fields() | job_field::added | job_field::removed;
    if ((fields & movers) != 0 && !std::exchange(entry.moves, true)) moving_.push_back(slot);
    if (entry.row != hidden && !std::exchange(entry.changes, true)) changed_.push_back(slot);
}

void JobRows::changed(const Changes& changes, Time now) {
    seen_ = changes.revision;
    constexpr std::uint32_t of_queue =
        job_field::added | job_field::removed | job_field::state | job_field::order;
    const bool queue_changed =
        changes.everything || std::ranges::any_of(changes.jobs, [](const JobChange& change) {
            return (change.fields & of_queue) != 0;
        });
    const bool places_differ = queue_changed && !std::exchange(places_, {}).empty();
    if (changes.everything || changes.categories) {
        if (changes.categories) {
            filter_ = JobFilter(filter_.view(), search_, engine_, wall_time());
            order_ = RowOrder(order_.keys(), engine_, live_);
        }
        rebuild();
        return send({0, true, {}, {}, {}});
    }
    bool at_once = false;
    for (const JobChange& change : changes.jobs) {
        if ((change.fields & job_field::removed) != 0 && engine_.find(change.job) == nullptr) {
            const auto at = by_job_.find(change.job);
            if (at == by_job_.end()) continue;
            note(at->second, job_field::removed);
            at_once = true;
            continue;
        }
        if (engine_.find(change.job) == nullptr) continue;
        // Few who come, go or change their state do so by somebody's wish, who wants to see it now.
        at_once = at_once || (change.fields & (job_field::added | job_field::state | job_field::order |
                                               job_field::category | job_field::options)) != 0;
        note(slot_of(change.job), change.fields);
    }
    if (order_.is_live()) add_live_rows();
    RowNews news;
    news.places = places_differ;
    if (at_once || now - last_move_ >= move_interval) {
        last_move_ = now;
        move_waiting(news);
    }
    collect_changed(news);
    send(std::move(news));
}

// Where running jobs decide the order, all that run, or ran when it was made, may have to move.
void JobRows::add_live_rows() {
    std::vector<Guid> before = std::exchange(live_rows_, {});
    for (const auto& [job, live] : live_.all()) live_rows_.push_back(job);
    for (const auto* list : {&before, &live_rows_}) {
        for (const Guid& job : *list) {
            const auto at = by_job_.find(job);
            if (at == by_job_.end() || std::exchange(slots_[at->second].moves, true)) continue;
            moving_.push_back(at->second);
        }
    }
}

// Takes the waiting rows out, finds the places of those that are still to be shown, and merges them in.
void JobRows::move_waiting(RowNews& news) {
    if (moving_.empty()) return;
    if (moving_.size() > most_single_news) {
        rebuild();
        news.all = true;
        return;
    }
    std::vector<Mover> movers;
    std::vector<std::size_t> out;
    std::vector<Guid> gone;
    for (const Slot slot : std::exchange(moving_, {})) {
        Entry& entry = slots_[slot];
        entry.moves = false;
        if (entry.row != hidden) out.push_back(entry.row);
        const CJobNode* const job = engine_.find(entry.job);
        if (job == nullptr) gone.push_back(entry.job);
        if (job == nullptr || !filter_.passes(*job)) continue;
        movers.push_back({{}, slot, 0});
        order_.append_key(*job, movers.back().key);
    }
    std::ranges::sort(out);
    const std::vector<Slot> stay = without(rows_, out);
    std::string key;
    for (Mover& mover : movers) {
        const auto place = std::partition_point(stay.begin(), stay.end(), [&](Slot slot) {
            const CJobNode* const job = engine_.find(slots_[slot].job);
            if (job == nullptr) return true;  // its removal has not been told yet
            key.clear();
            order_.append_key(*job, key);
            return key < mover.key;
        });
        mover.before = static_cast<std::size_t>(place - stay.begin());
    }
    for (const std::size_t row : out) slots_[rows_[row]].row = hidden;
    const std::vector<Slot> before = std::exchange(rows_, merged(stay, movers, news.inserted));
    renumber(0);
    news.removed = std::move(out);
    // Those that are all back in their old places did not move.
    const auto same = [&](std::size_t row) { return rows_[row] == before[row]; };
    if (news.removed == news.inserted && std::ranges::all_of(news.removed, same)) {
        news.removed.clear();
        news.inserted.clear();
    }
    for (const Guid& job : gone) forget(job);
}

void JobRows::collect_changed(RowNews& news) {
    for (const Slot slot : std::exchange(changed_, {})) {
        if (!std::exchange(slots_[slot].changes, false) || slots_[slot].free) continue;
        if (slots_[slot].row != hidden) news.changed.push_back(slots_[slot].row);
    }
    std::ranges::sort(news.changed);
}

void JobRows::send(RowNews news) {
    if (news.all || news.removed.size() + news.inserted.size() > most_single_news)
        news = {0, true, {}, {}, {}};
    if (news.empty()) return;
    news.revision = ++revision_;
    if (tell_) tell_(news);
}

void JobRows::tick(Time now, std::int64_t wall_clock) {
    if (filter_.has_day_ended(wall_clock)) return show(filter_.view(), std::u16string(search_));
    if (order_.is_live()) add_live_rows();
    RowNews news;
    // Places are found among rows whose changes are all known.
    if (now - last_move_ >= move_interval && engine_.revision() == seen_) {
        last_move_ = now;
        move_waiting(news);
    }
    // Figures of running jobs fall also while nothing comes.
    for (const auto& [job, live] : live_.all()) {
        const auto at = by_job_.find(job);
        if (at != by_job_.end()) note(at->second, 0);
    }
    collect_changed(news);
    send(std::move(news));
}

}  // namespace vantlow
