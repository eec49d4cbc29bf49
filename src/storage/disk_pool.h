// Threads that read, hash and write for those who must not wait for a disk.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "base/mutex.h"
#include "base/result.h"
#include "platform/stop.h"

namespace vantlow {

struct DiskPoolRules {
    int threads = 0;  ///< at most; 0: as many as the machine has processors, up to 8
    std::int64_t high_water = 64 * 1024 * 1024;  ///< bytes in memory from which on nothing more is taken
    std::int64_t low_water = 32 * 1024 * 1024;   ///< bytes below which it is taken again
};

/// One for the program. Works begin in the order in which they were added, several at once. Their results are
/// posted: called by whoever `post` hands them to, for the loop on its thread. Any thread may call, but for
/// stop(): it is called by the thread that the results come on, or after that one has ended. All that works
/// and results refer to outlives stop(), or knows by itself whether it is still there.
class DiskPool {
  public:
    using Callback = std::function<void()>;
    /// Takes a callback to the thread that wants the results; false where it cannot now (it is tried again)
    /// or any more.
    using Post = std::function<bool(Callback)>;
    using Work = std::function<void(const StopSource& stop)>;

    explicit DiskPool(Post post, DiskPoolRules rules = {});
    ~DiskPool() { stop(); }
    DiskPool(const DiskPool&) = delete;
    DiskPool& operator=(const DiskPool&) = delete;

    /// Fails where the system has no thread and the pool has none yet: nothing will be done then.
    Result add(Work work);
    /// Posts a callback, in the order of the calls.
    void post(Callback result);

    /// Counts bytes that are held in memory for the disk; false, and not counted, from the high water mark
    /// on.
    bool take(std::int64_t bytes);
    /// Gives them back.
    void give_back(std::int64_t bytes);
    /// Posts the callback when less than the low water mark is held: at once, where that is so already.
    void when_room(Callback call);
    [[nodiscard]] std::int64_t held() const;
    [[nodiscard]] const DiskPoolRules& rules() const noexcept { return rules_; }

    /// Waits for the operations in hand, whose works see the stop; what has not begun is dropped, and no
    /// result is called any more.
    void stop();

  private:
    struct Results;  ///< those that are posted; it lives as long as a delivery is under way
    void run();
    bool grow() VANTLOW_REQUIRES(mutex_);

    const DiskPoolRules rules_;
    StopSource stop_;
    std::shared_ptr<Results> results_;
    mutable Mutex mutex_;
    Condition news_;
    std::deque<Work> works_ VANTLOW_GUARDED_BY(mutex_);
    std::vector<Callback> room_calls_ VANTLOW_GUARDED_BY(mutex_);
    std::int64_t held_ VANTLOW_GUARDED_BY(mutex_) = 0;
    std::size_t idle_ VANTLOW_GUARDED_BY(mutex_) = 0;
    bool ending_ VANTLOW_GUARDED_BY(mutex_) = false;
    std::vector<std::thread> threads_ VANTLOW_GUARDED_BY(mutex_);  ///< last
};

}  // namespace vantlow
