#include "app/process/queue_order.h"

#include <algorithm>
#include <set>

namespace vantlow {

Done move_in_queue(Engine& engine, const Guid& job, std::size_t place) {
    const std::vector<const CJobNode*> queue = engine.queue();
    const auto found = std::ranges::find(queue, job, &CJobNode::identity);
    if (found == queue.end()) return {Done::Fault::not_waiting};
    auto now = static_cast<std::size_t>(found - queue.begin());
    const std::size_t last = queue.size() - 1;
    place = std::min(place, last);
    Done done;
    // The nearest end, and steps from there.
    if (place < now && place < now - place) {
        done = engine.reorder(job, Order::first);
        now = 0;
    } else if (place > now && last - place < place - now) {
        done = engine.reorder(job, Order::last);
        now = last;
    }
    for (; done.ok() && now < place; ++now) done = engine.reorder(job, Order::later);
    for (; done.ok() && now > place; --now) done = engine.reorder(job, Order::earlier);
    return done;
}

Done move_before(Engine& engine, const std::vector<Guid>& jobs, const Guid& next) {
    const std::set<Guid> moving(jobs.begin(), jobs.end());
    std::vector<Guid> movers;
    std::size_t before = 0;  // jobs that stay in front of the place
    bool is_behind = false;
    for (const CJobNode* const job : engine.queue()) {
        is_behind = is_behind || job->identity == next;
        if (moving.contains(job->identity)) {
            movers.push_back(job->identity);
        } else if (!is_behind) {
            ++before;
        }
    }
    if (movers.empty() || (!next.is_zero() && !is_behind)) return {Done::Fault::not_waiting};
    // Behind all first, so that none of them stands in the way of another.
    for (const Guid& job : movers) {
        if (Done done = engine.reorder(job, Order::last); !done.ok()) return done;
    }
    for (const Guid& job : movers) {
        if (Done done = move_in_queue(engine, job, before++); !done.ok()) return done;
    }
    return {};
}

}  // namespace vantlow
