#include "transfer/job/work_rule.h"

#include <algorithm>
#include <limits>

namespace vantlow {

std::optional<WorkTake> choose_work(std::span<const WorkItem> items, std::int64_t split_size) {
    std::int64_t largest = 0;
    std::size_t chosen = items.size();
    for (std::size_t i = 0; i < items.size(); ++i) {
        std::int64_t amount = items[i].end - items[i].start;
        if (items[i].active) amount /= 2;  // only the far half can be taken from a connection at work
        if (amount > largest) {
            largest = amount;
            chosen = i;
        }
    }
    if (chosen == items.size()) return std::nullopt;
    const WorkItem& item = items[chosen];
    if (!item.active) return WorkTake{chosen, false, item.start, item.end};
    if (largest < split_size) return std::nullopt;
    const std::int64_t middle =
        item.start + (item.end - item.start) / 2;  // (start + end) / 2 without overflow
    return WorkTake{chosen, true, middle, item.end};
}

std::int64_t first_whole_block(std::int64_t start, std::int64_t base, std::int64_t block_size) {
    return (start - base + block_size - 1) / block_size;
}

std::optional<std::size_t> choose_takeover(std::span<const PaceItem> items,
                                           std::int64_t own_bytes_per_second) {
    if (own_bytes_per_second <= 0) return std::nullopt;
    constexpr double connecting = 1.0;
    constexpr double soon = 2.0;
    double longest = soon;
    std::optional<std::size_t> chosen;
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (!items[i].active || items[i].remaining <= 0) continue;
        const auto remaining = static_cast<double>(items[i].remaining);
        const double theirs =
            remaining / static_cast<double>(std::max<std::int64_t>(items[i].bytes_per_second, 1));
        const double mine = remaining / static_cast<double>(own_bytes_per_second) + connecting;
        if (theirs > longest && theirs > 3 * mine) {
            longest = theirs;
            chosen = i;
        }
    }
    return chosen;
}

}  // namespace vantlow
