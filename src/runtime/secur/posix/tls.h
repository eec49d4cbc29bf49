// TLS over OpenSSL 3: what the files of this folder share.
#pragma once

#include <openssl/ssl.h>

#include <memory>
#include <string>

#include "runtime/operations.h"
#include "runtime/secur/session_store.h"
#include "runtime/secur/tls_state.h"

namespace vantlow::secur {

template <auto Free>
struct Freeing {
    template <class T>
    void operator()(T* object) const noexcept {
        Free(object);
    }
};
template <class T, auto Free>
using Owned = std::unique_ptr<T, Freeing<Free>>;
using Session = std::shared_ptr<SSL_SESSION>;

/// OpenSSL's words for its first error on this thread, which are taken off its queue.
std::string openssl_words();

/// Adds the certificates of a PEM or DER text to what is trusted; false, with why, when there is none in it.
bool trust_certificates(SSL_CTX* context, const void* roots, std::size_t size, std::string& error);

/// Has stapled answers (RFC 6066, 8) asked for and looked at.
void install_checks(SSL_CTX* context) noexcept;

/// For SSL_set_verify: the sentence of what is wrong goes to the connection's `fault`.
int keep_fault(int well, X509_STORE_CTX* check) noexcept;

/// The connection that an OpenSSL object belongs to.
bool set_owner(SSL* ssl, VantlowTls& tls) noexcept;
VantlowTls* tls_of(const SSL* ssl) noexcept;

}  // namespace vantlow::secur

struct VantlowTlsEngine {
    vantlow::secur::Owned<SSL_CTX, SSL_CTX_free> context;
    vantlow::secur::SessionStore<vantlow::secur::Session> sessions;
};

struct VantlowTls : vantlow::secur::TlsState {
    std::string session_key;
    std::string fault;  ///< what is wrong with the certificate; empty: nothing

    // How the bytes below went, for the result of the operation above.
    int below = VANTLOW_TLS_OK;
    bool may_receive = true;  ///< else only what was received already is looked at

    vantlow::secur::Owned<SSL, SSL_free> ssl;  ///< last: it may use the rest
};
