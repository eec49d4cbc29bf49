// Which piece of work a connection gets that has none: a plain function, without threads or time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace vantlow {

/// One segment as the rule sees it. For a time-indexed stream the positions are milliseconds.
struct WorkItem {
    std::int64_t start = 0;  ///< first byte that was not received yet
    std::int64_t end = 0;    ///< exclusive
    bool active = false;     ///< a connection receives for it now
};

/// The piece of work that the asking connection takes.
struct WorkTake {
    std::size_t index = 0;  ///< the segment that it is taken from
    bool cut = false;       ///< true: a new segment [start, end), the old one now ends at start; false: the
                            ///< segment itself
    std::int64_t start = 0;
    std::int64_t end = 0;
};

/// Takes the largest remaining amount, of an active segment only its far half; of equal ones the first. An
/// active segment is not cut below `split_size`. None when nothing is to be taken.
std::optional<WorkTake> choose_work(std::span<const WorkItem> items, std::int64_t split_size);

/// The index of the first whole block at or behind `start`.
std::int64_t first_whole_block(std::int64_t start, std::int64_t base, std::int64_t block_size);

/// One segment with its connection's speed, for the rule below.
struct PaceItem {
    std::int64_t remaining = 0;  ///< bytes
    std::int64_t bytes_per_second = 0;
    bool active = false;
};

/// Which active segment a connection that found no work should take over whole, because it would be done with
/// it in less than a third of the time that the present one needs, a second for connecting counted in. None
/// when there is no such segment, or it is done within two seconds anyway.
std::optional<std::size_t> choose_takeover(std::span<const PaceItem> items,
                                           std::int64_t own_bytes_per_second);

}  // namespace vantlow
