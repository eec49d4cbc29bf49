#include "app/window/model/view_tree.h"

#include <algorithm>
#include <ctime>
#include <utility>

#include "app/window/model/texts.h"
#include "app/window/model/translate.h"

namespace vantlow {
namespace {

constexpr JobState states[] = {JobState::running, JobState::waiting, JobState::stopped, JobState::failed,
                               JobState::finished};
// The kinds that this program carries out.
constexpr JobKind kinds[] = {JobKind::transfer, JobKind::torrent, JobKind::document};

std::string day_text(DayGroup day) {
    switch (day) {
        case DayGroup::today:
            return tr("Today");
        case DayGroup::yesterday:
            return tr("Yesterday");
        case DayGroup::week:
            return tr("Last seven days");
        case DayGroup::month:
            return tr("Last thirty days");
        case DayGroup::older:
            return tr("Older");
    }
    return {};
}

bool is_completed(const CClassNode& category) {
    return category.name == u"Completed" && category.parent != nullptr && category.parent->parent == nullptr;
}

}  // namespace

ViewTree::ViewTree(const Engine& engine)
    : engine_(engine), days_(static_cast<std::int64_t>(std::time(nullptr))) {
    make_nodes();
    count_all();
}

void ViewTree::add_category(const CClassNode& category, std::size_t parent, std::size_t depth) {
    const std::size_t node = nodes_.size();
    category_nodes_[category.identity] = static_cast<std::uint32_t>(node);
    nodes_.push_back({View::of_category(category.identity), name_of(category), parent, depth});
    nodes_.back().can_rename = category.parent != nullptr;
    for (const bool completed_first : {true, false}) {
        for (const auto& child : category.children) {
            if (is_completed(*child) == completed_first) add_category(*child, node, depth + 1);
        }
    }
}

std::size_t ViewTree::add_group(std::string label) {
    nodes_.push_back({std::nullopt, std::move(label)});
    return nodes_.size() - 1;
}

void ViewTree::make_nodes() {
    nodes_.clear();
    category_nodes_.clear();
    if (const CClassNode* const first = engine_.first_category()) add_category(*first, ViewNode::none, 0);
    const auto add = [this](std::size_t group, const View& view, std::string label) {
        nodes_.push_back({view, std::move(label), group, 1});
        return nodes_.size() - 1;
    };
    const std::size_t by_state = add_group(tr("By state"));
    for (const JobState state : states)
        state_nodes_[static_cast<std::size_t>(state)] =
            add(by_state, View::of_state(state), as_heading(state_text(state)));
    const std::size_t by_kind = add_group(tr("By kind"));
    for (const JobKind kind : kinds) kind_nodes_[kind] = add(by_kind, View::of_kind(kind), kind_text(kind));
    const std::size_t by_day = add_group(tr("By day"));
    for (std::size_t day = 0; day < day_groups; ++day) {
        const auto group = static_cast<DayGroup>(day);
        day_nodes_[day] = add(by_day, View::of_day(group), day_text(group));
    }
}

void ViewTree::count_all() {
    for (ViewNode& node : nodes_) node.count = node.unfinished = node.unread = 0;
    touched_.assign(nodes_.size(), false);
    const std::unordered_map<Guid, Known, GuidHash> before = std::exchange(known_, {});
    const std::vector<const CJobNode*> jobs = engine_.jobs_below(nullptr);
    known_.reserve(jobs.size());
    for (const CJobNode* job : jobs) {
        Known now = known_of(*job);
        if (!before.empty() && now.state == JobState::finished) {
            const auto was = before.find(job->identity);
            now.unread = was != before.end() && was->second.unread;
        }
        known_.emplace(job->identity, now);
        count(now, 1);
    }
    touched_.assign(nodes_.size(), false);
}

// Adds the job to the nodes that show it, or takes it away (`step` of -1).
void ViewTree::count(const Known& known, std::size_t step) {
    const auto add = [&](std::size_t node) {
        nodes_[node].count += step;
        if (known.state != JobState::finished) nodes_[node].unfinished += step;
        if (known.unread) nodes_[node].unread += step;
        touched_[node] = true;
    };
    for (std::size_t node = known.category; node != ViewNode::none; node = nodes_[node].parent) add(node);
    add(state_nodes_[static_cast<std::size_t>(known.state)]);
    add(day_nodes_[static_cast<std::size_t>(known.day)]);
    if (const auto kind = kind_nodes_.find(known.kind); kind != kind_nodes_.end()) add(kind->second);
}

ViewTree::Known ViewTree::known_of(const CJobNode& job) const {
    Known known;
    const auto category = category_nodes_.find(job.category);
    known.category = category != category_nodes_.end() ? category->second : 0;
    known.state = job.state;
    known.day = days_.group_of(job.created);
    known.kind = kind_of(job);
    return known;
}

void ViewTree::look_at(const Guid& job) {
    const CJobNode* const record = engine_.find(job);
    const auto at = known_.find(job);
    if (at != known_.end()) count(at->second, static_cast<std::size_t>(-1));
    if (record == nullptr) {
        if (at != known_.end()) known_.erase(at);
        return;
    }
    Known now = known_of(*record);
    const bool has_ended = at != known_.end() && at->second.state != JobState::finished;
    now.unread = now.state == JobState::finished && at != known_.end() && (at->second.unread || has_ended);
    known_[job] = now;
    count(now, 1);
}

std::size_t ViewTree::find(const View& view) const {
    const auto at = std::ranges::find_if(nodes_, [&view](const ViewNode& node) { return node.view == view; });
    return at == nodes_.end() ? ViewNode::none : static_cast<std::size_t>(at - nodes_.begin());
}

Guid ViewTree::category_for(const View& view) const {
    const bool is_there =
        view.what == View::What::category && engine_.find_category(view.category) != nullptr;
    if (is_there) return view.category;
    const CClassNode* const first = engine_.first_category();
    return first != nullptr ? first->identity : Guid();
}

Guid ViewTree::chosen_category(const View& view) const {
    return view.what == View::What::category ? category_for(view) : Guid();
}

void ViewTree::looked_at(const View& view) {
    const std::size_t node = find(view);
    if (node == ViewNode::none || nodes_[node].unread == 0) return;
    const JobFilter filter(view, {}, engine_, static_cast<std::int64_t>(std::time(nullptr)));
    for (auto& [job, known] : known_) {
        const CJobNode* const record = known.unread ? engine_.find(job) : nullptr;
        if (record == nullptr || !filter.passes(*record)) continue;
        count(known, static_cast<std::size_t>(-1));
        known.unread = false;
        count(known, 1);
    }
    tell(false);
}

void ViewTree::rebuild() {
    make_nodes();
    count_all();
    tell(true);
}

void ViewTree::changed(const Changes& changes) {
    if (changes.everything || changes.categories) return rebuild();
    for (const JobChange& change : changes.jobs) {
        constexpr std::uint32_t counted =
            job_field::state | job_field::category | job_field::added | job_field::removed;
        if ((change.fields & counted) != 0) look_at(change.job);
    }
    tell(false);
}

void ViewTree::tick(std::int64_t wall_clock) {
    if (!days_.are_past(wall_clock)) return;
    days_ = DayBorders(wall_clock);
    rebuild();
}

void ViewTree::tell(bool shape) {
    News news{shape, {}};
    for (std::size_t node = 0; node < touched_.size() && !shape; ++node) {
        if (touched_[node]) news.nodes.push_back(node);
    }
    touched_.assign(nodes_.size(), false);
    if (tell_ && (shape || !news.nodes.empty())) tell_(news);
}

}  // namespace vantlow
