// One connection: the handshake, the bytes, the end.
#include "runtime/secur/win32/tls.h"

// clang-format off
#include <schannel.h>
// clang-format on

#include <algorithm>
#include <array>
#include <cstring>

using namespace vantlow::secur;

namespace {

// One read of the system brings several records (of at most 16 KiB each).
constexpr size_t read_buffer = 128 * 1024;
constexpr size_t most_credentials = 64;
constexpr ULONG wanted_context = ISC_REQ_SEQUENCE_DETECT | ISC_REQ_REPLAY_DETECT | ISC_REQ_CONFIDENTIALITY |
                                 ISC_REQ_EXTENDED_ERROR | ISC_REQ_ALLOCATE_MEMORY | ISC_REQ_STREAM |
                                 ISC_REQ_MANUAL_CRED_VALIDATION | ISC_REQ_USE_SUPPLIED_CREDS;

// Content types (RFC 8446, 5.1). Also the first record of what comes in a handshake may have any of them:
// where the bytes before were taken already, version 1.2 goes on with a change of the cipher, 1.3 with sealed
// records.
constexpr char change_cipher_spec_record = 20;
constexpr char alert_record = 21;
constexpr char application_data_record = 23;

int fail_in_handshake(VantlowTls& tls, SECURITY_STATUS status) {
    // These are failures that a repetition might mend.
    const bool passing = status == SEC_E_INSUFFICIENT_MEMORY || status == SEC_E_MESSAGE_ALTERED;
    return tls.fail(passing ? VANTLOW_TLS_BROKEN : VANTLOW_TLS_REFUSED,
                    "The TLS handshake with " + shown(tls.host) + " failed: " + status_words(status) + ".");
}

// Receives more encrypted bytes behind those in the buffer; VANTLOW_TLS_OK, VANTLOW_TLS_QUIET or a failure.
int receive_more(VantlowTls& tls) {
    const std::string name = shown(tls.host);
    if (tls.raw_at > 0 && tls.plain_size == 0) {
        std::memmove(tls.buffer.data(), tls.buffer.data() + tls.raw_at, tls.raw_end - tls.raw_at);
        tls.raw_end -= tls.raw_at;
        tls.raw_at = 0;
    }
    if (tls.raw_end == tls.buffer.size())
        return tls.fail(VANTLOW_TLS_BROKEN, name + " sent a TLS record that is too long.");
    if (tls.is_interrupted()) return tls.fail(VANTLOW_TLS_INTERRUPTED, "Stopped.");
    const ptrdiff_t got = tls.transport.receive(tls.transport.context, tls.buffer.data() + tls.raw_end,
                                                tls.buffer.size() - tls.raw_end);
    if (got > 0) {
        tls.raw_end += static_cast<size_t>(got);
        return VANTLOW_TLS_OK;
    }
    if (got == VANTLOW_TLS_QUIET) return VANTLOW_TLS_QUIET;
    const std::string where = tls.connected ? " without ending TLS." : " in the middle of the TLS handshake.";
    tls.at_end = got == 0;
    if (got == 0) return tls.fail(VANTLOW_TLS_BROKEN, name + " closed the connection" + where);
    return tls.fail(static_cast<int>(got),
                    "The connection to " + name + " broke" + (tls.connected ? "." : where));
}

int send_below(VantlowTls& tls, const void* bytes, size_t size) {
    if (tls.is_interrupted()) return tls.fail(VANTLOW_TLS_INTERRUPTED, "Stopped.");
    const int sent = tls.transport.send(tls.transport.context, bytes, size);
    if (sent == VANTLOW_TLS_OK) return sent;
    return tls.fail(sent, "The connection to " + shown(tls.host) + " broke.");
}

// The list of one protocol for SECBUFFER_APPLICATION_PROTOCOLS (RFC 7301, 3.1, behind SChannel's own head).
std::vector<char> protocol_list(const std::string& protocol) {
    struct Head {
        std::uint32_t lists_size;
        std::uint32_t extension;
        std::uint16_t list_size;
    };
    constexpr size_t head_size = 10;  // the structure without what pads its end
    const auto list_size = static_cast<std::uint16_t>(protocol.size() + 1);
    const Head head{static_cast<std::uint32_t>(list_size + 6U),
                    static_cast<std::uint32_t>(SecApplicationProtocolNegotiationExt_ALPN), list_size};
    std::vector<char> bytes(head_size);
    std::memcpy(bytes.data(), &head, head_size);
    bytes.push_back(static_cast<char>(protocol.size()));
    bytes.insert(bytes.end(), protocol.begin(), protocol.end());
    return bytes;
}

// Makes one step of the handshake, or of a server's wishes after it (tickets, new keys), with the encrypted
// bytes in the buffer. SChannel's answer goes to `status`; the bytes that it wants sent are sent.
int handshake_step(VantlowTls& tls, SECURITY_STATUS& status) {
    std::vector<char> protocols =
        tls.has_context || tls.protocol.empty() ? std::vector<char>() : protocol_list(tls.protocol);
    std::array<SecBuffer, 2> in{};
    if (tls.has_context) {
        in[0] = {static_cast<ULONG>(tls.raw_end - tls.raw_at), SECBUFFER_TOKEN,
                 tls.buffer.data() + tls.raw_at};
    } else if (!protocols.empty()) {
        in[0] = {static_cast<ULONG>(protocols.size()), SECBUFFER_APPLICATION_PROTOCOLS, protocols.data()};
    }
    SecBufferDesc in_list{SECBUFFER_VERSION, tls.has_context ? 2UL : 1UL, in.data()};
    std::array<SecBuffer, 2> out{{{0, SECBUFFER_TOKEN, nullptr}, {0, SECBUFFER_ALERT, nullptr}}};
    SecBufferDesc out_list{SECBUFFER_VERSION, 2, out.data()};
    const bool with_input = tls.has_context || !protocols.empty();
    ULONG attributes = 0;
    status =
        InitializeSecurityContextW(tls.credentials->handle(), tls.has_context ? &tls.context : nullptr,
                                   tls.target.data(), wanted_context, 0, 0, with_input ? &in_list : nullptr,
                                   0, &tls.context, &out_list, &attributes, nullptr);
    const bool first = !tls.has_context;
    if (first && (status == SEC_E_OK || status == SEC_I_CONTINUE_NEEDED)) tls.has_context = true;
    int result = VANTLOW_TLS_OK;
    for (const SecBuffer& buffer : out) {
        const bool wanted =
            buffer.BufferType == SECBUFFER_TOKEN && buffer.cbBuffer > 0 && buffer.pvBuffer != nullptr;
        if (wanted && result == VANTLOW_TLS_OK) result = send_below(tls, buffer.pvBuffer, buffer.cbBuffer);
        if (buffer.pvBuffer != nullptr) FreeContextBuffer(buffer.pvBuffer);
    }
    if (first || status == SEC_E_INCOMPLETE_MESSAGE || status == SEC_I_INCOMPLETE_CREDENTIALS) return result;
    const bool rest = in[1].BufferType == SECBUFFER_EXTRA && in[1].cbBuffer > 0;
    tls.raw_at = rest ? tls.raw_end - in[1].cbBuffer : tls.raw_end;
    return result;
}

bool is_other_protocol(const VantlowTls& tls) noexcept {
    if (tls.raw_end == tls.raw_at) return false;
    const char type = tls.buffer[tls.raw_at];
    return type < change_cipher_spec_record || type > application_data_record;
}

int shake_hands(VantlowTls& tls) {
    SECURITY_STATUS status = SEC_I_CONTINUE_NEEDED;
    if (!tls.has_context) {
        if (const int sent = handshake_step(tls, status); sent != VANTLOW_TLS_OK) return sent;
        if (status != SEC_I_CONTINUE_NEEDED && status != SEC_E_OK) return fail_in_handshake(tls, status);
    }
    while (status != SEC_E_OK) {
        if (status == SEC_E_INCOMPLETE_MESSAGE || tls.raw_at == tls.raw_end) {
            if (const int got = receive_more(tls); got != VANTLOW_TLS_OK) return got;
            if (is_other_protocol(tls))
                return tls.fail(VANTLOW_TLS_REFUSED, shown(tls.host) + " does not speak TLS at this port.");
        }
        if (const int sent = handshake_step(tls, status); sent != VANTLOW_TLS_OK) return sent;
        // The server would like a certificate of ours; the handshake goes on without one.
        if (status == SEC_I_INCOMPLETE_CREDENTIALS) continue;
        if (FAILED(status) && status != SEC_E_INCOMPLETE_MESSAGE) return fail_in_handshake(tls, status);
    }
    return VANTLOW_TLS_OK;
}

int check_certificate(VantlowTls& tls) {
    if (!tls.verify) return VANTLOW_TLS_OK;
    const CERT_CONTEXT* shown_one = nullptr;
    if (QueryContextAttributesW(&tls.context, SECPKG_ATTR_REMOTE_CERT_CONTEXT,
                                static_cast<void*>(&shown_one)) != SEC_E_OK)
        return tls.fail(VANTLOW_TLS_UNTRUSTED, shown(tls.host) + " showed no certificate.");
    const std::shared_ptr<const CERT_CONTEXT> certificate(shown_one, CertFreeCertificateContext);
    const CertificateStore* const roots = tls.engine->roots.get();
    Verdict verdict = judge(certificate.get(), tls.host, roots);
    if (verdict.unfounded && roots == nullptr) {
        const auto fetch = [certificate] { fetch_issuers(certificate.get()); };
        if (!tls.engine->errands.run(fetch, [&tls] { return tls.is_interrupted(); }))
            return tls.fail(VANTLOW_TLS_INTERRUPTED, "Stopped.");
        verdict = judge(certificate.get(), tls.host, roots);
    }
    return verdict.fault.empty() ? VANTLOW_TLS_OK : tls.fail(VANTLOW_TLS_UNTRUSTED, verdict.fault);
}

// The version is checked because not every system keeps to those that the credentials allow.
int check_version(VantlowTls& tls) {
    SecPkgContext_ConnectionInfo connection{};
    const SECURITY_STATUS status =
        QueryContextAttributesW(&tls.context, SECPKG_ATTR_CONNECTION_INFO, &connection);
    if (status != SEC_E_OK) return fail_in_handshake(tls, status);
    constexpr DWORD too_old =
        SP_PROT_SSL2_CLIENT | SP_PROT_SSL3_CLIENT | SP_PROT_TLS1_0_CLIENT | SP_PROT_TLS1_1_CLIENT;
    if ((connection.dwProtocol & too_old) == 0) return VANTLOW_TLS_OK;
    return tls.fail(VANTLOW_TLS_REFUSED, "The TLS handshake with " + shown(tls.host) +
                                             " failed: it has no version newer than TLS 1.1.");
}

void tell(VantlowTls& tls, VantlowTlsFacts& facts) {
    facts = {};
    SecPkgContext_ConnectionInfo connection{};
    QueryContextAttributesW(&tls.context, SECPKG_ATTR_CONNECTION_INFO, &connection);
    facts.version = (connection.dwProtocol & SP_PROT_TLS1_3_CLIENT) != 0 ? 13 : 12;
    SecPkgContext_SessionInfo session{};
    if (QueryContextAttributesW(&tls.context, SECPKG_ATTR_SESSION_INFO, &session) == SEC_E_OK)
        facts.resumed = (session.dwFlags & SSL_SESSION_RECONNECT) != 0 ? 1 : 0;
    copy_text(facts.cipher, sizeof facts.cipher, std::to_string(connection.dwCipherStrength) + " bits");
    SecPkgContext_ApplicationProtocol protocol{};
    if (QueryContextAttributesW(&tls.context, SECPKG_ATTR_APPLICATION_PROTOCOL, &protocol) == SEC_E_OK &&
        protocol.ProtoNegoStatus == SecApplicationProtocolNegotiationStatus_Success) {
        copy_text(facts.protocol, sizeof facts.protocol,
                  {reinterpret_cast<const char*>(protocol.ProtocolId), protocol.ProtocolIdSize});
    }
}

// Decrypts the next record in the buffer. `more` when the rest of it must be received first.
int decrypt_next(VantlowTls& tls, bool& more) {
    std::array<SecBuffer, 4> parts{};
    parts[0] = {static_cast<ULONG>(tls.raw_end - tls.raw_at), SECBUFFER_DATA, tls.buffer.data() + tls.raw_at};
    SecBufferDesc list{SECBUFFER_VERSION, 4, parts.data()};
    const bool is_alert = tls.buffer[tls.raw_at] == alert_record;
    const SECURITY_STATUS status = DecryptMessage(&tls.context, &list, 0, nullptr);
    more = status == SEC_E_INCOMPLETE_MESSAGE;
    if (more) return VANTLOW_TLS_OK;
    if (status != SEC_E_OK && status != SEC_I_RENEGOTIATE && status != SEC_I_CONTEXT_EXPIRED) {
        return tls.fail(VANTLOW_TLS_BROKEN,
                        "TLS with " + shown(tls.host) + " failed: " + status_words(status) + ".");
    }
    size_t rest = 0;
    for (const SecBuffer& part : parts) {
        if (part.BufferType == SECBUFFER_EXTRA) rest = part.cbBuffer;
        if (part.BufferType != SECBUFFER_DATA || status != SEC_E_OK) continue;
        tls.plain_at = static_cast<size_t>(static_cast<char*>(part.pvBuffer) - tls.buffer.data());
        tls.plain_size = part.cbBuffer;
    }
    tls.raw_at = tls.raw_end - rest;
    // Wine reports success for a close_notify as well, but alerts that are failures it reports as such.
    tls.ended = status == SEC_I_CONTEXT_EXPIRED || (is_alert && status == SEC_E_OK && tls.plain_size == 0);
    if (status != SEC_I_RENEGOTIATE) return VANTLOW_TLS_OK;
    SECURITY_STATUS after = SEC_E_OK;  // a ticket or new keys (RFC 8446, 4.6)
    if (const int sent = handshake_step(tls, after); sent != VANTLOW_TLS_OK) return sent;
    more = after == SEC_E_INCOMPLETE_MESSAGE;
    return FAILED(after) && !more ? fail_in_handshake(tls, after) : VANTLOW_TLS_OK;
}

std::shared_ptr<Credentials> credentials_for(VantlowTlsEngine& engine, const std::string& key) {
    const vantlow::MutexLock guard(engine.mutex);
    const auto found = engine.credentials.find(key);
    if (!key.empty() && found != engine.credentials.end()) return found->second;
    auto made = std::make_shared<Credentials>();
    if (made->acquire() != SEC_E_OK) return nullptr;
    if (key.empty()) return made;
    if (engine.credentials.size() >= most_credentials) engine.credentials.erase(engine.credentials.begin());
    engine.credentials.emplace(key, made);
    return made;
}

void say_goodbye(VantlowTls& tls) {
    DWORD shutdown = SCHANNEL_SHUTDOWN;
    SecBuffer token{sizeof shutdown, SECBUFFER_TOKEN, &shutdown};
    SecBufferDesc list{SECBUFFER_VERSION, 1, &token};
    if (FAILED(ApplyControlToken(&tls.context, &list))) return;
    SECURITY_STATUS status = SEC_E_OK;
    tls.raw_at = tls.raw_end = 0;
    handshake_step(tls, status);
}

ptrdiff_t receive(VantlowTls& tls, char* into, size_t size) {
    size_t got = 0;
    while (got < size) {
        if (tls.plain_size > 0) {
            const size_t step = std::min(tls.plain_size, size - got);
            std::memcpy(into + got, tls.buffer.data() + tls.plain_at, step);
            tls.plain_at += step;
            tls.plain_size -= step;
            got += step;
            continue;
        }
        if (tls.ended) break;
        bool more = tls.raw_at == tls.raw_end;
        int result = more ? VANTLOW_TLS_OK : decrypt_next(tls, more);
        if (result == VANTLOW_TLS_OK && more) {
            if (got > 0) break;
            result = receive_more(tls);
            if (tls.at_end && tls.end_without_notice) return 0;
        }
        // Bytes that came before a failure are returned first; the next call returns the failure.
        if (result != VANTLOW_TLS_OK) return got > 0 ? static_cast<ptrdiff_t>(got) : ptrdiff_t{result};
    }
    return static_cast<ptrdiff_t>(got);
}

int transmit(VantlowTls& tls, const char* from, size_t size) {
    while (size > 0) {
        const size_t step = std::min<size_t>(size, tls.sizes.cbMaximumMessage);
        tls.outgoing.resize(tls.sizes.cbHeader + step + tls.sizes.cbTrailer);
        char* const bytes = tls.outgoing.data();
        std::memcpy(bytes + tls.sizes.cbHeader, from, step);
        std::array<SecBuffer, 4> parts{
            {{tls.sizes.cbHeader, SECBUFFER_STREAM_HEADER, bytes},
             {static_cast<ULONG>(step), SECBUFFER_DATA, bytes + tls.sizes.cbHeader},
             {tls.sizes.cbTrailer, SECBUFFER_STREAM_TRAILER, bytes + tls.sizes.cbHeader + step},
             {0, SECBUFFER_EMPTY, nullptr}}};
        SecBufferDesc list{SECBUFFER_VERSION, 4, parts.data()};
        if (const SECURITY_STATUS status = EncryptMessage(&tls.context, 0, &list, 0); status != SEC_E_OK) {
            return tls.fail(VANTLOW_TLS_BROKEN,
                            "TLS with " + shown(tls.host) + " failed: " + status_words(status) + ".");
        }
        const int sent =
            send_below(tls, bytes, size_t{parts[0].cbBuffer} + parts[1].cbBuffer + parts[2].cbBuffer);
        if (sent != VANTLOW_TLS_OK) return sent;
        from += step;
        size -= step;
    }
    return VANTLOW_TLS_OK;
}

}  // namespace

