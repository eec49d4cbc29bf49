// Parts that both forms of TLS share: the one that waits (tls.h) and the one of the loop (tls_stage.h).
#pragma once

#include <cstddef>

#include "transfer/connection/tls.h"

namespace vantlow {

/// The plan in the library's form, whose texts are the given plan's.
VantlowTlsPlan library_plan(const TlsPlan& plan, const VantlowTlsTransport& transport) noexcept;

/// The result for a failure that is the library's own; `text` is its sentence.
Result tls_failure(ptrdiff_t answer, const char* text);

}  // namespace vantlow
