#include "platform/stop.h"

#include "platform/fault_hook.h"
#include "platform/win32/native.h"

namespace vantlow {
namespace {

HANDLE handle(std::intptr_t native) noexcept {
    return reinterpret_cast<HANDLE>(native);
}

}  // namespace

std::intptr_t WakeEvent::make() noexcept {
    if (ask_hook(Operation::make_event) != 0) return none;
    HANDLE made = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    return made == nullptr ? none : reinterpret_cast<std::intptr_t>(made);
}

void WakeEvent::close(std::intptr_t native) noexcept {
    CloseHandle(handle(native));
}

void WakeEvent::raise(std::intptr_t native) noexcept {
    SetEvent(handle(native));
}

bool WakeEvent::wait(std::chrono::milliseconds at_most) const noexcept {
    if (flag_.load(std::memory_order_acquire)) return true;
    if (at_most.count() == 0) return false;
    const Deadline deadline(at_most);
    const std::intptr_t event = native();
    if (event == none) return poll_flag(deadline);
    for (;;) {
        const int left = deadline.left();
        const DWORD result =
            WaitForSingleObject(handle(event), left < 0 ? INFINITE : static_cast<DWORD>(left));
        if (result == WAIT_OBJECT_0) return true;
        if (result == WAIT_FAILED) return poll_flag(deadline);
        // The system's waits go by their own clock and may end a little early.
        if (deadline.left() == 0) return false;
    }
}

}  // namespace vantlow
