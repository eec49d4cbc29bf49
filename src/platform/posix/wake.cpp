#include "platform/wake.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <thread>

#include "platform/deadline.h"
#include "platform/fault_hook.h"

namespace vantlow {
namespace {

constexpr std::chrono::milliseconds poll_step{20};

int descriptor(std::intptr_t native) noexcept {
    return static_cast<int>(native);
}

bool wait_for_flag(const std::atomic<bool>& flag, const Deadline& deadline) noexcept {
    for (;;) {
        if (flag.load(std::memory_order_acquire)) return true;
        const int left = deadline.left();
        if (left == 0) return false;
        std::this_thread::sleep_for(left < 0 ? poll_step
                                             : std::min(poll_step, std::chrono::milliseconds(left)));
    }
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

void WakeEvent::reset() noexcept {
    flag_.store(false, std::memory_order_release);
    if (native_ < 0) return;
    eventfd_t count = 0;
    while (::read(descriptor(native_), &count, sizeof count) < 0 && errno == EINTR) {
    }
}

bool WakeEvent::wait(std::chrono::milliseconds at_most) const noexcept {
    const Deadline deadline(at_most);
    if (native_ < 0) return wait_for_flag(flag_, deadline);
    pollfd entry{descriptor(native_), POLLIN, 0};
    for (;;) {
        const int left = deadline.left();
        const int count = ::poll(&entry, 1, left);
        if (count > 0) return true;
        if (count == 0) {
            if (deadline.left() == 0) return false;
        } else if (errno != EINTR) {
            return wait_for_flag(flag_,
                                 deadline);  // no memory for poll: a rare moment, but a stop must arrive
        }
    }
}

}  // namespace vantlow
