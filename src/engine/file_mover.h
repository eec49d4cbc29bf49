// The files of jobs that go to another place, one job after the other, on a thread of their own.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/guid.h"
#include "base/mutex.h"
#include "platform/stop.h"
#include "platform/thread.h"
#include "storage/relocation.h"
#include "store/job_log.h"

namespace vantlow {

/// A move, as it stands in the plan: both paths as CJobNode::path has them.
struct FileMove {
    Guid job;
    std::u16string from;
    std::u16string to;
};

/// A move under way, as it is shown.
struct FileMoveProgress {
    std::u16string to;
    std::int64_t moved = 0;  ///< bytes
    std::int64_t size = -1;  ///< -1: not known yet
};

/// Carries moves out. What is to be moved is written down before the first file goes ("moves.txt" in the
/// data folder), so that a later run goes on where this one was killed: the job's record names the old place
/// until the move is over. All operations belong to the owner's thread.
class FileMover {
  public:
    /// Says which files a move takes along. On the mover's thread; a failure ends the move.
    using Find = std::function<Outcome<Relocation>(LogSink&)>;
    struct Ended {
        FileMove move;
        RelocationEnd end;
        std::vector<CLogNode> log;
    };

    /// `data_folder` empty: nothing is written down. `stop` outlives the object.
    FileMover(const std::u16string& data_folder, StopSource& stop);
    ~FileMover() { end(); }
    FileMover(const FileMover&) = delete;
    FileMover& operator=(const FileMover&) = delete;

    /// The moves that an earlier run did not finish: to be started, or forgotten.
    [[nodiscard]] std::vector<FileMove> left_over() const { return left_over_; }

    /// From now on moves are carried out; `wake` (any thread) is called when one has ended. Both outlive
    /// end().
    void begin(ThreadPool& threads, std::function<void()> wake);
    /// Ends the thread. A move under way is cut short: the next run goes on with it.
    void end();
    /// A job's move, of which none is planned. Fails where it cannot be written down.
    FileError start(FileMove move, Find find);
    /// Has the job's move taken back; it ends soon.
    void call_off(const Guid& job);
    /// The moves that ended since the last call. They stay in the plan until forget().
    std::vector<Ended> take_ended();
    /// The job's record names the new place, or the move came to nothing. Where that cannot be written down
    /// the next writing does it: a move whose job is not at its old place any more is none.
    void forget(const Guid& job);
    /// The same on this thread, for an owner that has not begun, or a move that only renames. To be forgotten
    /// likewise.
    Ended move_now(FileMove move, const Find& find);

    /// A move of the job stands in the plan: it has not ended, or is to be forgotten.
    [[nodiscard]] bool is_planned(const Guid& job) const { return find(job) != nullptr; }
    /// A move of the job that has not been handed out as ended.
    [[nodiscard]] bool has(const Guid& job) const;
    [[nodiscard]] bool has_any() const { return !jobs().empty(); }
    /// The jobs of those.
    [[nodiscard]] std::vector<Guid> jobs() const;
    [[nodiscard]] std::optional<FileMoveProgress> progress(const Guid& job) const;

  private:
    struct Task {
        FileMove move;
        Find find;
        StopSource call_off;
        std::atomic<std::int64_t> moved = 0;
        std::atomic<std::int64_t> size = -1;
        bool is_over = false;  ///< guarded by the mover's mutex_, as the next one
        bool is_told = false;
        RelocationEnd end{};
        std::vector<CLogNode> log;
    };
    void wake_thread();
    void work();
    static void carry_out(Task& task, const StopSource& cut);
    [[nodiscard]] FileError write_plan() const;
    [[nodiscard]] std::shared_ptr<Task> find(const Guid& job) const;

    const std::u16string plan_;  ///< its path; empty: there is none
    StopSource& stop_;
    std::optional<StopSource> cut_;  ///< a child of it; another one after each end()
    std::vector<FileMove> left_over_;
    ThreadPool* threads_ = nullptr;
    std::function<void()> wake_;

    mutable Mutex mutex_;
    std::vector<std::shared_ptr<Task>> tasks_ VANTLOW_GUARDED_BY(mutex_);
    bool works_ VANTLOW_GUARDED_BY(mutex_) = false;
    ThreadPool::Running thread_;  ///< last
};

}  // namespace vantlow
