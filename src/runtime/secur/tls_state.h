// The state of a TLS connection that is the same on every system.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "runtime/operations.h"
#include "runtime/secur/tls_words.h"

namespace vantlow::secur {

/// The part of a connection that knows no library of the system.
struct TlsState {
    VantlowTlsEngine* engine = nullptr;
    VantlowTlsTransport transport{};
    std::string host;  ///< in the form of certificates and server names: certificate_name()
    bool verify = true;
    bool at_end = false;  ///< the transport sends nothing more
    bool failed = false;
    int failure = VANTLOW_TLS_OK;  ///< the result of every call after a failure
    int (*interrupt)(void*) = nullptr;
    void* interrupt_context = nullptr;
    ErrorText error;

    /// Takes the plan's values over.
    void begin(VantlowTlsEngine* its_engine, const VantlowTlsPlan& plan);
    /// Ends the connection with this result, which is returned, and this sentence.
    int fail(int result, std::string_view sentence) noexcept;
    [[nodiscard]] bool is_interrupted() const noexcept;
};

/// A host without the dot behind a complete name and without an address's zone.
std::string certificate_name(std::string_view host);

/// Copies a text, cut to the room, with its zero byte.
void copy_text(char* into, std::size_t room, std::string_view text) noexcept;

}  // namespace vantlow::secur
