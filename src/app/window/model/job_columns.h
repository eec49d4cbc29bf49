// The columns of the job list: their texts, and the keys that sort them.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "app/process/live_jobs.h"
#include "engine/engine.h"

namespace vantlow {

enum class Column : std::uint8_t {
    name,
    size,
    done,  ///< per cent
    speed,
    left,  ///< time
    state,
    category,
    added,
    finished,
    address,
    folder,
    comment,
    kind,
    connections,
    order,    ///< place among those that wait
    trouble,  ///< why it failed or waits
};
inline constexpr std::size_t column_count = 16;

/// The facts about a column that a pane needs.
struct ColumnFacts {
    Column column;
    std::string_view name;   ///< never changes: for files
    std::string_view title;  ///< English: through tr()
    int width;               ///< of a first start, in characters
    bool is_number;          ///< aligned to the right
    bool shown;              ///< at a first start
    bool is_live;            ///< changes while a job runs
};
/// All columns, in the order of the enumeration.
const std::array<ColumnFacts, column_count>& column_table();
const ColumnFacts& facts_of(Column column);

struct SortKey {
    Column column = Column::added;
    bool descending = false;
    bool operator==(const SortKey&) const = default;
};

/// The symbol in front of a row; its text is state_text() of the same.
enum class RowSign : std::uint8_t { waiting, running, held_up, stopped, finished, failed };

/// The symbol of a state of which nothing more is known.
RowSign sign_of(JobState state) noexcept;

/// One job as its row shows it. Made when the row is drawn; the records outlive it.
struct RowFacts {
    const CJobNode& job;
    const CClassNode& category;
    const LiveJob* live = nullptr;  ///< null: it does not run
    std::size_t place = 0;  ///< among those that wait, from 1 on; 0: not looked up, or it does not wait
    std::optional<FileMoveProgress> move{};  ///< while its files go to another place

    [[nodiscard]] std::string cell(Column column) const;
    [[nodiscard]] RowSign sign() const;
    [[nodiscard]] int percent() const;  ///< -1: the size is unknown
};

/// The facts of a job, but for its place.
RowFacts facts_of(const CJobNode& job, const Engine& engine, const LiveJobs& live);

/// Makes keys whose order as bytes is the order of rows. Texts are ordered without regard to letter case, and
/// the numbers in them by their value ("file 9" before "file 10").
class RowOrder {
  public:
    RowOrder() = default;
    RowOrder(std::vector<SortKey> keys, const Engine& engine, const LiveJobs& live);
    /// Appends the key of a job. Rows with equal values stand in the order in which they were filed.
    void append_key(const CJobNode& job, std::string& key) const;
    [[nodiscard]] const std::vector<SortKey>& keys() const noexcept { return keys_; }
    /// True where the order depends on what running jobs do.
    [[nodiscard]] bool is_live() const noexcept { return live_order_; }
    /// The fields (job_field) whose change can move a row.
    [[nodiscard]] std::uint32_t fields() const noexcept { return fields_; }

  private:
    std::vector<SortKey> keys_{{Column::added, false}};
    const LiveJobs* live_ = nullptr;
    std::unordered_map<Guid, std::string, GuidHash> category_keys_;
    bool live_order_ = false;
    std::uint32_t fields_ = 0;
};

}  // namespace vantlow
