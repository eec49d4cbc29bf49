#include "support/resident_memory.h"

// clang-format off
#include <windows.h>
#include <psapi.h>
// clang-format on

namespace vantlow::test {

std::int64_t resident_memory() {
    PROCESS_MEMORY_COUNTERS counters{};
    const bool is_told = K32GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters) != 0;
    return is_told ? static_cast<std::int64_t>(counters.WorkingSetSize) : 0;
}

}  // namespace vantlow::test
