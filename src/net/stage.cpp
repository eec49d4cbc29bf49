#include "net/stage.h"

#include <utility>

#include "net/network.h"

namespace vantlow::net {

Result Step::result() const {
    if (why != nullptr) return {code, why, system_error};
    if (system_error != 0) return {code, socket_error_text(system_error), system_error};
    return code;
}

void wait_for(const Step& step, Stream& stream, Timer& timer, Callback call) {
    switch (step.wants) {
        case Wants::readable:
            stream.when_readable(std::move(call));
            break;
        case Wants::writable:
            stream.when_writable(std::move(call));
            break;
        case Wants::time:
            timer.start(step.at, std::move(call));
            break;
    }
}

}  // namespace vantlow::net
