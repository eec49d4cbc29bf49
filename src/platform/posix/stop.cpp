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

std::intptr_t WakeEvent::make() noexcept {
    if (ask_hook(Operation::make_event) != 0) return none;
    const int made = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    return made < 0 ? none : made;
}

void WakeEvent::close(std::intptr_t native) noexcept {
    ::close(descriptor(native));
}

void WakeEvent::raise(std::intptr_t native) noexcept {
    const eventfd_t one = 1;
    // EAGAIN: the counter is full, so it is set.
    while (::write(descriptor(native), &one, sizeof one) < 0 && errno == EINTR) {
    }
}

bool WakeEvent::wait(std::chrono::milliseconds at_most) const noexcept {
    if (flag_.load(std::memory_order_acquire)) return true;
    if (at_most.count() == 0) return false;
    const Deadline deadline(at_most);
    const std::intptr_t event = native();
    if (event == none) return poll_flag(deadline);
    pollfd entry{descriptor(event), POLLIN, 0};
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
