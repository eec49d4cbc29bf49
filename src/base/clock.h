// The clock that deadlines, pauses and speeds are measured by.
#pragma once

#include <chrono>

namespace vantlow {

/// Never set back, and unrelated to the time of day. Rules and books read no clock: whoever asks them hands
/// the time in, so that a test moves it.
using Clock = std::chrono::steady_clock;

}  // namespace vantlow
