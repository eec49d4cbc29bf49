// Preparing libgcrypt, once for this library.
#pragma once

namespace vantlow::secur {

/// Makes libgcrypt ready: every operation of this library that uses it calls this first. Any thread may call;
/// false when its version is older than the one that this was built with.
bool start_gcrypt() noexcept;

}  // namespace vantlow::secur
