// The book of segments: which bytes are missing, and who fetches them.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "store/job.h"
#include "transfer/job/worker.h"

namespace vantlow {

/// A job's segments and the connections at work on them. Plain bookkeeping: guarded by the job's lock.
class SegmentBook {
  public:
    /// The job outlives the book.
    explicit SegmentBook(CJobNode& job) : job_(job) {}

    void enlist(Worker& worker) { workers_.push_back(&worker); }
    void strike(const Worker& worker);
    [[nodiscard]] const std::vector<Worker*>& workers() const noexcept { return workers_; }
    [[nodiscard]] Worker* worker_of(const CJobSeg& segment) const;
    /// Where the segment's bytes begin that nobody has received.
    [[nodiscard]] std::int64_t position_of(const CJobSeg& segment) const;

    /// Gives the worker the whole segment.
    static void assign(CJobSeg& segment, Worker& worker);
    /// Cuts a segment in two at `at`; the new one stands behind it and has no worker.
    CJobSeg& cut(std::size_t index, std::int64_t at);
    /// A range whose own connection got no answer goes back to the connection that receives what is in front
    /// of it and whose open answer flows on into it. False where nobody does.
    bool hand_back(CJobSeg& segment);
    /// The segment without a worker that begins at `at`; or, `waiting`, one whose worker has no answer yet.
    [[nodiscard]] std::optional<std::size_t> starting_at(std::int64_t at, bool waiting) const;
    /// The first segment without a worker at or behind `at` that misses bytes.
    [[nodiscard]] CJobSeg* idle_behind(std::int64_t at) const;
    /// A worker fetches, or wants to fetch, bytes behind `at`.
    [[nodiscard]] bool is_worked_on_behind(std::int64_t at) const;

    /// Bytes were handed to the system; returns up to where they made segments move on.
    std::int64_t advance(std::int64_t offset, std::int64_t bytes);
    /// Marks what is not missing within a range as missing again.
    void take_back(std::int64_t begin, std::int64_t end);
    void drop_complete();
    /// The same, as one range that begins anew.
    void begin_anew();

    [[nodiscard]] bool is_missing(std::int64_t begin, std::int64_t end) const;
    [[nodiscard]] bool is_all_there() const;
    /// The end of what is missing last before `at`: bytes between there and `at` are there.
    [[nodiscard]] std::int64_t there_from(std::int64_t at) const;
    /// Where the first missing byte at or behind `at` is; the size where there is none.
    [[nodiscard]] std::int64_t there_until(std::int64_t at) const;
    /// The ranges that are there, in the order of the file.
    struct Range {
        std::int64_t begin = 0;
        std::int64_t end = 0;
    };
    [[nodiscard]] std::vector<Range> there() const;

  private:
    CJobNode& job_;
    std::vector<Worker*> workers_;
};

}  // namespace vantlow
