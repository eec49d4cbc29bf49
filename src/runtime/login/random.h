// Random bytes of the operating system. Not libgcrypt's: on Windows it gathers them from whatever the system
// tells about itself (all handles of all processes, disks, performance counters), which takes up to seconds.
#pragma once

#include <cstdint>
#include <span>

namespace vantlow::login {

/// At most 256 bytes that nobody can guess; false when the system gives none. Any thread.
[[nodiscard]] bool fill_random(std::span<std::uint8_t> bytes) noexcept;

}  // namespace vantlow::login
