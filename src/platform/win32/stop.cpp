#include "platform/stop.h"

#include "platform/fault_hook.h"
#include "platform/win32/native.h"

namespace vantlow {
namespace {

HANDLE handle(std::intptr_t native) noexcept {
    return reinterpret_cast<HANDLE>(native);
}

std::intptr_t make_event() noexcept {
    if (ask_hook(Operation::make_event) != 0) return -1;
    HANDLE made = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    return made == nullptr ? -1 : reinterpret_cast<std::intptr_t>(made);
}

}  // namespace

WakeEvent::WakeEvent() : native_(make_event()) {}

WakeEvent::~WakeEvent() {
    if (native_ != -1) CloseHandle(handle(native_));
}

void WakeEvent::set() noexcept {
    flag_.store(true, std::memory_order_release);
    if (native_ != -1) SetEvent(handle(native_));
}

bool WakeEvent::wait(std::chrono::milliseconds at_most) const noexcept {
    const Deadline deadline(at_most);
    if (native_ == -1) return poll_flag(deadline);
    for (;;) {
        const int left = deadline.left();
        const DWORD result =
            WaitForSingleObject(handle(native_), left < 0 ? INFINITE : static_cast<DWORD>(left));
        if (result == WAIT_OBJECT_0) return true;
        if (result == WAIT_FAILED) return poll_flag(deadline);
        // The system's waits go by their own clock and may end a little early.
        if (deadline.left() == 0) return false;
    }
}

}  // namespace vantlow
