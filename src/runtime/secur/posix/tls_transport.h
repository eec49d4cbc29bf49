// The caller's transport as an OpenSSL BIO.
#pragma once

#include "runtime/secur/posix/tls.h"

namespace vantlow::secur {

/// Null without memory. How each step went stands in the connection.
BIO* make_transport_bio(VantlowTls& tls) noexcept;

}  // namespace vantlow::secur
