// The changes of a job store's records, for those who watch it.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "base/guid.h"

namespace vantlow {

/// One change. It is reported right after it was made; a removal is reported before it, while the record can
/// still be found.
struct StoreChange {
    enum class What {
        job_added,
        job_changed,
        job_removed,
        category_added,
        category_changed,  ///< its name, its folder, or where it stands
        category_removed,
        everything,  ///< so much at once that all records must be read anew
    };
    /// The sides of a job, as bits of `fields`.
    enum : std::uint32_t {
        positions = 1,  ///< segments, size, validators, bit map
        place = 2,      ///< folder and name of its file
        state = 4,      ///< state, result, times
        order = 8,      ///< among those that wait
        category = 16,  ///< where it is filed, or its place there
        options = 32,   ///< values that a person gives: address, login, limits, comment, ...
        all = 63,
    };
    What what = What::job_changed;
    Guid identity;
    std::uint32_t fields = 0;
    std::uint64_t revision = 0;  ///< grows with each change
};

/// The listeners of changes. One thread, the store's; listeners must not change the store, but may come and
/// go.
class StoreWatchers {
  public:
    using Listener = std::function<void(const StoreChange&)>;
    /// A listener hears of every change for as long as its watch lives, which may be longer than the store.
    using Watch = std::shared_ptr<const Listener>;

    [[nodiscard]] Watch add(Listener listener) {
        auto watch = std::make_shared<const Listener>(std::move(listener));
        watches_.push_back(watch);
        return watch;
    }
    void tell(const StoreChange& change) {
        // The loop goes by number: a listener that is added meanwhile may or may not hear of this change.
        bool any_gone = false;
        // NOLINTNEXTLINE(modernize-loop-convert)
        for (std::size_t i = 0; i < watches_.size(); ++i) {
            if (const Watch watch = watches_[i].lock()) {
                (*watch)(change);
            } else {
                any_gone = true;
            }
        }
        if (any_gone) std::erase_if(watches_, [](const auto& watch) { return watch.expired(); });
    }

  private:
    std::vector<std::weak_ptr<const Listener>> watches_;
};

}  // namespace vantlow
