// Trust: the roots, and the sentence about a certificate that is not trusted.
#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>

#include "runtime/secur/win32/tls.h"

// clang-format off
#include <wininet.h>
// clang-format on

namespace vantlow::secur {
namespace {

constexpr DWORD encodings = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

std::string day_of(const FILETIME& time) {
    SYSTEMTIME parts{};
    if (FileTimeToSystemTime(&time, &parts) == 0) return {};
    const auto digits = [](unsigned number, std::size_t width) {
        std::string text = std::to_string(number);
        return std::string(width - std::min(width, text.size()), '0') + text;
    };
    return digits(parts.wYear, 4) + "-" + digits(parts.wMonth, 2) + "-" + digits(parts.wDay, 2);
}

std::string name_of(const CERT_CONTEXT* certificate, DWORD type, DWORD flags) {
    std::array<wchar_t, 256> text{};
    CertGetNameStringW(certificate, type, flags, nullptr, text.data(), static_cast<DWORD>(text.size()));
    return from_wide(text.data());
}

// The bytes of an IPv4 or IPv6 literal in network order; empty for names.
std::vector<BYTE> literal_bytes(const std::string& host) {
    std::vector<BYTE> bytes(sizeof(in6_addr));
    if (inet_pton(AF_INET6, host.c_str(), bytes.data()) == 1) return bytes;
    bytes.resize(sizeof(in_addr));
    if (inet_pton(AF_INET, host.c_str(), bytes.data()) == 1) return bytes;
    return {};
}

// The system's check of names knows no addresses.
bool is_for_address(const CERT_CONTEXT* certificate, const std::vector<BYTE>& address) {
    const CERT_EXTENSION* const extension = CertFindExtension(
        szOID_SUBJECT_ALT_NAME2, certificate->pCertInfo->cExtension, certificate->pCertInfo->rgExtension);
    if (extension == nullptr) return false;
    CERT_ALT_NAME_INFO* names = nullptr;
    DWORD size = 0;
    if (CryptDecodeObjectEx(encodings, X509_ALTERNATE_NAME, extension->Value.pbData, extension->Value.cbData,
                            CRYPT_DECODE_ALLOC_FLAG, nullptr, static_cast<void*>(&names), &size) == 0)
        return false;
    bool found = false;
    for (DWORD i = 0; i < names->cAltEntry && !found; ++i) {
        const CERT_ALT_NAME_ENTRY& entry = names->rgAltEntry[i];
        found = entry.dwAltNameChoice == CERT_ALT_NAME_IP_ADDRESS &&
                entry.IPAddress.cbData == address.size() &&
                std::memcmp(entry.IPAddress.pbData, address.data(), address.size()) == 0;
    }
    LocalFree(names);
    return found;
}

class Chain {
  public:
    static constexpr DWORD with_what_is_here =
        CERT_CHAIN_CACHE_END_CERT | CERT_CHAIN_REVOCATION_CHECK_END_CERT |
        CERT_CHAIN_REVOCATION_CHECK_CACHE_ONLY |
        CERT_CHAIN_CACHE_ONLY_URL_RETRIEVAL;  // a stapled answer lies beside the certificate
    static constexpr DWORD with_the_network = CERT_CHAIN_CACHE_END_CERT;

    Chain(const CERT_CONTEXT* certificate, HCERTSTORE more, DWORD flags) {
        CERT_CHAIN_PARA wanted{};
        std::array<char, 32> server_use{};
        std::strncpy(server_use.data(), szOID_PKIX_KP_SERVER_AUTH, server_use.size() - 1);
        std::array<char*, 1> uses{server_use.data()};
        wanted.cbSize = sizeof wanted;
        wanted.RequestedUsage.dwType = USAGE_MATCH_TYPE_OR;
        wanted.RequestedUsage.Usage.cUsageIdentifier = 1;
        wanted.RequestedUsage.Usage.rgpszUsageIdentifier = uses.data();
        if (CertGetCertificateChain(nullptr, certificate, nullptr, more, &wanted, flags, nullptr, &chain_) ==
            0)
            chain_ = nullptr;
    }
    Chain(const Chain&) = delete;
    Chain& operator=(const Chain&) = delete;
    ~Chain() {
        if (chain_ != nullptr) CertFreeCertificateChain(chain_);
    }
    [[nodiscard]] const CERT_CHAIN_CONTEXT* get() const noexcept { return chain_; }
    [[nodiscard]] bool is_empty() const noexcept {
        return chain_ == nullptr || chain_->cChain == 0 || chain_->rgpChain[0]->cElement == 0;
    }
    [[nodiscard]] DWORD errors() const noexcept { return chain_->TrustStatus.dwErrorStatus; }
    [[nodiscard]] bool is_unfounded() const noexcept {
        return (errors() & (CERT_TRUST_IS_UNTRUSTED_ROOT | CERT_TRUST_IS_PARTIAL_CHAIN)) != 0;
    }
    [[nodiscard]] bool is_alone() const noexcept { return chain_->rgpChain[0]->cElement == 1; }
    [[nodiscard]] bool holds_one_of(const CertificateStore& store) const noexcept {
        const CERT_SIMPLE_CHAIN& simple = *chain_->rgpChain[0];
        for (DWORD i = 0; i < simple.cElement; ++i) {
            if (store.has(simple.rgpElement[i]->pCertContext)) return true;
        }
        return false;
    }