extern "C" VANTLOW_EXPORT VantlowTls* SSL_New(VantlowTlsEngine* engine, const VantlowTlsPlan* plan) {
    try {
        auto tls = std::make_unique<VantlowTls>();
        tls->begin(engine, *plan);
        tls->target = to_wide(tls->host);
        tls->protocol = plan->protocol == nullptr ? "" : plan->protocol;
        tls->end_without_notice = plan->end_without_notice != 0;
        tls->buffer.resize(read_buffer);
        tls->credentials = credentials_for(*engine, plan->session_key == nullptr ? "" : plan->session_key);
        return tls->credentials ? tls.release() : nullptr;
    } catch (...) {
        return nullptr;
    }
}

extern "C" VANTLOW_EXPORT void SSL_Free(VantlowTls* tls) {
    if (tls == nullptr) return;
    try {
        if (tls->connected && !tls->failed && !tls->at_end) say_goodbye(*tls);
    } catch (...) {
        tls->failed = true;
    }
    if (tls->has_context) DeleteSecurityContext(&tls->context);
    delete tls;
}

extern "C" VANTLOW_EXPORT int SSL_Connect(VantlowTls* tls, VantlowTlsFacts* facts) {
    if (tls->failed) return tls->failure;
    try {
        if (const int result = shake_hands(*tls); result != VANTLOW_TLS_OK) return result;
        if (const int result = check_version(*tls); result != VANTLOW_TLS_OK) return result;
        if (const int result = check_certificate(*tls); result != VANTLOW_TLS_OK) return result;
        const SECURITY_STATUS status =
            QueryContextAttributesW(&tls->context, SECPKG_ATTR_STREAM_SIZES, &tls->sizes);
        if (status != SEC_E_OK || tls->sizes.cbMaximumMessage == 0) return fail_in_handshake(*tls, status);
        if (facts != nullptr) tell(*tls, *facts);
        tls->connected = true;
        return VANTLOW_TLS_OK;
    } catch (...) {
        return tls->fail(VANTLOW_TLS_BROKEN, "Not enough memory.");
    }
}

extern "C" VANTLOW_EXPORT ptrdiff_t SSL_Recv(VantlowTls* tls, void* into, size_t size) {
    if (tls->failed) return tls->failure;
    try {
        return receive(*tls, static_cast<char*>(into), size);
    } catch (...) {
        return tls->fail(VANTLOW_TLS_BROKEN, "Not enough memory.");
    }
}

extern "C" VANTLOW_EXPORT int SSL_Send(VantlowTls* tls, const void* from, size_t size) {
    if (tls->failed) return tls->failure;
    try {
        return transmit(*tls, static_cast<const char*>(from), size);
    } catch (...) {
        return tls->fail(VANTLOW_TLS_BROKEN, "Not enough memory.");
    }
}
