#include "transfer/job/retry_rule.h"

#include <algorithm>

namespace vantlow {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr seconds longest_obedience{3600};
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
    milliseconds wait = own_wait(retry);
    if (retry.server_asks)
        wait = std::max<milliseconds>(wait, std::min(*retry.server_asks, longest_obedience));
    return {false, wait};
}

}  // namespace vantlow