  private:
    const CERT_CHAIN_CONTEXT* chain_ = nullptr;
};

std::string time_fault(const CERT_CONTEXT* certificate, const std::string& host) {
    const CERT_INFO& info = *certificate->pCertInfo;
    const LONG when = CertVerifyTimeValidity(nullptr, certificate->pCertInfo);
    if (when > 0) return certificate_sentence(CertificateFault::expired, host, day_of(info.NotAfter));
    if (when < 0) return certificate_sentence(CertificateFault::not_yet_valid, host, day_of(info.NotBefore));
    return certificate_sentence(CertificateFault::other, host, "an issuer's certificate is not valid now");
}

bool is_self_signed(const CERT_CONTEXT* certificate) noexcept {
    CERT_INFO& info = *certificate->pCertInfo;
    return CertCompareCertificateName(encodings, &info.Subject, &info.Issuer) != 0;
}

std::string chain_fault(const Chain& chain, const CERT_CONTEXT* certificate, const std::string& host,
                        const CertificateStore* roots) {
    if (chain.is_empty())
        return certificate_sentence(CertificateFault::other, host, "its chain cannot be built");
    const DWORD errors = chain.errors();
    if ((errors & CERT_TRUST_IS_REVOKED) != 0)
        return certificate_sentence(CertificateFault::revoked, host, {});
    // Certificates that the person named are trusted and no others are, be they roots or not.
    const bool trusted = roots == nullptr ? !chain.is_unfounded() : chain.holds_one_of(*roots);
    if (!trusted && chain.is_alone() && is_self_signed(certificate))
        return certificate_sentence(CertificateFault::self_signed, host, {});
    if (!trusted) {
        return certificate_sentence(
            CertificateFault::unknown_authority, host,
            name_of(certificate, CERT_NAME_SIMPLE_DISPLAY_TYPE, CERT_NAME_ISSUER_FLAG));
    }
    if ((errors & CERT_TRUST_IS_NOT_TIME_VALID) != 0) return time_fault(certificate, host);
    if ((errors & CERT_TRUST_IS_NOT_VALID_FOR_USAGE) != 0)
        return certificate_sentence(CertificateFault::wrong_use, host, {});
    if ((errors & CERT_TRUST_HAS_WEAK_SIGNATURE) != 0)
        return certificate_sentence(CertificateFault::weak, host, "its signature");
    if ((errors & CERT_TRUST_IS_NOT_SIGNATURE_VALID) != 0)
        return certificate_sentence(CertificateFault::other, host, "a signature in its chain is wrong");
    return {};
}

// Checks the rest: the name, and rules of the system that chain_fault() does not know.
std::string policy_fault(const Chain& chain, const CERT_CONTEXT* certificate, const std::string& host,
                         bool own_roots) {
    const std::vector<BYTE> address = literal_bytes(host);
    const auto wrong_host = [&] {
        return certificate_sentence(CertificateFault::wrong_host, host,
                                    name_of(certificate, CERT_NAME_DNS_TYPE, 0));
    };
    if (!address.empty() && !is_for_address(certificate, address)) return wrong_host();
    std::wstring name = to_wide(host);
    SSL_EXTRA_CERT_CHAIN_POLICY_PARA ssl{};
    ssl.cbSize = sizeof ssl;
    ssl.dwAuthType = AUTHTYPE_SERVER;
    ssl.pwszServerName = name.data();
    ssl.fdwChecks = SECURITY_FLAG_IGNORE_REVOCATION;
    if (own_roots) ssl.fdwChecks |= SECURITY_FLAG_IGNORE_UNKNOWN_CA;
    if (!address.empty()) ssl.fdwChecks |= SECURITY_FLAG_IGNORE_CERT_CN_INVALID;
    CERT_CHAIN_POLICY_PARA wanted{};
    wanted.cbSize = sizeof wanted;
    wanted.pvExtraPolicyPara = &ssl;
    wanted.dwFlags = CERT_CHAIN_POLICY_IGNORE_ALL_REV_UNKNOWN_FLAGS;
    if (own_roots) wanted.dwFlags |= CERT_CHAIN_POLICY_ALLOW_UNKNOWN_CA_FLAG;
    CERT_CHAIN_POLICY_STATUS status{};
    status.cbSize = sizeof status;
    if (CertVerifyCertificateChainPolicy(CERT_CHAIN_POLICY_SSL, chain.get(), &wanted, &status) == 0)
        return certificate_sentence(CertificateFault::other, host, "it cannot be checked");
    const auto error = static_cast<HRESULT>(status.dwError);
    if (error == S_OK) return {};
    if (error == CERT_E_CN_NO_MATCH) return wrong_host();
    // The chain ends at a certificate that is trusted without being a root.
    if (own_roots && (error == CERT_E_CHAINING || error == CERT_E_UNTRUSTEDROOT)) return {};
    return certificate_sentence(CertificateFault::other, host, status_words(error));
}

}  // namespace

CertificateStore::~CertificateStore() {
    if (handle_ != nullptr) CertCloseStore(handle_, 0);
}

bool CertificateStore::fill(std::string_view text) {
    constexpr std::string_view begin = "-----BEGIN ";
    constexpr std::string_view end = "-----END ";
    handle_ = CertOpenStore(CERT_STORE_PROV_MEMORY, 0, 0, 0, nullptr);
    if (handle_ == nullptr) return false;
    bool any = false;
    const auto add = [&](const BYTE* der, DWORD size) {
        any = CertAddEncodedCertificateToStore(handle_, X509_ASN_ENCODING, der, size, CERT_STORE_ADD_ALWAYS,
                                               nullptr) != 0 ||
              any;
    };
    if (text.find(begin) == std::string_view::npos) {
        add(reinterpret_cast<const BYTE*>(text.data()), static_cast<DWORD>(text.size()));
        return any;
    }
    for (std::size_t at = text.find(begin); at != std::string_view::npos; at = text.find(begin, at + 1)) {
        const std::size_t line_end = text.find('\n', text.find(end, at));
        const std::string block(text.substr(at, line_end - at));
        if (!block.starts_with("-----BEGIN CERTIFICATE") && !block.starts_with("-----BEGIN TRUSTED"))
            continue;
        DWORD size = 0;
        const auto length = static_cast<DWORD>(block.size());
        if (CryptStringToBinaryA(block.c_str(), length, CRYPT_STRING_BASE64HEADER, nullptr, &size, nullptr,
                                 nullptr) == 0)
            continue;
        std::vector<BYTE> der(size);
        if (CryptStringToBinaryA(block.c_str(), length, CRYPT_STRING_BASE64HEADER, der.data(), &size, nullptr,
                                 nullptr) != 0)
            add(der.data(), size);
    }
    return any;
}

bool CertificateStore::join(HCERTSTORE one, HCERTSTORE other) noexcept {
    handle_ = CertOpenStore(CERT_STORE_PROV_COLLECTION, 0, 0, 0, nullptr);
    if (handle_ == nullptr) return false;
    return (one == nullptr || CertAddStoreToCollection(handle_, one, 0, 0) != 0) &&
           (other == nullptr || CertAddStoreToCollection(handle_, other, 0, 0) != 0);
}

bool CertificateStore::has(const CERT_CONTEXT* certificate) const noexcept {
    const CERT_CONTEXT* const found =
        CertFindCertificateInStore(handle_, encodings, 0, CERT_FIND_EXISTING, certificate, nullptr);
    if (found == nullptr) return false;
    CertFreeCertificateContext(found);
    return true;
}

Verdict judge(const CERT_CONTEXT* certificate, const std::string& host, const CertificateStore* roots) {
    CertificateStore all;
    if (!all.join(certificate->hCertStore, roots != nullptr ? roots->handle() : nullptr))
        return {certificate_sentence(CertificateFault::other, host, "it cannot be checked")};
    const Chain chain(certificate, all.handle(), Chain::with_what_is_here);
    std::string fault = chain_fault(chain, certificate, host, roots);
    if (fault.empty()) fault = policy_fault(chain, certificate, host, roots != nullptr);
    const bool unfounded = !chain.is_empty() && chain.is_unfounded();
    return {fault, !fault.empty() && unfounded};
}

void fetch_issuers(const CERT_CONTEXT* certificate) noexcept {
    const Chain chain(certificate, certificate->hCertStore, Chain::with_the_network);
}

bool Errands::run(std::function<void()> work, const std::function<bool()>& interrupted) {
    constexpr std::chrono::milliseconds step{50};
    std::future<void> done;
    try {
        done = std::async(std::launch::async, std::move(work));
    } catch (const std::system_error&) {
        return true;  // no thread is left for it, so the issuers that are here must do
    }
    while (done.wait_for(step) != std::future_status::ready) {
        if (!interrupted()) continue;
        const MutexLock guard(mutex_);
        left_behind_.push_back(std::move(done));
        return false;
    }
    return true;
}

}  // namespace vantlow::secur
