// How much a peer may say that moves nothing on.
#pragma once

#include <algorithm>

#include "base/clock.h"

namespace vantlow {

/// Counts the messages of one peer that are allowed and bring neither side further: changes of mind, refused
/// requests, pieces told twice. Each costs this side some work, so that nobody may send them without a pause.
class Patience {
  public:
    static constexpr double most = 2000;  ///< at once: whoever is choked may have that many requests refused
    static constexpr double each_second = 50;

    /// One more came. False: the peer floods. The times never go back.
    bool take(Clock::time_point now) noexcept {
        const double seconds = std::chrono::duration<double>(now - since_).count();
        left_ = std::min(most, left_ + seconds * each_second);
        since_ = now;
        left_ -= 1;
        return left_ >= 0;
    }

  private:
    double left_ = most;
    Clock::time_point since_{};
};

}  // namespace vantlow
