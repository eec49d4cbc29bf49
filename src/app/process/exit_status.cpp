#include "app/process/exit_status.h"

#include "app/process/messages.h"
#include "platform/process.h"
#include "platform/stop.h"
#include "transfer/connection/resolver.h"

namespace vantlow {

Exit exit_of(const Result& result) noexcept {
    if (result.ok()) return Exit::done;
    if (result.about_credentials) return Exit::credentials;
    switch (result.code) {
        case Code::local_file:
            return Exit::local_file;
        case Code::credentials_refused:
            return Exit::credentials;
        case Code::not_trusted:
            return Exit::not_trusted;
        case Code::hash_differs:
            return Exit::hash;
        case Code::cancelled:
        case Code::invalid_url:
        case Code::unsupported:
            return Exit::failed;
        case Code::stopped:
            return Exit::interrupted;
        default:
            return Exit::network;
    }
}

Exit final_status(Exit status) {
    // What nobody got has not been said.
    return complain_of_lost_output() && status == Exit::done ? Exit::failed : status;
}

Exit leave(Resolver& resolver, Exit status, const std::function<void()>& last) {
    if (resolver.settle(std::chrono::milliseconds(50))) return status;
    if (last) last();
    end_process(static_cast<int>(final_status(status)));
}

void stop_at_interrupt(void* stop_source, int count) {
    if (count > 1) end_process(static_cast<int>(Exit::interrupted));
    static_cast<StopSource*>(stop_source)->request();
}

}  // namespace vantlow
