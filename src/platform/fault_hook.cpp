#include "platform/fault_hook.h"

namespace vantlow {

std::atomic<FaultHook*> current_fault_hook{nullptr};

void set_fault_hook(FaultHook* hook) noexcept {
    current_fault_hook.store(hook, std::memory_order_release);
}

}  // namespace vantlow
