// Trust: the roots, and the sentence about a certificate that is not trusted.
#include <openssl/err.h>
#include <openssl/ocsp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <array>
#include <climits>
#include <ctime>

#include "runtime/secur/posix/tls.h"

namespace vantlow::secur {
namespace {

using Certificate = Owned<X509, X509_free>;
using Bio = Owned<BIO, BIO_free_all>;

std::string day_of(const ASN1_TIME* time) {
    std::tm parts{};
    std::array<char, 16> text{};
    if (time == nullptr || ASN1_TIME_to_tm(time, &parts) != 1) return {};
    std::strftime(text.data(), text.size(), "%Y-%m-%d", &parts);
    return text.data();
}

std::string common_name(const X509_NAME* name) {
    const int at = X509_NAME_get_index_by_NID(name, NID_commonName, -1);
    if (at < 0) {
        std::array<char, 200> line{};
        X509_NAME_oneline(name, line.data(), static_cast<int>(line.size()));
        return line.data();
    }
    unsigned char* utf8 = nullptr;
    const int size = ASN1_STRING_to_UTF8(&utf8, X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, at)));
    if (size < 0) return {};
    std::string text(reinterpret_cast<const char*>(utf8), static_cast<std::size_t>(size));
    OPENSSL_free(utf8);
    return text;
}

// The first names that a certificate is for.
std::string names_of(X509* certificate) {
    constexpr int most = 3;
    const Owned<GENERAL_NAMES, GENERAL_NAMES_free> names(
        static_cast<GENERAL_NAMES*>(X509_get_ext_d2i(certificate, NID_subject_alt_name, nullptr, nullptr)));
    std::string list;
    int told = 0;
    for (int i = 0; i < sk_GENERAL_NAME_num(names.get()) && told < most; ++i) {
        const GENERAL_NAME* const name = sk_GENERAL_NAME_value(names.get(), i);
        if (name->type != GEN_DNS) continue;
        const auto* const text = reinterpret_cast<const char*>(ASN1_STRING_get0_data(name->d.dNSName));
        list += told++ == 0 ? "" : ", ";
        list.append(text, static_cast<std::size_t>(ASN1_STRING_length(name->d.dNSName)));
    }
    return list.empty() ? common_name(X509_get_subject_name(certificate)) : list;
}

bool is_pem(std::string_view text) {
    return text.find("-----BEGIN") != std::string_view::npos;
}

std::size_t add_pem(X509_STORE* store, std::string_view text) {
    const Bio bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
    std::size_t count = 0;
    while (const Certificate certificate{PEM_read_bio_X509_AUX(bio.get(), nullptr, nullptr, nullptr)}) {
        if (X509_STORE_add_cert(store, certificate.get()) == 1) ++count;
    }
    return count;
}

// True when a stapled answer with a good signature says that the certificate is revoked; any other answer
// counts as none.
bool is_revoked(SSL* ssl, std::string& day) {
    const unsigned char* der = nullptr;
    const long size = SSL_get_tlsext_status_ocsp_resp(ssl, &der);
    STACK_OF(X509)* const chain = SSL_get0_verified_chain(ssl);
    if (der == nullptr || size <= 0 || sk_X509_num(chain) < 2) return false;
    const Owned<OCSP_RESPONSE, OCSP_RESPONSE_free> response(d2i_OCSP_RESPONSE(nullptr, &der, size));
    if (!response || OCSP_response_status(response.get()) != OCSP_RESPONSE_STATUS_SUCCESSFUL) return false;
    const Owned<OCSP_BASICRESP, OCSP_BASICRESP_free> basic(OCSP_response_get1_basic(response.get()));
    X509_STORE* const store = SSL_CTX_get_cert_store(SSL_get_SSL_CTX(ssl));
    if (!basic || OCSP_basic_verify(basic.get(), chain, store, 0) != 1) return false;
    // The answerer chooses the digest by which its answer names the certificate, so each entry is compared by
    // its own digest.
    for (int i = 0; i < OCSP_resp_count(basic.get()); ++i) {
        OCSP_SINGLERESP* const single = OCSP_resp_get0(basic.get(), i);
        const auto* const named = OCSP_SINGLERESP_get0_id(single);
        ASN1_OBJECT* digest = nullptr;
        OCSP_id_get0_info(nullptr, &digest, nullptr, nullptr, const_cast<OCSP_CERTID*>(named));
        const Owned<OCSP_CERTID, OCSP_CERTID_free> ours(
            OCSP_cert_to_id(EVP_get_digestbyobj(digest), sk_X509_value(chain, 0), sk_X509_value(chain, 1)));
        if (!ours || OCSP_id_cmp(ours.get(), named) != 0) continue;
        ASN1_GENERALIZEDTIME* since = nullptr;
        if (OCSP_single_get0_status(single, nullptr, &since, nullptr, nullptr) != V_OCSP_CERTSTATUS_REVOKED)
            continue;
        day = day_of(since);
        return true;
    }
    return false;
}

