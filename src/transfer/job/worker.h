// A connection at work, as the books know it.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>

#include "base/clock.h"
#include "store/job.h"
#include "transfer/job/version_rule.h"

namespace vantlow {

/// Bytes that are there and are to be fetched once more and compared: work like a segment.
struct BlockCheck {
    std::int64_t begin = 0;
    std::int64_t end = 0;
    bool required = false;  ///< the file is not believed to be of one version before this was compared
    bool last = false;   ///< made when all is there: a difference may mean that the server has changed since
    bool again = false;  ///< made before, and it agreed: see JobPolicy::LastChecks
    bool by_another = false;    ///< of several mirrors: asked of one that did not give it
    bool only_version = false;  ///< no bytes, but whether the resource is the same one still
    /// Compared with the version that the resource was seen to become: see JobPolicy::SeenChange. `match`: of
    /// the answer that is compared with.
    bool of_change = false;
    VersionMatch match = VersionMatch::unsure;
    int worker = 0;  ///< compares it now; 0: nobody
};

/// One connection, as the books and the policy know it. The connection's own thread moves `position`; all
/// else but the measures is changed under the job's lock.
struct Worker {
    int id = 0;  ///< positive; CJobSeg::worker names it

    // Any thread may read these; `limit` is set by the policy, the others by the connection.
    std::atomic<std::int64_t> position{0};  ///< the next byte to receive
    std::atomic<std::int64_t> limit{0};     ///< where the segment ends now
    std::atomic<std::int64_t> bytes_per_second{0};
    std::atomic<bool> settled{false};  ///< the speed has been measured for a while

    bool receiving = false;  ///< its answer was accepted, and goes on
    bool retired = false;    ///< it was told to end
    CJobSeg* segment = nullptr;
    std::optional<BlockCheck> check;
    int mirror = -1;            ///< which of the job's; -1: none
    int chair = -1;             ///< its place among the connections that the job may have
    bool finished_one = false;  ///< a segment was finished: the next one is taken from others
    int answer = 0;             ///< of the AnswerBook: the open answer
    std::int64_t open_at =
        -1;  ///< without a segment: where its open answer would go on; -1: no answer is open
    bool keeps_answer = false;   ///< it takes its work with the open answer, reading on to it
    Clock::time_point next_try;  ///< not receiving: when it asks
    std::int64_t furthest = 0;   ///< position that any attempt on this segment reached

    [[nodiscard]] bool has_work() const noexcept { return segment != nullptr || check.has_value(); }
    /// Bytes of the file come, or may go on to come at once; a check's do not count.
    [[nodiscard]] bool brings_bytes() const noexcept { return receiving && !retired && !check.has_value(); }
    void begin_at(std::int64_t from, std::int64_t end) noexcept {
        furthest = from;
        position.store(from, std::memory_order_relaxed);
        limit.store(end, std::memory_order_relaxed);
    }
};

}  // namespace vantlow
