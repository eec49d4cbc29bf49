#include "platform/stop.h"

namespace vantlow {

StopSource::StopSource(StopSource& parent) {
    from_parent_.emplace(parent.token(), Forward{this, &parent});
}

void StopSource::request(Code reason) noexcept {
    Code none = Code::ok;
    reason_.compare_exchange_strong(none, reason, std::memory_order_acq_rel);
    source_.request_stop();
    wake_.set();
}

}  // namespace vantlow
