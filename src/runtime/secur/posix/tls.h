// TLS over OpenSSL 3: the parts that the files of this folder share.
#pragma once

#include <openssl/ssl.h>

#include <deque>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "base/mutex.h"
#include "runtime/operations.h"
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

/// Keeps the sessions of earlier connections that later ones may resume, by the caller's key, in bounded
/// numbers. Any thread may call.
class SessionStore {
  public:
    void keep(const std::string& key, Session session) {
        const MutexLock guard(mutex_);
        std::deque<Session>& kept = sessions_[key];
        kept.push_back(std::move(session));
        if (kept.size() > most_of_a_key) kept.pop_front();
        if (sessions_.size() > most_keys) drop_other_than(key);
    }

    /// Returns the newest session, or a null one. A ticket is to be used once (RFC 8446, C.4), so it is
    /// removed; the last one stays, because resuming it again is better than not resuming at all.
    Session take(const std::string& key) {
        const MutexLock guard(mutex_);
        const auto found = sessions_.find(key);
        if (found == sessions_.end() || found->second.empty()) return {};
        std::deque<Session>& kept = found->second;
        if (kept.size() == 1) return kept.front();
        Session session = std::move(kept.back());
        kept.pop_back();
        return session;
    }

  private:
    static constexpr std::size_t most_of_a_key = 16;
    static constexpr std::size_t most_keys = 256;

    void drop_other_than(const std::string& key) VANTLOW_REQUIRES(mutex_) {
        auto victim = sessions_.begin();
        if (victim->first == key) ++victim;
        sessions_.erase(victim);
    }

    Mutex mutex_;
    std::map<std::string, std::deque<Session>> sessions_ VANTLOW_GUARDED_BY(mutex_);  ///< newest last
};

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
    vantlow::secur::SessionStore sessions;
};

struct VantlowTls : vantlow::secur::TlsState {
    std::string session_key;
    std::string fault;  ///< the sentence about the certificate; empty: nothing is wrong

    // The result of the transport below, for the result of the operation above.
    int below = VANTLOW_TLS_OK;
    bool may_receive = true;  ///< false: only bytes that were received already are read

    vantlow::secur::Owned<SSL, SSL_free> ssl;  ///< last: it may use the rest
};
