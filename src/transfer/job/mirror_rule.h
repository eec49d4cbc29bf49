// Which mirror a connection takes: a plain function, without threads or time.
#pragma once

#include <cstddef>
#include <optional>
#include <span>

namespace vantlow {

/// One mirror as the rule sees it.
struct MirrorItem {
    int connections = 0;  ///< that it has now
    int failures = 0;     ///< of its connections so far, those counted that were much too slow
    bool usable = true;   ///< may be given another connection
};

/// The usable mirror with the fewest connections and failures together; of equal ones the first. None when no
/// mirror is usable.
std::optional<std::size_t> choose_mirror(std::span<const MirrorItem> items);

}  // namespace vantlow
