#include "transfer/job/retry_rule.h"

#include <algorithm>

namespace vantlow {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr seconds longest_obedience{3600};
// Who wants only so many attempts waits for their end.
constexpr seconds longest_obedience_of_few{300};
constexpr milliseconds shortest_fruitless{200};

milliseconds own_wait(const RetryCase& retry) {
    if (retry.delay > 0) return seconds(retry.delay);
    if (retry.fruitless == 0) return milliseconds(0);
    if (retry.delay == 0) return shortest_fruitless;
    const int doublings = std::min(retry.fruitless - 1, 16);
    return std::min(seconds(1LL << doublings), retry.longest_pause);
}

}  // namespace

RetryDecision decide_retry(const RetryCase& retry) {
    if (retry.limit >= 0 && retry.errors > retry.limit) return {true, milliseconds(0)};
    const milliseconds own = own_wait(retry);
    if (!retry.server_asks) return {false, own};
    const seconds most = retry.limit >= 0 ? longest_obedience_of_few : longest_obedience;
    const bool is_cut = *retry.server_asks > most && own < *retry.server_asks;
    return {false, std::max<milliseconds>(own, std::min(*retry.server_asks, most)), is_cut};
}

}  // namespace vantlow
