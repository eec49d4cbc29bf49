// The way of a file to the standard output, while it is being fetched.
#pragma once

#include <cstdint>
#include <string>

#include "base/mutex.h"
#include "base/result.h"
#include "platform/stop.h"
#include "platform/thread.h"

namespace vantlow {

/// Writes a file to the standard output in order, as far as it is there, on a thread of its own, since the
/// reader may take any time. Written bytes cannot be taken back, so only bytes that stay are offered. Used
/// from one thread.
class OutputPipe {
  public:
    explicit OutputPipe(ThreadPool& threads) : threads_(threads) {}
    OutputPipe(const OutputPipe&) = delete;
    OutputPipe& operator=(const OutputPipe&) = delete;
    ~OutputPipe() { stop(); }

    /// Offers the first `bytes` of the file at `path`, which stay as they are. A failure where more was
    /// written already, or where the output or the file has failed.
    Result offer(const std::u16string& path, std::int64_t bytes);
    /// Waits until all offered bytes are written. A failure where that cannot be, or when `stop` is requested
    /// first.
    Result finish(const StopSource& stop);
    /// True where the thread is still inside the system, which cannot be called back: end the process then.
    [[nodiscard]] bool is_stuck();

  private:
    void run();
    void stop();

    ThreadPool& threads_;
    Mutex mutex_;
    StopCondition changed_;
    std::u16string path_ VANTLOW_GUARDED_BY(mutex_);
    std::int64_t offered_ VANTLOW_GUARDED_BY(mutex_) = 0;
    std::int64_t written_ VANTLOW_GUARDED_BY(mutex_) = 0;
    bool stop_ VANTLOW_GUARDED_BY(mutex_) = false;
    bool ended_ VANTLOW_GUARDED_BY(mutex_) = true;
    Result failure_ VANTLOW_GUARDED_BY(mutex_);
    ThreadPool::Running thread_;  ///< last
};

}  // namespace vantlow
