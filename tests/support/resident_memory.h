// The memory that this process has, for tests that hold it to a bound.
#pragma once

#include <cstdint>

namespace vantlow::test {

/// Bytes of this process that are in memory now. A sanitizer's own memory, several times as much, counts too.
std::int64_t resident_memory();

/// False where a sanitizer makes memory and time another program's.
constexpr bool is_plain_build() noexcept {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return false;
#else
    return true;
#endif
}

}  // namespace vantlow::test
