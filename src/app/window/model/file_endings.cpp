#include "app/window/model/file_endings.h"

#include <algorithm>
#include <map>

#include "app/terminal/display_text.h"
#include "app/window/model/texts.h"
#include "base/text.h"

namespace vantlow {
namespace {

// A longer one is part of a name: "Vol. 2 of the journey".
constexpr std::size_t longest_ending = 10;

std::u16string ending_of(std::u16string_view name) {
    if (const auto slash = name.find_last_of(u"/\\"); slash != std::u16string_view::npos)
        name.remove_prefix(slash + 1);
    const auto dot = name.find_last_of(u'.');
    const bool has_one = dot != std::u16string_view::npos && dot > 0 && dot + 1 < name.size() &&
                         name.size() - dot <= longest_ending &&
                         name.find(u' ', dot) == std::u16string_view::npos;
    return has_one ? folded(name.substr(dot)) : std::u16string();
}

}  // namespace

std::string label_of(const EndingGroup& group) {
    return printable(group.ending) + " (" + std::to_string(group.files.size()) + ")";
}

std::vector<EndingGroup> group_by_ending(const std::vector<std::u16string>& names) {
    std::map<std::u16string, std::vector<std::size_t>> by_ending;
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (std::u16string ending = ending_of(names[i]); !ending.empty())
            by_ending[std::move(ending)].push_back(i);
    }
    std::vector<EndingGroup> groups;
    for (auto& [ending, files] : by_ending) groups.push_back({to_utf8(ending), std::move(files)});
    std::ranges::stable_sort(
        groups, [](const EndingGroup& a, const EndingGroup& b) { return a.files.size() > b.files.size(); });
    if (groups.size() > most_endings) groups.resize(most_endings);
    return groups;
}

}  // namespace vantlow
