// Certificates by OpenSSL.
#include "app/rpc/certificate.h"

#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <array>
#include <memory>

#include "platform/socket.h"

namespace vantlow {
namespace {

constexpr long day = 24L * 60 * 60;
constexpr long validity = 3650 * day;

template <auto Free>
struct Freeing {
    template <class T>
    void operator()(T* what) const {
        Free(what);
    }
};
using Key = std::unique_ptr<EVP_PKEY, Freeing<EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, Freeing<X509_free>>;
using Extension = std::unique_ptr<X509_EXTENSION, Freeing<X509_EXTENSION_free>>;
using Memory = std::unique_ptr<BIO, Freeing<BIO_free>>;

// The names that a certificate holds for, as the library reads them. A name with other characters than names
// have is left out.
std::string alternatives(const std::vector<std::string>& names) {
    constexpr std::string_view allowed = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789.-:";
    std::string all = "DNS:localhost,IP:127.0.0.1,IP:0:0:0:0:0:0:0:1";
    for (const std::string& name : names) {
        if (name.empty() || name.find_first_not_of(allowed) != std::string::npos) continue;
        const bool is_address = SocketAddress::from_literal(name, 0).has_value();
        if (is_address || name.find(':') == std::string::npos) all += (is_address ? ",IP:" : ",DNS:") + name;
    }
    return all;
}

bool add_extension(X509& certificate, int kind, const std::string& value) {
    X509V3_CTX context{};
    X509V3_set_ctx(&context, &certificate, &certificate, nullptr, nullptr, 0);
    const Extension extension(X509V3_EXT_conf_nid(nullptr, &context, kind, value.c_str()));
    return extension && X509_add_ext(&certificate, extension.get(), -1) == 1;
}

bool set_serial(X509& certificate) {
    std::array<unsigned char, 16> bytes{};
    if (RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1) return false;
    bytes[0] &= 0x7FU;  // positive
    const std::unique_ptr<BIGNUM, Freeing<BN_free>> number(
        BN_bin2bn(bytes.data(), static_cast<int>(bytes.size()), nullptr));
    return number && BN_to_ASN1_INTEGER(number.get(), X509_get_serialNumber(&certificate)) != nullptr;
}

bool set_subject(X509& certificate) {
    constexpr std::string_view name = "Vantlow";
    X509_NAME* const subject = X509_get_subject_name(&certificate);
    return X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_UTF8,
                                      reinterpret_cast<const unsigned char*>(name.data()),
                                      static_cast<int>(name.size()), -1, 0) == 1 &&
           X509_set_issuer_name(&certificate, subject) == 1;
}

bool fill(X509& certificate, EVP_PKEY& key, const std::vector<std::string>& names) {
    return X509_set_version(&certificate, X509_VERSION_3) == 1 && set_serial(certificate) &&
           X509_gmtime_adj(X509_getm_notBefore(&certificate), -day) != nullptr &&
           X509_gmtime_adj(X509_getm_notAfter(&certificate), validity) != nullptr &&
           X509_set_pubkey(&certificate, &key) == 1 && set_subject(certificate) &&
           add_extension(certificate, NID_basic_constraints, "critical,CA:FALSE") &&
           add_extension(certificate, NID_ext_key_usage, "serverAuth") &&
           add_extension(certificate, NID_subject_alt_name, alternatives(names)) &&
           X509_sign(&certificate, &key, EVP_sha256()) > 0;
}

std::string text_of(BIO& memory) {
    char* text = nullptr;
    const long size = BIO_ctrl(&memory, BIO_CTRL_INFO, 0, &text);
    return size > 0 ? std::string(text, static_cast<std::size_t>(size)) : std::string();
}

}  // namespace

Outcome<ControlCertificate> make_certificate(const std::vector<std::string>& names) {
    const Result failure(Code::unsupported, "A certificate for the control API cannot be made.");
    const Key key(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
    const Certificate certificate(X509_new());
    const Memory chain(BIO_new(BIO_s_mem()));
    const Memory secret(BIO_new(BIO_s_mem()));
    if (!key || !certificate || !chain || !secret || !fill(*certificate, *key, names)) return failure;
    if (PEM_write_bio_X509(chain.get(), certificate.get()) != 1) return failure;
    if (PEM_write_bio_PrivateKey(secret.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr) != 1)
        return failure;
    return ControlCertificate{text_of(*chain), text_of(*secret)};
}

}  // namespace vantlow
