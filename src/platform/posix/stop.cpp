#include "platform/stop.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>

#include "platform/fault_hook.h"

namespace vantlow {
namespace {

int descriptor(std::intptr_t native) noexcept {
    return static_cast<int>(native);
}

}  // namespace

WakeEvent::WakeEvent()
    : native_(ask_hook(Operation::make_event) != 0 ? -1 : ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

WakeEvent::~WakeEvent() {
    if (native_ >= 0) ::close(descriptor(native_));
}

void WakeEvent::set() noexcept {
    flag_.store(true, std::memory_order_release);
    if (native_ < 0) return;
    const eventfd_t one = 1;
    // EAGAIN: the counter is full, so it is set.
    while (::write(descriptor(native_), &one, sizeof one) < 0 && errno == EINTR) {
    }
}

bool WakeEvent::wait(std::chrono::milliseconds at_most) const noexcept {
    const Deadline deadline(at_most);
    if (native_ < 0) return poll_flag(deadline);
    pollfd entry{descriptor(native_), POLLIN, 0};
    for (;;) {
        const int left = deadline.left();
        const int count = ::poll(&entry, 1, left);
        if (count > 0) return true;
        if (count == 0) {
            if (deadline.left() == 0) return false;
        } else if (errno != EINTR) {
            return poll_flag(deadline);  // no memory for poll: a rare moment, but a stop must arrive
        }
    }
}

}  // namespace vantlow
