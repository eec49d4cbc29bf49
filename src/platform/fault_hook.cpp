#include "platform/fault_hook.h"

#include "base/text.h"

namespace vantlow {

constinit thread_local FaultHook* thread_fault_hook = nullptr;

int ask_hook(Operation operation, std::string_view utf8_name) noexcept {
    if (thread_fault_hook == nullptr) return 0;
    return ask_hook(operation, to_utf16(utf8_name));
}

}  // namespace vantlow
