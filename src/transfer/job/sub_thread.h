// One connection of a job: fetches its segment, then asks for more.
#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "base/buffer.h"
#include "platform/thread_pool.h"
#include "store/job.h"
#include "transfer/job/local_file.h"
#include "transfer/job/source.h"
#include "transfer/job/speed_share.h"

namespace vantlow {

/// What a sub thread tells of an attempt that failed.
struct FailedAttempt {
    Result result;
    std::int64_t asked = 0;         ///< the offset that was asked for
    bool accepted = false;          ///< the server's answer had been accepted
    bool progressed = false;        ///< the attempt brought bytes that no earlier one had
    bool segment_untouched = true;  ///< none of the segment's bytes were received yet
    std::int64_t told_size = -1;    ///< the total size that a refusal told; -1: none
    int errors = 0;                 ///< failures of this connection so far, this one counted
    int fruitless = 0;              ///< of these, those in a row that brought nothing new
    std::optional<std::chrono::seconds> server_asks;
};

/// What the job makes of it.
struct AfterFailure {
    bool again = false;
    std::chrono::milliseconds wait{0};
    bool announced = false;  ///< the wait is worth a line in the log
};

/// What a sub thread needs of its job. All operations may be called from any sub thread.
class SubThreadHost {
  public:
    SubThreadHost() = default;
    SubThreadHost(const SubThreadHost&) = delete;
    SubThreadHost& operator=(const SubThreadHost&) = delete;
    virtual ~SubThreadHost() = default;

    /// Takes work: gives the asker a segment (sets its range) or nothing, in which case it ends.
    virtual bool take_work(CTransferSubThread& asker) = 0;
    /// Whom to ask for what, with the settings as they are now.
    virtual SourcePlan plan(CTransferSubThread& asker) = 0;
    /// These bytes of the asker's answer are about to be written.
    virtual void delivered(const CTransferSubThread& asker, std::int64_t offset, std::int64_t bytes) = 0;
    /// How many bytes before the asker's position are to be fetched again and compared with the file.
    virtual std::int64_t overlap_before(const CTransferSubThread& asker) = 0;
    /// How many bytes behind the end of the asker's segment are there to be compared; negative: none yet, but
    /// they are on their way.
    virtual std::int64_t overlap_behind(const CTransferSubThread& asker) = 0;
    /// The server answered; 0 to go on. `asked` is the offset that was asked for.
    virtual Result response_accepted(CTransferSubThread& asker, const SourceAnswer& answer,
                                     std::int64_t asked) = 0;
    /// The end of a resource of unknown size is reached at the asker's position.
    virtual void end_found(CTransferSubThread& asker) = 0;
    virtual AfterFailure after_failure(CTransferSubThread& asker, const FailedAttempt& attempt) = 0;
    /// The asker works on its segment no more; what it received is written. True when the job is complete.
    virtual bool release(CTransferSubThread& asker) = 0;
    /// The thread is about to end; `last` is what ended it.
    virtual void ended(CTransferSubThread& asker, const Result& last) = 0;
    virtual CLocalFile& file() = 0;
    virtual void count_received(std::int64_t bytes) noexcept = 0;
};

/// What a sub thread works with; all of it outlives the thread.
struct SubThreadTools {
    ConnectionServices& services;
    const LibraryTables& libraries;
    const Settings& settings;
    LogSink& log;
    StopSource& job_stop;
    ThreadPool& threads;
    JobPace& pace;
};

/// A thread with one connection and, at a time, one segment.
class CTransferSubThread {
  public:
    CTransferSubThread(SubThreadHost& host, const SubThreadTools& tools);
    ~CTransferSubThread();
    CTransferSubThread(const CTransferSubThread&) = delete;
    CTransferSubThread& operator=(const CTransferSubThread&) = delete;

    /// Fails where the system gives no further thread.
    Result start();
    /// Ends this connection only; what it received is kept and its segment becomes idle.
    void retire() noexcept { stop_.request(Code::handed_over); }
    [[nodiscard]] bool is_retired() const noexcept { return stop_.requested(); }
    void join();

