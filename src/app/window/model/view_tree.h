// The tree beside the job list: the categories, and views by state, kind and day, each with its count.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "app/window/model/job_filter.h"
#include "engine/engine.h"

namespace vantlow {

/// One node. Groups ("State", "Kind", "Added") have no view of their own.
struct ViewNode {
    std::optional<View> view;
    std::string label;          ///< in the user's language; categories by their names
    std::size_t parent = none;  ///< its index; always before the node itself
    std::size_t depth = 0;
    std::size_t count = 0;       ///< jobs, of a category with those below it
    std::size_t unfinished = 0;  ///< of them
    std::size_t unread = 0;      ///< finished in this run, and not looked at since
    bool can_rename = false;     ///< categories but the first
    static constexpr std::size_t none = static_cast<std::size_t>(-1);
};

/// Belongs to the engine's thread. Counts follow the changes; all jobs are walked over only at the beginning,
/// when the engine says that everything changed, and when a day ends.
class ViewTree {
  public:
    explicit ViewTree(const Engine& engine);

    struct News {
        bool shape = false;              ///< nodes came, went, moved or were renamed: read all of them
        std::vector<std::size_t> nodes;  ///< whose counts changed
    };
    void on_news(std::function<void(const News&)> tell) { tell_ = std::move(tell); }

    [[nodiscard]] const std::vector<ViewNode>& nodes() const noexcept { return nodes_; }
    /// The node of a view; ViewNode::none where there is none.
    [[nodiscard]] std::size_t find(const View& view) const;
    /// The category that new jobs of this view are filed in.
    [[nodiscard]] Guid category_for(const View& view) const;
    /// The category that a person chose by the view; zero where it is none, or the first one.
    [[nodiscard]] Guid chosen_category(const View& view) const;
    /// The jobs of this view have been looked at: none of them is unread any more.
    void looked_at(const View& view);
    /// Reads labels and nodes anew, as after another language was chosen.
    void rebuild();

    void changed(const Changes& changes);
    void tick(std::int64_t wall_clock);

  private:
    struct Known {
        std::uint32_t category = 0;  ///< index of its node
        JobState state = JobState::waiting;
        DayGroup day = DayGroup::today;
        JobKind kind = JobKind::transfer;
        bool unread = false;
    };
    void make_nodes();
    void add_category(const CClassNode& category, std::size_t parent, std::size_t depth);
    std::size_t add_group(std::string label);
    void count_all();
    void count(const Known& known, std::size_t step);
    void look_at(const Guid& job);
    [[nodiscard]] Known known_of(const CJobNode& job) const;
    void tell(bool shape);

    const Engine& engine_;
    std::function<void(const News&)> tell_;
    DayBorders days_;
    std::vector<ViewNode> nodes_;
    std::unordered_map<Guid, std::uint32_t, GuidHash> category_nodes_;
    std::array<std::size_t, 5> state_nodes_{};
    std::unordered_map<JobKind, std::size_t> kind_nodes_;
    std::array<std::size_t, day_groups> day_nodes_{};
    std::unordered_map<Guid, Known, GuidHash> known_;
    std::vector<bool> touched_;  ///< nodes whose counts changed since the last news
};

}  // namespace vantlow
