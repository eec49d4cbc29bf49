#include "platform/descriptors.h"

#include <fcntl.h>
#include <sys/resource.h>

#include <algorithm>

namespace vantlow {

std::size_t raise_descriptor_limit() noexcept {
    constexpr rlim_t enough = 65536;
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return 0;
    if (limit.rlim_cur < enough && limit.rlim_cur < limit.rlim_max) {
        rlimit raised = limit;
        raised.rlim_cur = std::min(enough, limit.rlim_max);
        if (::setrlimit(RLIMIT_NOFILE, &raised) == 0) limit = raised;
    }
    return static_cast<std::size_t>(limit.rlim_cur);
}

void keep_from_children(std::intptr_t socket) noexcept {
    const int descriptor = static_cast<int>(socket);
    const int flags = ::fcntl(descriptor, F_GETFD);
    if (flags >= 0) ::fcntl(descriptor, F_SETFD, flags | FD_CLOEXEC);
}

}  // namespace vantlow
