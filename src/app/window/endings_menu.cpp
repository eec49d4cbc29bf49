#include "app/window/endings_menu.h"

#include <algorithm>
#include <utility>

#include "app/window/words.h"

namespace vantlow {

EndingsMenu::EndingsMenu(const std::vector<std::u16string>& names, int first_item,
                         const std::function<bool(std::size_t file)>& is_chosen)
    : first_item_(first_item) {
    for (EndingGroup& group : group_by_ending(names)) {
        const bool all = std::ranges::all_of(group.files, is_chosen);
        entries_.push_back({std::move(group), all});
    }
}

void EndingsMenu::append_to(wxMenu& menu) const {
    int item = first_item_;
    for (const auto& [group, is_chosen] : entries_)
        menu.AppendCheckItem(item++, as_label(label_of(group)))->Check(is_chosen);
}

std::optional<EndingsMenu::Turn> EndingsMenu::turn(int item) const {
    const auto at = static_cast<std::size_t>(item - first_item_);
    if (item < first_item_ || at >= entries_.size()) return std::nullopt;
    return Turn{entries_[at].group.files, !entries_[at].is_chosen};
}

}  // namespace vantlow
