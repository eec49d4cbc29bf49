// Which jobs a list shows: a view, and a searched text.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_set>

#include "engine/engine.h"

namespace vantlow {

/// The day on which a job was added, as seen from today.
enum class DayGroup : std::uint8_t { today, yesterday, week, month, older };
inline constexpr std::size_t day_groups = 5;

/// The beginnings of the groups for one day, local time.
class DayBorders {
  public:
    /// `now`: seconds since 1970.
    explicit DayBorders(std::int64_t now);
    [[nodiscard]] DayGroup group_of(std::int64_t moment) const noexcept;
    /// True once the day is over, or the clock was put back behind it.
    [[nodiscard]] bool are_past(std::int64_t now) const noexcept {
        return now >= tomorrow_ || now < begins_.front();
    }

  private:
    std::int64_t tomorrow_ = 0;
    std::array<std::int64_t, day_groups - 1> begins_{};
};

/// A node of the tree of views.
struct View {
    enum class What : std::uint8_t { all, category, state, kind, day };
    What what = What::all;
    Guid category{};  ///< with the categories below it
    JobState state = JobState::waiting;
    JobKind kind = JobKind::transfer;
    DayGroup day = DayGroup::today;
    bool operator==(const View&) const = default;

    static View of_category(const Guid& category) { return {What::category, category}; }
    static View of_state(JobState state) { return {What::state, {}, state}; }
    static View of_kind(JobKind kind) { return {What::kind, {}, {}, kind}; }
    static View of_day(DayGroup day) { return {What::day, {}, {}, {}, day}; }
};

/// The test that a job passes to be shown.
class JobFilter {
  public:
    JobFilter() = default;
    /// `search`: words that all must occur in a job's name, address, folder or comment, letter case ignored;
    /// "-word" must not occur, "a phrase" in quotation marks is one word.
    JobFilter(View view, std::u16string_view search, const Engine& engine, std::int64_t now);
    [[nodiscard]] bool passes(const CJobNode& job) const;
    [[nodiscard]] const View& view() const noexcept { return view_; }
    /// True when a view by days has to be read anew.
    [[nodiscard]] bool has_day_ended(std::int64_t now) const noexcept {
        return days_ && days_->are_past(now);
    }
    /// The fields (job_field) whose change can let a job pass or not.
    [[nodiscard]] std::uint32_t fields() const noexcept;

  private:
    struct Word {
        std::u16string text;  ///< folded
        bool absent = false;
    };
    View view_;
    std::vector<Word> words_;
    std::unordered_set<Guid, GuidHash> categories_;
    std::optional<DayBorders> days_;
};

}  // namespace vantlow
