// Overwriting what was a secret.
#pragma once

#include <cstddef>

namespace vantlow::login {

/// Overwrites the bytes of a string, vector or array with zeros, in a way that no compiler leaves out because
/// nobody reads them afterwards.
template <class Bytes>
void wipe(Bytes& bytes) noexcept {
    volatile auto* const at = bytes.data();
    for (std::size_t i = 0; i < bytes.size(); ++i) at[i] = 0;
}

}  // namespace vantlow::login