// OpenSSL calls this after the chain was verified; 0 ends the handshake.
int look_at_stapled(SSL* ssl, void* /*context*/) noexcept {
    VantlowTls& tls = *tls_of(ssl);
    if (!tls.verify) return 1;
    try {
        std::string day;
        if (is_revoked(ssl, day)) tls.fault = certificate_sentence(CertificateFault::revoked, tls.host, day);
    } catch (...) {
        return 0;
    }
    ERR_clear_error();
    return tls.fault.empty() ? 1 : 0;
}

CertificateFault fault_from(long code) {
    switch (code) {
        case X509_V_ERR_CERT_HAS_EXPIRED:
            return CertificateFault::expired;
        case X509_V_ERR_CERT_NOT_YET_VALID:
            return CertificateFault::not_yet_valid;
        case X509_V_ERR_HOSTNAME_MISMATCH:
        case X509_V_ERR_IP_ADDRESS_MISMATCH:
            return CertificateFault::wrong_host;
        case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
            return CertificateFault::self_signed;
        case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
        case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
        case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
        case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
        case X509_V_ERR_CERT_UNTRUSTED:
            return CertificateFault::unknown_authority;
        case X509_V_ERR_CERT_REVOKED:
            return CertificateFault::revoked;
        case X509_V_ERR_INVALID_PURPOSE:
        case X509_V_ERR_CERT_REJECTED:
            return CertificateFault::wrong_use;
        case X509_V_ERR_EE_KEY_TOO_SMALL:
        case X509_V_ERR_CA_KEY_TOO_SMALL:
        case X509_V_ERR_CA_MD_TOO_WEAK:
            return CertificateFault::weak;
        default:
            return CertificateFault::other;
    }
}

std::string fault_sentence(X509_STORE_CTX* check, const std::string& host) {
    const int code = X509_STORE_CTX_get_error(check);
    X509* const certificate = X509_STORE_CTX_get0_cert(check);
    CertificateFault fault = fault_from(code);
    const bool is_issuers = X509_STORE_CTX_get_error_depth(check) > 0;
    if (is_issuers && fault != CertificateFault::unknown_authority) {
        const std::string issuer = common_name(X509_get_subject_name(X509_STORE_CTX_get_current_cert(check)));
        return certificate_sentence(CertificateFault::other, host,
                                    std::string(X509_verify_cert_error_string(code)) + " (" + issuer + ")");
    }
    switch (fault) {
        case CertificateFault::expired:
            return certificate_sentence(fault, host, day_of(X509_get0_notAfter(certificate)));
        case CertificateFault::not_yet_valid:
            return certificate_sentence(fault, host, day_of(X509_get0_notBefore(certificate)));
        case CertificateFault::wrong_host:
            return certificate_sentence(fault, host, names_of(certificate));
        case CertificateFault::unknown_authority:
            return certificate_sentence(fault, host, common_name(X509_get_issuer_name(certificate)));
        case CertificateFault::weak:
        case CertificateFault::other:
            return certificate_sentence(fault, host, X509_verify_cert_error_string(code));
        default:
            return certificate_sentence(fault, host, {});
    }
}

}  // namespace

bool trust_certificates(SSL_CTX* context, const void* roots, std::size_t size, std::string& error) {
    const std::string_view text(static_cast<const char*>(roots), size);
    X509_STORE* const store = SSL_CTX_get_cert_store(context);
    std::size_t count = 0;
    if (size > static_cast<std::size_t>(INT_MAX)) {
        error = "It is too large.";
        return false;
    }
    if (is_pem(text)) {
        count = add_pem(store, text);
    } else {
        const auto* der = static_cast<const unsigned char*>(roots);
        const Certificate certificate(d2i_X509(nullptr, &der, static_cast<long>(size)));
        if (certificate && X509_STORE_add_cert(store, certificate.get()) == 1) count = 1;
    }
    ERR_clear_error();
    if (count == 0) error = "It holds no certificate in PEM or DER form.";
    // A certificate that the person named is trusted, be it a root or not.
    X509_STORE_set_flags(store, X509_V_FLAG_PARTIAL_CHAIN);
    return count > 0;
}

void install_checks(SSL_CTX* context) noexcept {
    SSL_CTX_set_tlsext_status_type(context, TLSEXT_STATUSTYPE_ocsp);
    // SSL_CTX_set_tlsext_status_cb() without its cast.
    SSL_CTX_callback_ctrl(context, SSL_CTRL_SET_TLSEXT_STATUS_REQ_CB,
                          reinterpret_cast<void (*)()>(look_at_stapled));
}

int keep_fault(int well, X509_STORE_CTX* check) noexcept {
    if (well != 0) return well;
    const int index = SSL_get_ex_data_X509_STORE_CTX_idx();
    VantlowTls& tls = *tls_of(static_cast<SSL*>(X509_STORE_CTX_get_ex_data(check, index)));
    try {
        tls.fault = fault_sentence(check, tls.host);
    } catch (...) {
        tls.fault.clear();
    }
    return 0;
}

}  // namespace vantlow::secur
