// TLS over OpenSSL 3: the parts that the files of this folder share.
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

/// Adds the certificates of a PEM or DER text to the trusted ones; false, with a sentence in `error`, when
/// there is none in it.
bool trust_certificates(SSL_CTX* context, const void* roots, std::size_t size, std::string& error);

/// Has stapled OCSP answers (RFC 6066, 8) requested and checked.
void install_checks(SSL_CTX* context) noexcept;

/// The callback for SSL_set_verify: it puts the sentence about a bad certificate into the connection's
/// `fault`.
int keep_fault(int well, X509_STORE_CTX* check) noexcept;

/// Ties an OpenSSL object to its connection, and finds that connection again.
bool set_owner(SSL* ssl, VantlowTls& tls) noexcept;
VantlowTls* tls_of(const SSL* ssl) noexcept;

/// Wraps the caller's transport in an OpenSSL BIO; null without memory. The connection's `below` holds the
/// result of each step.
BIO* make_transport_bio(VantlowTls& tls) noexcept;

}  // namespace vantlow::secur

struct VantlowTlsEngine {
    vantlow::secur::Owned<SSL_CTX, SSL_CTX_free> context;
    vantlow::secur::SessionStore<vantlow::secur::Session> sessions;
};

struct VantlowTls : vantlow::secur::TlsState {
    std::string session_key;
    std::string fault;  ///< the sentence about the certificate; empty: nothing is wrong

    // The result of the transport below, for the result of the operation above.
    int below = VANTLOW_TLS_OK;
    bool may_receive = true;  ///< false: only bytes that were received already are read

    vantlow::secur::Owned<SSL, SSL_free> ssl;  ///< last: it may use the rest
};