    // Any thread, under the job's lock where the segment's range matters.
    [[nodiscard]] std::int64_t position() const noexcept { return position_.load(std::memory_order_relaxed); }
    [[nodiscard]] std::int64_t limit() const noexcept { return limit_.load(std::memory_order_relaxed); }
    void set_limit(std::int64_t end) noexcept { limit_.store(end, std::memory_order_relaxed); }
    /// Connected and receiving for its segment.
    [[nodiscard]] bool is_active() const noexcept { return node_.active.load(std::memory_order_relaxed); }
    [[nodiscard]] std::int64_t bytes_per_second() const noexcept {
        return speed_.load(std::memory_order_relaxed);
    }

    /// It has given back a complete segment, and closes its connection where there is no other.
    [[nodiscard]] bool is_closing() const noexcept { return closing_; }
    /// True when the speed has been measured for a while.
    [[nodiscard]] bool is_settled() const noexcept {
        return is_active() && settled_.load(std::memory_order_relaxed);
    }
    /// Average of the last segment, bytes per second. This thread only.
    [[nodiscard]] std::int64_t segment_speed() const noexcept { return segment_speed_; }

    /// The segment at work, null when idle. Changed by the host under the job's lock.
    CJobSeg* segment = nullptr;
    /// Which of the job's mirrors it fetches from; MirrorSet::none while it has none. Changed by the host
    /// under the job's lock.
    int mirror = -1;
    /// True once a segment was finished; changed by this thread.
    bool finished_one = false;
    /// Begins at a position, before anything was received for it. By the host, from this thread or before
    /// start().
    void begin_at(std::int64_t position, std::int64_t end) noexcept;

    /// Goes back to the beginning of the file; the furthest position so far still counts as reached.
    void rewind() noexcept { position_.store(0, std::memory_order_relaxed); }

  private:
    void run();
    Result run_segment();
    Result open_source();
    Result open_at(SourcePlan plan, SourceAnswer& answer);
    Result ask_for_more(bool& there_is);
    Result receive();
    Result moved_failure(const Moved& moved) const;
    Result flush();
    Result compare_behind();
    Result compare(std::int64_t offset, std::int64_t bytes);
    Result hold_against_file(std::int64_t offset, std::span<const std::byte> fetched);
    bool try_again(const Result& result);
    void close_source(bool reset);
    void measure(std::size_t bytes, Clock::time_point now);

    SubThreadHost& host_;
    SubThreadTools tools_;
    StopSource stop_;
    CConnectionNode node_;
    SettingsShare share_;
    std::unique_ptr<Source> source_;
    PageBuffer gather_;
    std::size_t gathered_ = 0;               ///< bytes in gather_, the last of which lies before position_
    std::vector<std::byte> past_end_;        ///< what was received behind the segment's end when that was cut
    std::atomic<std::int64_t> position_{0};  ///< the next byte to receive
    std::atomic<std::int64_t> limit_{0};     ///< where the segment ends now
    std::atomic<std::int64_t> speed_{0};
    std::atomic<bool> settled_{false};
    std::atomic<bool> closing_{false};
    int measures_ = 0;  ///< on this segment, since it is received
    std::int64_t segment_speed_ = 0;
    std::int64_t told_size_ = -1;
    Clock::time_point measured_{};
    std::int64_t measured_bytes_ = 0;
    Clock::time_point flushed_{};
    std::chrono::milliseconds silence_{30000};
    std::optional<std::chrono::seconds> server_asks_;
    std::int64_t asked_ = 0;
    std::int64_t best_ = 0;  ///< the furthest position of any attempt on this segment
    std::int64_t segment_start_ = 0;
    std::int64_t answer_at_ = 0;      ///< offset of the next byte that the open answer gives
    bool may_go_on_ = false;          ///< SourceAnswer::may_go_on of the open answer
    bool beyond_end_ = false;         ///< SourceAnswer::beyond_end of the last one
    std::int64_t answered_from_ = 0;  ///< the position when the open answer was accepted
    bool accepted_ = false;
    int errors_ = 0;
    int fruitless_ = 0;
    ThreadPool::Running thread_;  ///< last: everything above is there while it runs
};

}  // namespace vantlow
