// TLS over SChannel: the parts that the files of this folder share.
#pragma once

// clang-format off
#include <winsock2.h>
#include <windows.h>
#include <ws2tcpip.h>
#include <wincrypt.h>
// clang-format on
#define SECURITY_WIN32
#include <sspi.h>

#include <functional>
#include <future>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "base/mutex.h"
#include "runtime/operations.h"
#include "runtime/secur/tls_state.h"

namespace vantlow::secur {

/// SChannel's credentials: it keeps sessions by them and the server's name, so connections that may resume
/// each other's sessions share one.
class Credentials {
  public:
    Credentials() = default;
    Credentials(const Credentials&) = delete;
    Credentials& operator=(const Credentials&) = delete;
    ~Credentials();
    SECURITY_STATUS acquire() noexcept;
    [[nodiscard]] CredHandle* handle() noexcept { return &handle_; }

  private:
    CredHandle handle_{};
    bool acquired_ = false;
};

/// A store of certificates in memory, closed with the object.
class CertificateStore {
  public:
    CertificateStore() = default;
    CertificateStore(const CertificateStore&) = delete;
    CertificateStore& operator=(const CertificateStore&) = delete;
    ~CertificateStore();
    [[nodiscard]] HCERTSTORE handle() const noexcept { return handle_; }
    /// Opens the store and adds the certificates of a PEM or DER text; false when there is none.
    bool fill(std::string_view text);
    /// Opens the store as a view of both.
    bool join(HCERTSTORE one, HCERTSTORE other) noexcept;
    [[nodiscard]] bool has(const CERT_CONTEXT* certificate) const noexcept;

  private:
    HCERTSTORE handle_ = nullptr;
};

/// Runs work of the system that cannot be interrupted, off the threads that must be able to stop. The
/// destructor waits for work that was left behind.
class Errands {
  public:
    /// Runs the work; false when `interrupted` came before its end.
    bool run(std::function<void()> work, const std::function<bool()>& interrupted);

  private:
    Mutex mutex_;
    std::vector<std::future<void>> left_behind_ VANTLOW_GUARDED_BY(mutex_);
};

struct Verdict {
    std::string fault;       ///< the sentence about the certificate; empty: nothing is wrong
    bool unfounded = false;  ///< no issuer known here vouches for it: fetch_issuers() may mend that
};

/// Judges the certificate that a server showed, with what this machine knows. `roots`: the trusted
/// certificates; null: those that the system trusts.
Verdict judge(const CERT_CONTEXT* certificate, const std::string& host, const CertificateStore* roots);

/// Has the system look in the network for the certificates that are missing between this one and a root, and
/// for the root itself where the system gets its roots one by one. Takes seconds.
void fetch_issuers(const CERT_CONTEXT* certificate) noexcept;

std::wstring to_wide(std::string_view utf8);
std::string from_wide(std::wstring_view wide);
/// The system's sentence for a status.
std::string status_words(SECURITY_STATUS status);

}  // namespace vantlow::secur

struct VantlowTlsEngine {
    std::unique_ptr<vantlow::secur::CertificateStore> roots;  ///< null: the system's
    vantlow::secur::Errands errands;
    vantlow::Mutex mutex;
    std::map<std::string, std::shared_ptr<vantlow::secur::Credentials>> credentials VANTLOW_GUARDED_BY(mutex);
};

struct VantlowTls : vantlow::secur::TlsState {
    std::wstring target;
    std::string protocol;
    bool end_without_notice = false;

    std::shared_ptr<vantlow::secur::Credentials> credentials;
    CtxtHandle context{};
    bool has_context = false;
    bool connected = false;
    bool ended = false;  ///< by the server's close_notify
    SecPkgContext_StreamSizes sizes{};

    // The bytes that were received: decrypted bytes for the caller, then bytes that are still encrypted.
    std::vector<char> buffer;
    size_t plain_at = 0;
    size_t plain_size = 0;
    size_t raw_at = 0;
    size_t raw_end = 0;
    std::vector<char> outgoing;
};
