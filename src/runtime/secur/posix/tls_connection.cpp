// One connection: the handshake, the bytes, the end.
#include <openssl/err.h>
#include <openssl/x509v3.h>

#include "runtime/secur/posix/tls.h"

using namespace vantlow::secur;

namespace {

bool set_server_name(SSL* ssl, std::string host) noexcept {
    // SSL_set_tlsext_host_name() without its cast.
    return SSL_ctrl(ssl, SSL_CTRL_SET_TLSEXT_HOSTNAME, TLSEXT_NAMETYPE_host_name, host.data()) == 1;
}

bool name_host(SSL* ssl, const std::string& host) noexcept {
    X509_VERIFY_PARAM* const check = SSL_get0_param(ssl);
    X509_VERIFY_PARAM_set_hostflags(check, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
    if (X509_VERIFY_PARAM_set1_ip_asc(check, host.c_str()) == 1)
        return true;  // a literal is never a server name
    ERR_clear_error();
    return X509_VERIFY_PARAM_set1_host(check, host.data(), host.size()) == 1 && set_server_name(ssl, host);
}

bool offer_protocol(SSL* ssl, std::string_view protocol) {
    if (protocol.empty()) return true;
    const std::string list = static_cast<char>(protocol.size()) + std::string(protocol);  // RFC 7301, 3.1
    return protocol.size() < 256 &&
           SSL_set_alpn_protos(ssl, reinterpret_cast<const unsigned char*>(list.data()),
                               static_cast<unsigned>(list.size())) == 0;
}

bool set_up(VantlowTls& tls, const VantlowTlsPlan& plan) {
    SSL* const ssl = tls.ssl.get();
    BIO* const bio = make_transport_bio(tls);
    if (bio == nullptr) return false;
    SSL_set_bio(ssl, bio, bio);
    SSL_set_connect_state(ssl);
    SSL_set_verify(ssl, tls.verify ? SSL_VERIFY_PEER : SSL_VERIFY_NONE, tls.verify ? keep_fault : nullptr);
    if (plan.end_without_notice != 0) SSL_set_options(ssl, SSL_OP_IGNORE_UNEXPECTED_EOF);
    if (tls.session_key.empty()) {
        SSL_set_options(ssl, SSL_OP_NO_TICKET);
    } else if (const Session session = tls.engine->sessions.take(tls.session_key)) {
        SSL_set_session(ssl, session.get());  // it keeps a reference of its own
    }
    return name_host(ssl, tls.host) && offer_protocol(ssl, plan.protocol == nullptr ? "" : plan.protocol);
}

bool is_alert(unsigned long code) noexcept {
    return ERR_GET_LIB(code) == ERR_LIB_SSL && ERR_GET_REASON(code) > SSL_AD_REASON_OFFSET;
}

// True for failures that a repetition might mend: damage on the way, and a server in trouble.
bool may_pass(unsigned long code) noexcept {
    switch (ERR_GET_REASON(code)) {
        case SSL_R_UNEXPECTED_EOF_WHILE_READING:
        case SSL_R_DECRYPTION_FAILED_OR_BAD_RECORD_MAC:
        case SSL_R_SSLV3_ALERT_BAD_RECORD_MAC:
        case SSL_R_TLSV1_ALERT_INTERNAL_ERROR:
        case SSL_R_TLSV1_ALERT_USER_CANCELLED:
        case ERR_R_MALLOC_FAILURE:
            return true;
        default:
            return false;
    }
}

// The failure that OpenSSL's last step ended with, as a result and a sentence.
int explain(VantlowTls& tls, bool in_handshake) {
    if (tls.below == VANTLOW_TLS_INTERRUPTED) return tls.fail(VANTLOW_TLS_INTERRUPTED, "Stopped.");
    const std::string where = in_handshake ? " in the middle of the TLS handshake." : " without ending TLS.";
    if (tls.at_end) return tls.fail(VANTLOW_TLS_BROKEN, shown(tls.host) + " closed the connection" + where);
    if (tls.below < 0 && tls.below != VANTLOW_TLS_QUIET) {
        return tls.fail(tls.below,
                        "The connection to " + shown(tls.host) + " broke" + (in_handshake ? where : "."));
    }
    if (!tls.fault.empty()) return tls.fail(VANTLOW_TLS_UNTRUSTED, tls.fault);
    const unsigned long code = ERR_peek_error();
    const std::string words = openssl_words();
    if (ERR_GET_LIB(code) == ERR_LIB_SSL && ERR_GET_REASON(code) == SSL_R_WRONG_VERSION_NUMBER &&
        in_handshake) {
        return tls.fail(VANTLOW_TLS_REFUSED, shown(tls.host) + " does not speak TLS at this port.");
    }
    std::string sentence = in_handshake ? "The TLS handshake with " + shown(tls.host) + " failed: "
                                        : "TLS with " + shown(tls.host) + " failed: ";
    sentence += words.empty() ? "unknown error" : words;
    if (is_alert(code)) sentence += " (the server's word)";
    const bool passing = may_pass(code) || (!in_handshake && !is_alert(code));
    return tls.fail(passing ? VANTLOW_TLS_BROKEN : VANTLOW_TLS_REFUSED, sentence + ".");
}

int explain_safely(VantlowTls& tls, bool in_handshake) noexcept {
    try {
        return explain(tls, in_handshake);
    } catch (...) {
        return tls.fail(VANTLOW_TLS_BROKEN, "Not enough memory.");
    }
}

void begin_step(VantlowTls& tls) noexcept {
    ERR_clear_error();
    tls.below = VANTLOW_TLS_OK;
    tls.may_receive = true;
}

void tell(const SSL* ssl, VantlowTlsFacts& facts) noexcept {
    facts.version = SSL_version(ssl) == TLS1_3_VERSION ? 13 : 12;
    facts.resumed = SSL_session_reused(ssl);
    const char* const cipher = SSL_CIPHER_standard_name(SSL_get_current_cipher(ssl));
    copy_text(facts.cipher, sizeof facts.cipher, cipher == nullptr ? "" : cipher);
    const unsigned char* protocol = nullptr;
    unsigned size = 0;
    SSL_get0_alpn_selected(ssl, &protocol, &size);
    copy_text(facts.protocol, sizeof facts.protocol, {reinterpret_cast<const char*>(protocol), size});
}

}  // namespace

extern "C" VANTLOW_EXPORT VantlowTls* SSL_New(VantlowTlsEngine* engine, const VantlowTlsPlan* plan) {
    try {
        auto tls = std::make_unique<VantlowTls>();
        tls->begin(engine, *plan);
        tls->session_key = plan->session_key == nullptr ? "" : plan->session_key;
        tls->ssl.reset(SSL_new(engine->context.get()));
        if (!tls->ssl || !set_owner(tls->ssl.get(), *tls) || !set_up(*tls, *plan)) return nullptr;
        return tls.release();
    } catch (...) {
        return nullptr;
    }
}

extern "C" VANTLOW_EXPORT void SSL_Free(VantlowTls* tls) {
    if (tls == nullptr) return;
    ERR_clear_error();
    if (!tls->failed && !tls->at_end && SSL_is_init_finished(tls->ssl.get()) != 0) {
        tls->may_receive = false;
        SSL_shutdown(tls->ssl.get());  // one way: the answer is not waited for
    }
    ERR_clear_error();
    delete tls;
}

extern "C" VANTLOW_EXPORT int SSL_Connect(VantlowTls* tls, VantlowTlsFacts* facts) {
    if (tls->failed) return tls->failure;
    begin_step(*tls);
    SSL* const ssl = tls->ssl.get();
    const int done = SSL_do_handshake(ssl);
    if (done == 1) {
        if (facts != nullptr) tell(ssl, *facts);
        return VANTLOW_TLS_OK;
    }
    if (SSL_get_error(ssl, done) == SSL_ERROR_WANT_READ) return VANTLOW_TLS_QUIET;
    return explain_safely(*tls, true);
}

extern "C" VANTLOW_EXPORT ptrdiff_t SSL_Recv(VantlowTls* tls, void* into, size_t size) {
    if (tls->failed) return tls->failure;
    begin_step(*tls);
    SSL* const ssl = tls->ssl.get();
    auto* const bytes = static_cast<char*>(into);
    size_t got = 0;
    while (got < size) {
        size_t step = 0;
        if (SSL_read_ex(ssl, bytes + got, size - got, &step) == 1) {
            got += step;
            tls->may_receive = false;  // from here on only records that are here already
            continue;
        }
        switch (SSL_get_error(ssl, 0)) {
            case SSL_ERROR_WANT_READ:
                return got > 0 ? static_cast<ptrdiff_t>(got) : ptrdiff_t{VANTLOW_TLS_QUIET};
            case SSL_ERROR_ZERO_RETURN:
                return static_cast<ptrdiff_t>(got);  // the bytes before the end first, then the end
            default:
                break;
        }
        const int failure = explain_safely(*tls, false);
        return got > 0 ? static_cast<ptrdiff_t>(got) : ptrdiff_t{failure};
    }
    return static_cast<ptrdiff_t>(got);
}

extern "C" VANTLOW_EXPORT int SSL_Send(VantlowTls* tls, const void* from, size_t size) {
    if (tls->failed) return tls->failure;
    if (size == 0) return VANTLOW_TLS_OK;
    begin_step(*tls);
    size_t sent = 0;
    if (SSL_write_ex(tls->ssl.get(), from, size, &sent) == 1) return VANTLOW_TLS_OK;
    return explain_safely(*tls, false);
}
