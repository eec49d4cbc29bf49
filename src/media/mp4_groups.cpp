#include "media/mp4_groups.h"

#include <algorithm>

namespace vantlow {
namespace {

std::uint32_t index_in(std::vector<std::vector<std::byte>>& entries, const std::vector<std::byte>& entry) {
    const auto found = std::find(entries.begin(), entries.end(), entry);
    const auto index = static_cast<std::uint32_t>(found - entries.begin()) + 1;
    if (found == entries.end()) entries.push_back(entry);
    return index;
}

}  // namespace

std::vector<GroupMapping> GroupList::add(const std::vector<Mp4Groups>& groups) {
    std::vector<GroupMapping> mappings(groups_.size());
    for (std::size_t i = 0; i < groups.size(); ++i) {
        const Mp4Groups& source = groups[i];
        const auto found = std::find_if(groups_.begin(), groups_.end(), [&](const JoinedGroups& known) {
            return known.type == source.type && known.parameter == source.parameter;
        });
        const auto place = static_cast<std::size_t>(found - groups_.begin());
        if (found == groups_.end()) {
            if (groups_.size() == most_groups) continue;
            groups_.push_back({source.type, source.parameter, {}});
            mappings.emplace_back();
        }
        mappings[place].source = static_cast<int>(i);
        mappings[place].indices = {0};
        for (const auto& entry : source.entries) {
            mappings[place].indices.push_back(index_in(groups_[place].entries, entry));
        }
    }
    return mappings;
}

}  // namespace vantlow
