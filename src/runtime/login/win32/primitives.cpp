#include "runtime/login/primitives.h"

#include <windows.h>

#include <bcrypt.h>

namespace vantlow::login {

bool fill_random(std::span<std::uint8_t> bytes) noexcept {
    return BCryptGenRandom(nullptr, bytes.data(), static_cast<ULONG>(bytes.size()),
                           BCRYPT_USE_SYSTEM_PREFERRED_RNG) >= 0;
}

}  // namespace vantlow::login
