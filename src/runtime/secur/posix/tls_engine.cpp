// The engine that connections share: trusted roots, and the sessions that connections leave behind.
#include <openssl/err.h>

#include <algorithm>
#include <cstring>
#include <new>

#include "runtime/secur/posix/tls.h"

namespace vantlow::secur {
namespace {

// One read of the system brings several records (of at most 16 KiB each).
constexpr std::size_t read_buffer = 128 * 1024;

int owner_index() noexcept {
    static const int index = SSL_get_ex_new_index(0, nullptr, nullptr, nullptr, nullptr);
    return index;
}

// Keeps a session that can be resumed; with TLS 1.3 it comes some time after the handshake.
int keep_session(SSL* ssl, SSL_SESSION* session) noexcept {
    VantlowTls& tls = *tls_of(ssl);
    if (tls.session_key.empty()) return 0;
    try {
        // A copy is kept, because OpenSSL marks the connection's own session as unusable when the connection
        // is cut.
        if (Session copy{SSL_SESSION_dup(session), SSL_SESSION_free})
            tls.engine->sessions.keep(tls.session_key, copy);
    } catch (...) {
        return 0;  // the session is not kept, and nothing else is wrong
    }
    return 0;
}

bool set_up(VantlowTlsEngine& engine) noexcept {
    SSL_CTX* const context = engine.context.get();
    if (context == nullptr || SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION) != 1) return false;
    SSL_CTX_set_options(context, SSL_OP_NO_RENEGOTIATION);
    SSL_CTX_set_read_ahead(context, 1);
    SSL_CTX_set_default_read_buffer_len(context, read_buffer);
    SSL_CTX_set_session_cache_mode(context, SSL_SESS_CACHE_CLIENT | SSL_SESS_CACHE_NO_INTERNAL);
    SSL_CTX_sess_set_new_cb(context, keep_session);
    install_checks(context);
    return owner_index() >= 0;
}

}  // namespace

VantlowTls* tls_of(const SSL* ssl) noexcept {
    return static_cast<VantlowTls*>(SSL_get_ex_data(ssl, owner_index()));
}

bool set_owner(SSL* ssl, VantlowTls& tls) noexcept {
    return SSL_set_ex_data(ssl, owner_index(), &tls) == 1;
}

std::string openssl_words() {
    const unsigned long code = ERR_get_error();
    const char* const words = code == 0 ? nullptr : ERR_reason_error_string(code);
    ERR_clear_error();
    return words == nullptr ? std::string() : words;
}

}  // namespace vantlow::secur

using namespace vantlow::secur;

extern "C" VANTLOW_EXPORT VantlowTlsEngine* SSL_Init(const void* roots, size_t size, char* error,
                                                     size_t room) {
    ErrorText words;
    words.set(error, room);
    try {
        auto engine = std::make_unique<VantlowTlsEngine>();
        engine->context.reset(SSL_CTX_new(TLS_client_method()));
        std::string why;
        bool ready = set_up(*engine);
        if (ready && roots != nullptr) ready = trust_certificates(engine->context.get(), roots, size, why);
        // A system without any roots is reported at the first certificate.
        if (ready && roots == nullptr) SSL_CTX_set_default_verify_paths(engine->context.get());
        if (ready) return engine.release();
        words.write(why.empty() ? "TLS cannot be set up: " + openssl_words() : why);
    } catch (...) {
        words.write("Not enough memory.");
    }
    return nullptr;
}

extern "C" VANTLOW_EXPORT void SSL_Thread_Exit() {
    OPENSSL_thread_stop();
}
