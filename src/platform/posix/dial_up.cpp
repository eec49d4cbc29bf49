#include "platform/dial_up.h"

namespace vantlow {

Result dial_up(const DialUpOperations& /*operations*/, const DialUpPlan& /*plan*/, const StopSource& /*stop*/,
               LogSink& /*log*/) {
    return {Code::unsupported, "This system has no dial-up connections."};
}

}  // namespace vantlow
