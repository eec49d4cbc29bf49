// The end of a wait, for the waits of this folder.
#pragma once

#include <chrono>
#include <climits>

namespace vantlow {

/// A moment so many milliseconds ahead; negative: never.
class Deadline {
  public:
    explicit Deadline(std::chrono::milliseconds at_most) noexcept
        : span_(at_most < longest ? at_most : longest) {
        if (span_.count() > 0) end_ = std::chrono::steady_clock::now() + span_;
    }

    /// What is left in milliseconds, rounded up so that a wait does not end early; -1: no end.
    [[nodiscard]] int left() const noexcept {
        if (span_.count() <= 0) return span_.count() == 0 ? 0 : -1;
        const auto rest =
            std::chrono::ceil<std::chrono::milliseconds>(end_ - std::chrono::steady_clock::now());
        return rest.count() > 0 ? static_cast<int>(rest.count()) : 0;
    }

  private:
    // What the systems' waits can be told: more than three weeks.
    static constexpr std::chrono::milliseconds longest{INT_MAX};
    std::chrono::milliseconds span_;
    std::chrono::steady_clock::time_point end_{};
};

}  // namespace vantlow
