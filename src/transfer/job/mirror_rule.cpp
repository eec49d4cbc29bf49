#include "transfer/job/mirror_rule.h"

namespace vantlow {

std::optional<std::size_t> choose_mirror(std::span<const MirrorItem> items) {
    std::optional<std::size_t> chosen;
    int fewest = 0;
    for (std::size_t i = 0; i < items.size(); ++i) {
        const int load = items[i].connections + items[i].failures;
        if (!items[i].usable || (chosen && load >= fewest)) continue;
        chosen = i;
        fewest = load;
    }
    return chosen;
}

}  // namespace vantlow
