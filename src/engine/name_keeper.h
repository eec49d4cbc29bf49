// Files that are whole and wait for their names.
#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/guid.h"
#include "base/mutex.h"

namespace vantlow {

/// A job's file gets its name once the store would find it again under it: were the name given first, a
/// process that is killed in between would fetch the file once more, beside the first.
class NameKeeper {
  public:
    /// A file, as its session is about to name it.
    struct Naming {
        Guid job;
        std::u16string path;
        std::int64_t size = 0;
    };

    /// `wake` (any thread) asks for take().
    explicit NameKeeper(std::function<void()> wake) : wake_(std::move(wake)) {}
    NameKeeper(const NameKeeper&) = delete;
    NameKeeper& operator=(const NameKeeper&) = delete;

    /// A session's thread: waits until let_go() was called for it.
    void wait_for(Naming naming);
    /// The engine's thread: those that wait and were not taken yet.
    using Waiting = std::vector<std::shared_ptr<const Naming>>;
    [[nodiscard]] Waiting take();
    void let_go(const Waiting& taken);

  private:
    struct Entry : Naming {
        bool done = false;  ///< guarded by mutex_
    };
    const std::function<void()> wake_;
    Mutex mutex_;
    std::condition_variable_any changed_;
    std::vector<std::shared_ptr<Entry>> new_ VANTLOW_GUARDED_BY(mutex_);
    std::vector<std::shared_ptr<Entry>> taken_ VANTLOW_GUARDED_BY(mutex_);
};

}  // namespace vantlow
