// The rows of the job list: which jobs it shows and in which order. The jobs' data stay the engine's and are
// read when a row is drawn.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "app/process/live_jobs.h"
#include "app/window/model/job_columns.h"
#include "app/window/model/job_filter.h"
#include "engine/engine.h"

namespace vantlow {

/// The changes of the rows since the last news. A row that moved is removed and inserted.
struct RowNews {
    std::uint64_t revision = 0;
    bool all = false;                   ///< everything is new: count, rows and cells
    std::vector<std::size_t> removed;   ///< rows as they were numbered before, ascending
    std::vector<std::size_t> inserted;  ///< rows as they are numbered now, ascending
    std::vector<std::size_t> changed;   ///< rows as they are numbered now, ascending: cells differ
    bool places = false;                ///< cells of Column::order that were asked for differ, of any row

    [[nodiscard]] bool empty() const noexcept {
        return !all && !places && removed.empty() && inserted.empty() && changed.empty();
    }
};

/// Belongs to the engine's thread. Costs for n rows: building, sorting and filtering O(n log n); a change
/// that does not move its row O(1); those that move rows are gathered and done together, once a second at
/// most.
class JobRows {
  public:
    using Time = std::chrono::steady_clock::time_point;

    JobRows(const Engine& engine, const LiveJobs& live);
    /// Called after every change, from within show(), sort_by(), changed() and tick().
    void on_news(std::function<void(const RowNews&)> tell) { tell_ = std::move(tell); }

    /// Shows other jobs. The selection keeps those that are still shown.
    void show(const View& view, std::u16string_view search);
    /// The first key counts most. Empty: by the moment of adding.
    void sort_by(std::vector<SortKey> keys);
    [[nodiscard]] const std::vector<SortKey>& sorted_by() const noexcept { return order_.keys(); }
    [[nodiscard]] const View& view() const noexcept { return filter_.view(); }

    [[nodiscard]] std::size_t size() const noexcept { return rows_.size(); }
    [[nodiscard]] std::uint64_t revision() const noexcept { return revision_; }
    [[nodiscard]] Guid at(std::size_t row) const { return slots_[rows_[row]].job; }
    [[nodiscard]] std::optional<std::size_t> row_of(const Guid& job) const;
    /// None for a row whose job has just been removed, and beyond the last row.
    [[nodiscard]] std::optional<RowFacts> facts(std::size_t row) const;
    /// Empty where facts() has none.
    [[nodiscard]] std::string cell(std::size_t row, Column column) const;

    /// The selection goes by jobs, so that it survives sorting and filtering.
    void select(const std::vector<Guid>& jobs);
    void select(const Guid& job, bool selected);
    [[nodiscard]] bool is_selected(std::size_t row) const { return selection_.contains(at(row)); }
    [[nodiscard]] std::vector<Guid> selected() const;  ///< shown ones, in the order of the rows
    [[nodiscard]] std::size_t selected_count() const;  ///< of those
    [[nodiscard]] std::vector<std::size_t> selected_rows() const;

    /// To be called with the engine's news, behind LiveJobs::look().
    void changed(const Changes& changes, Time now);
    /// Once a second: moves rows that wait for it; a new day.
    void tick(Time now, std::int64_t wall_clock);

  private:
    using Slot = std::uint32_t;
    static constexpr std::uint32_t hidden = 0xFFFFFFFF;  ///< no row: the filter does not let it pass
    struct Entry {
        Guid job;
        std::uint32_t row = hidden;
        bool free = true;
        bool moves = false;    ///< waits in moving_
        bool changes = false;  ///< its cells changed since the last news
    };
    void rebuild();
    void renumber(std::size_t first);
    Slot slot_of(const Guid& job);
    void forget(const Guid& job);
    void note(Slot slot, std::uint32_t fields);
    void move_waiting(RowNews& news);
    void collect_changed(RowNews& news);
    void send(RowNews news);
    void add_live_rows();
    [[nodiscard]] std::size_t place_of(const Guid& job) const;

    const Engine& engine_;
    const LiveJobs& live_;
    std::function<void(const RowNews&)> tell_;
    JobFilter filter_;
    std::u16string search_;
    RowOrder order_;
    std::vector<Entry> slots_;
    std::vector<Slot> free_;
    std::unordered_map<Guid, Slot, GuidHash> by_job_;
    std::vector<Slot> rows_;
    std::vector<Slot> walk_;  ///< of all jobs, in the engine's order when they were read last
    std::vector<Slot> moving_;
    std::vector<Slot> changed_;
    std::vector<Guid> live_rows_;  ///< that ran when the order was looked at last
    std::unordered_set<Guid, GuidHash> selection_;
    mutable std::unordered_map<Guid, std::size_t, GuidHash>
        places_;  ///< of waiting jobs; empty: not asked for
    Time last_move_{};
    std::uint64_t revision_ = 0;  ///< of the rows
    std::uint64_t seen_ = 0;      ///< of the engine
};

}  // namespace vantlow
