#include "platform/fault_hook.h"

#include "base/text.h"

namespace vantlow {

std::atomic<FaultHook*> current_fault_hook{nullptr};

void set_fault_hook(FaultHook* hook) noexcept {
    current_fault_hook.store(hook, std::memory_order_release);
}

int ask_hook(Operation operation, std::string_view utf8_name) noexcept {
    if (current_fault_hook.load(std::memory_order_acquire) == nullptr) return 0;
    return ask_hook(operation, to_utf16(utf8_name));
}

}  // namespace vantlow
