#include "support/resident_memory.h"

#include <unistd.h>

#include <fstream>

namespace vantlow::test {

std::int64_t resident_memory() {
    std::ifstream numbers("/proc/self/statm");
    std::int64_t all = 0;
    std::int64_t resident = 0;
    numbers >> all >> resident;
    return resident * ::sysconf(_SC_PAGESIZE);
}

}  // namespace vantlow::test
