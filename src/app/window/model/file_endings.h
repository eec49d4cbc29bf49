// Files by the endings of their names, for whoever chooses among very many.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace vantlow {

struct EndingGroup {
    std::string ending;              ///< ".mkv": lower case, UTF-8
    std::vector<std::size_t> files;  ///< by their numbers in the list, from 0 on
};

/// ".mkv (3)"
std::string label_of(const EndingGroup& group);

/// The endings of these names (also of paths), those of the most files first, most_endings of them; names
/// without one are in no group.
std::vector<EndingGroup> group_by_ending(const std::vector<std::u16string>& names);
inline constexpr std::size_t most_endings = 20;

}  // namespace vantlow
