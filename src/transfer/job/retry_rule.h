// Whether, and when, a connection that failed tries again.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

namespace vantlow {

/// A failure, as the rule looks at it.
struct RetryCase {
    int errors = 0;           ///< of this connection so far, this one counted
    std::int64_t limit = -1;  ///< -1: none
    std::int64_t delay = -1;  ///< the job's retry delay, seconds; -1: paced by what the attempts brought
    std::chrono::seconds longest_pause{30};  ///< of those that pace themselves
    int fruitless = 0;                       ///< attempts in a row that brought nothing new, this one counted
    std::optional<std::chrono::seconds> server_asks;  ///< Retry-After
};

/// The rule's answer.
struct RetryDecision {
    bool give_up = false;
    std::chrono::milliseconds wait{0};
    bool is_cut = false;  ///< the server asked for more
    [[nodiscard]] bool is_announced() const noexcept { return wait >= std::chrono::seconds(1); }
};

/// The wait before the next attempt. A job with a retry delay waits exactly that long, or longer where the
/// server asks for it; without one an attempt that brought something is followed by the next at once,
/// fruitless ones by pauses of 1, 2, 4 seconds and so on. A delay of 0 still pauses a fifth of a
/// second after a fruitless attempt: nobody is helped by a loop that hammers a server. What a server asks for
/// is obeyed up to an hour, and up to five minutes where the number of attempts is limited.
RetryDecision decide_retry(const RetryCase& retry);

}  // namespace vantlow
