// Threads, which the system may refuse.
#pragma once

#include <functional>
#include <thread>

#include "base/result.h"

namespace vantlow {

/// Starts a thread. Fails, with a sentence, where the system has none left; `thread` then stays as it was:
/// one that is not running.
Result start_thread(std::thread& thread, std::function<void()> work);

}  // namespace vantlow
