#include "platform/fault_hook.h"

#include "base/mutex.h"
#include "base/text.h"

namespace vantlow {

namespace {

std::atomic<int> askers{0};
// Who takes a hook away waits here. std::atomic's own wait may miss the notification where the system has no
// futex: mingw's library looks at the value before it takes its lock.
Mutex leaving;
Condition left;

}  // namespace

std::atomic<FaultHook*> current_fault_hook{nullptr};

void set_fault_hook(FaultHook* hook) noexcept {
    current_fault_hook.store(hook);
    MutexLock guard(leaving);
    left.wait(guard, [] { return askers.load() == 0; });
}

// The caller is counted before it looks at the hook again, so whoever takes the hook away either sees the
// count or is seen.
int ask_hook_in_place(Operation operation, std::u16string_view name, std::int64_t offset,
                      std::int64_t length) noexcept {
    ++askers;
    FaultHook* const hook = current_fault_hook.load();
    const int error = hook == nullptr ? 0 : hook->before(operation, name, offset, length);
    if (--askers == 0) {
        const MutexLock guard(leaving);
        left.notify_all();
    }
    return error;
}

int ask_hook(Operation operation, std::string_view utf8_name) noexcept {
    if (current_fault_hook.load(std::memory_order_relaxed) == nullptr) return 0;
    return ask_hook(operation, to_utf16(utf8_name));
}

}  // namespace vantlow
