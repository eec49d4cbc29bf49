// Files that are whole and wait for their names.
#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "base/guid.h"

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

    NameKeeper() = default;
    NameKeeper(const NameKeeper&) = delete;
    NameKeeper& operator=(const NameKeeper&) = delete;

    /// A session's thread: waits until let_go() was called for it. `wake` is called before, and asks for
    /// take().
    void wait_for(Naming naming, const std::function<void()>& wake);
    /// The engine's thread: those that wait and were not taken yet.
    using Waiting = std::vector<std::shared_ptr<const Naming>>;
    [[nodiscard]] Waiting take();
    void let_go(const Waiting& taken);

  private:
    struct Entry : Naming {
        bool done = false;  ///< guarded by mutex_
    };
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::shared_ptr<Entry>> new_;  ///< guarded by mutex_, like the one below
    std::vector<std::shared_ptr<Entry>> taken_;
};

}  // namespace vantlow
