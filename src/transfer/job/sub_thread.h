// One connection of a job: fetches its segment, then asks for more.
#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "base/buffer.h"
#include "platform/thread.h"
#include "storage/local_file.h"
#include "transfer/job/job_pace.h"
#include "transfer/job/policy.h"
#include "transfer/job/source.h"

namespace vantlow {

class CTransferSubThread;

/// The job, as far as a sub thread needs it. All operations may be called from any sub thread.
class SubThreadHost {
  public:
    SubThreadHost() = default;
    SubThreadHost(const SubThreadHost&) = delete;
    SubThreadHost& operator=(const SubThreadHost&) = delete;
    virtual ~SubThreadHost() = default;

    /// Takes work: gives the asker a segment or a check, or nothing, in which case it ends. Waits while the
    /// asker's open answer may still be needed.
    virtual bool take_work(CTransferSubThread& asker) = 0;
    /// Whom to ask for what, with the settings as they are now.
    virtual SourcePlan plan(Worker& asker) = 0;
    /// These bytes of the asker's answer are about to be written.
    virtual void delivered(const Worker& asker, std::int64_t offset, std::int64_t bytes) = 0;
    /// How many bytes before the asker's position are to be fetched again and compared with the file.
    virtual std::int64_t overlap_before(const Worker& asker) = 0;
    /// How many bytes behind the end of the asker's segment are there to be compared; negative: none yet, but
    /// they are on their way.
    virtual std::int64_t overlap_behind(const Worker& asker) = 0;
    /// Whether all bytes of a range are there.
    virtual bool is_there(std::int64_t begin, std::int64_t end) = 0;
    /// The asker's answer agrees with what is there.
    virtual void agreed(const Worker& asker, std::int64_t begin, std::int64_t end, bool is_plain) = 0;
    /// It differs; ok where the asker's answer is the one that is believed.
    virtual Result contradicted(Worker& asker, std::int64_t begin, std::int64_t end) = 0;
    /// The server answered; 0 to go on. `asked` is the offset that was asked for.
    virtual Result response_accepted(CTransferSubThread& asker, const SourceAnswer& answer,
                                     std::int64_t asked) = 0;
    /// The end of a resource of unknown size is reached at the asker's position.
    virtual void end_found(Worker& asker) = 0;
    /// The attempt failed: whether, and when, the asker tries again.
    virtual AfterFailure after_failure(CTransferSubThread& asker, const FailedAttempt& attempt) = 0;
    /// The asker works on its segment or check no more; what it received is written. `open_at`: where its
    /// open answer would go on; -1: none is open. `done`: its check was made. True when the job is complete.
    virtual bool release(CTransferSubThread& asker, std::int64_t open_at, bool done) = 0;
    /// The thread is about to end; `last` is what ended it.
    virtual void ended(CTransferSubThread& asker, const Result& last) = 0;
    /// The job's file. Stays as long as the sub thread.
    virtual CLocalFile& file() = 0;
    /// So many bytes of a body came from the network.
    virtual void count_received(std::int64_t bytes) noexcept = 0;
};

/// The tools of a sub thread; all of it outlives the thread.
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
    void join();

    /// The record of it in the books.
    [[nodiscard]] Worker& worker() noexcept { return worker_; }
    [[nodiscard]] const StopSource& stop_source() const noexcept { return stop_; }
    /// It has given back a complete segment, and closes its connection where there is no other.
    [[nodiscard]] bool is_closing() const noexcept { return closing_; }
    /// Average of the last segment, bytes per second. This thread only.
    [[nodiscard]] std::int64_t segment_speed() const noexcept { return segment_speed_; }

  private:
    void run();
    bool finish_work(bool& is_complete);
    Result run_segment();
    Result run_check();
    Result open_source();
    Result open_at(SourcePlan plan, SourceAnswer& answer);
    Result ask(std::int64_t offset);
    Result ask_for_more(bool& there_is);
    Result receive();
    bool receive_some(Clock::time_point& last_data, Result& end);
    Result end_of_answer(const Moved& moved, Clock::time_point& last_data, bool& goes_on);
    [[nodiscard]] bool has_short_way() noexcept;
    [[nodiscard]] bool takes_short_way() noexcept;
    Moved gather(std::int64_t left, Clock::time_point until);
    Moved fill_conduit(std::int64_t left, Clock::time_point until);
    Result flush_conduit(std::int64_t offset, std::size_t wanted, std::size_t behind);
    void judge_way(const Moved& moved, bool is_short) noexcept;
    Moved read_on(std::span<std::byte> into, Clock::time_point until);
    Result read_through();
    Result moved_failure(const Moved& moved) const;
    Result flush();
    Result compare_behind();
    Result compare(std::int64_t offset, std::int64_t bytes);
    Result hold_against_file(std::int64_t offset, std::span<const std::byte> fetched, bool& is_alike);
    bool try_again(const Result& result);
    void close_source(bool reset);
    void measure(std::size_t bytes, Clock::time_point now);
    /// Speeds are measured by this; silence and the next flush are deadlines of the socket's own waits, in
    /// real time.
    [[nodiscard]] const TimeSource& time() const noexcept { return tools_.services.time; }
    [[nodiscard]] std::int64_t position() const noexcept {
        return worker_.position.load(std::memory_order_relaxed);
    }
    [[nodiscard]] std::int64_t limit() const noexcept {
        return worker_.limit.load(std::memory_order_relaxed);
    }
    /// Offset of the next byte that read_on() gives.
    [[nodiscard]] std::int64_t open_offset() const noexcept {
        return answer_at_ - static_cast<std::int64_t>(held_.size());
    }

    SubThreadHost& host_;
    SubThreadTools tools_;
    StopSource stop_;
    CConnectionNode node_;
    Worker worker_;
    std::unique_ptr<Source> source_;
    PageBuffer gather_;  ///< none while the short way is taken
    std::size_t gather_size_ = 1;
    Conduit conduit_;              ///< what was gathered, where gather_ is passed by
    bool comes_in_bulk_ = false;   ///< one read brings so much that the way past memory pays
    int small_moves_ = 0;          ///< in a row, on that way
    std::size_t gathered_ = 0;     ///< bytes in gather_, the last of which lies before position()
    std::vector<std::byte> held_;  ///< received behind the segment's end: what the open answer goes on with
    std::atomic<bool> closing_{false};
    int measures_ = 0;  ///< on this segment, since it is received
    std::int64_t segment_speed_ = 0;
    std::int64_t told_size_ = -1;
    std::u16string asked_at_;  ///< the address that was asked last, behind redirects
    Clock::time_point measured_{};
    std::int64_t measured_bytes_ = 0;
    Clock::time_point flushed_{};
    std::chrono::milliseconds silence_{30000};
    std::optional<std::chrono::seconds> server_asks_;
    std::int64_t asked_ = 0;
    std::int64_t answer_at_ = 0;      ///< offset of the next byte that the source gives
    bool may_go_on_ = false;          ///< SourceAnswer::may_go_on of the open answer
    bool beyond_end_ = false;         ///< SourceAnswer::beyond_end of the last one
    std::int64_t answered_from_ = 0;  ///< the position when the open answer was accepted
    bool accepted_ = false;
    bool form_sent_ = false;
    int fruitless_ = 0;
    ThreadPool::Running thread_;  ///< last: everything above is there while it runs
};

}  // namespace vantlow
