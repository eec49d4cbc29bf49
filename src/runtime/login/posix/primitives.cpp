#include "runtime/login/primitives.h"

#include <unistd.h>

namespace vantlow::login {

bool fill_random(std::span<std::uint8_t> bytes) noexcept {
    return ::getentropy(bytes.data(), bytes.size()) == 0;
}

}  // namespace vantlow::login
