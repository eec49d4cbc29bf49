// Files that are whole and wait for their names.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/guid.h"
#include "base/mutex.h"

namespace vantlow {

/// A job's file gets its name only once the store would find it again under that name: if the name came
/// first, a process that is killed in between would fetch the file again, beside the first one.
class NameKeeper {
  public:
    /// A file, as its session is about to name it.
    struct Naming {
        Guid job;
        std::u16string path;
        std::int64_t size = 0;
        std::u16string address{};     ///< the job's
        std::u16string asked_name{};  ///< the job's file_name
    };

    NameKeeper() = default;
    NameKeeper(const NameKeeper&) = delete;
    NameKeeper& operator=(const NameKeeper&) = delete;

    /// For a session's thread: waits until let_go() was called for it. `wake` is called before, and requests
    /// a call of take().
    void wait_for(Naming naming, const std::function<void()>& wake);
    /// For the engine's thread: the waiting sessions that were not taken yet.
    using Waiting = std::vector<std::shared_ptr<const Naming>>;
    [[nodiscard]] Waiting take();
    void let_go(const Waiting& taken);

  private:
    struct Entry : Naming {
        bool done = false;  ///< guarded by mutex_
    };
    Mutex mutex_;
    Condition changed_;
    std::vector<std::shared_ptr<Entry>> new_ VANTLOW_GUARDED_BY(mutex_);
    std::vector<std::shared_ptr<Entry>> taken_ VANTLOW_GUARDED_BY(mutex_);
};

}  // namespace vantlow
