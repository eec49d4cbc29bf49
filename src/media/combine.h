// Joining downloaded pieces of a film into one file, without encoding anything anew.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "base/mutex.h"
#include "base/result.h"

namespace vantlow {

/// The pieces of a join. All are of one kind, FLV or MP4; the first one decides which.
struct CombineJob {
    std::vector<std::u16string> pieces;
    /// The output. An existing file of that name is replaced once the joined file is whole; until then the
    /// bytes are in `output + ".joining"`. Neither of the two may be one of the pieces.
    std::u16string output;
};

/// How a run ended.
struct CombineOutcome {
    Result result;           ///< `stopped` when it was cancelled; after any failure there is no output
    std::int64_t bytes = 0;  ///< of the joined file
    double seconds = 0;      ///< its duration
    std::vector<std::string> notes;  ///< remarks for the person about a join that went well, UTF-8 sentences
    std::size_t skipped = 0;         ///< pieces that could not be opened, or not be read to their end
};

/// The message that carries progress to a window: the first user message + 2, with the value (hundredths of a
/// percent) as its first parameter.
inline constexpr std::uint32_t combine_progress_message = 1026;
/// Progress that has grown by less than this is not reported.
inline constexpr std::uint32_t combine_progress_step = 50;

/// Receives combine_progress_message and a value from 0 to 10,000; called on the worker's thread.
using CombineListener = std::function<void(std::uint32_t message, std::uint32_t value)>;

/// The link between a running join and its surroundings: progress goes out, the wish to cancel comes in.
class CombineControl {
  public:
    explicit CombineControl(CombineListener listener) : listener_(std::move(listener)) {}

    /// Any thread may call.
    void cancel() noexcept { cancelled_.store(true, std::memory_order_relaxed); }
    [[nodiscard]] bool is_cancelled() const noexcept { return cancelled_.load(std::memory_order_relaxed); }

    // These three are for the worker's thread.
    void begin(std::int64_t total_input) noexcept { total_ = total_input; }
    /// Counts output bytes, and reports progress when it has grown far enough.
    void wrote(std::int64_t bytes);
    /// Reports the end: all bytes are written.
    void finish() const;

  private:
    CombineListener listener_;
    std::atomic<bool> cancelled_{false};
    std::int64_t written_ = 0;
    std::int64_t total_ = 0;
    std::uint32_t told_ = 0;
};

/// Joins the pieces on the calling thread. The output gets its name when all is done.
CombineOutcome combine_media(const CombineJob& job, CombineControl& control);

/// The same on a thread of its own, which starts with the object.
class CCombineMediaThread {
  public:
    CCombineMediaThread(CombineJob job, CombineListener listener);
    /// Cancels and waits.
    ~CCombineMediaThread();
    CCombineMediaThread(const CCombineMediaThread&) = delete;
    CCombineMediaThread& operator=(const CCombineMediaThread&) = delete;

    /// Asks the thread to stop after the current tag; the partial output is removed. Any thread may call.
    void cancel() noexcept { control_.cancel(); }
    /// True as soon as it has ended; false when it has not within the time.
    bool wait_for(std::chrono::milliseconds time);
    /// Waits for the end; to be called once.
    CombineOutcome wait();

  private:
    const CombineJob job_;
    CombineControl control_;
    CombineOutcome outcome_;
    Mutex mutex_;
    Condition changed_;
    bool ended_ VANTLOW_GUARDED_BY(mutex_) = false;
    std::thread thread_;
};

}  // namespace vantlow
