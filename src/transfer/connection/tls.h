// The means to make connections secret: a plan for each, and the library with all that it trusts and
// remembers.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "base/mutex.h"
#include "base/result.h"
#include "platform/file_marks.h"
#include "runtime/tables.h"

namespace vantlow {

/// How a connection is secured, as far as this folder needs to know it.
struct TlsPlan {
    bool verify = true;      ///< the certificate must be trusted and be for the host
    std::u16string ca_file;  ///< certificates to trust (PEM, or one in DER); empty: those of the system
    std::string protocol;    ///< offered by ALPN: "http/1.1"; empty: none
    /// Whose certificate is wanted; empty: that of the host that the connection is opened to.
    std::string host;
    /// Connections with the same text (and host and trust) resume each other's sessions: those of one FTP
    /// session, say. Empty: all to the same host and port.
    std::string session_key;
    /// The end of the connection counts as TLS's own end: only where something else tells that all bytes
    /// came.
    bool end_without_notice = false;
};

/// The TLS library together with what it trusts and the sessions that it keeps, one engine a CA file.
/// Outlives every connection. Any thread may call.
class TlsEngines {
  public:
    using Engine = std::shared_ptr<VantlowTlsEngine>;

    /// Without a library (null, or one that lacks an operation) TLS is not to be had.
    explicit TlsEngines(const SecurTable* library = nullptr) : library_(library) {}
    TlsEngines(const TlsEngines&) = delete;
    TlsEngines& operator=(const TlsEngines&) = delete;

    [[nodiscard]] bool available() const noexcept;
    /// The engine for a CA file, read anew when the file changes; `unsupported` when there is no library,
    /// `not_trusted` when the file holds no certificates.
    Outcome<Engine> engine(const std::u16string& ca_file);
    [[nodiscard]] const SecurTable& library() const noexcept { return *library_; }

  private:
    struct Known {
        FileStamp stamp;
        Engine engine;
    };
    Outcome<Engine> make(const std::u16string& ca_file) const;

    const SecurTable* library_;
    Mutex mutex_;
    std::map<std::u16string, Known> engines_ VANTLOW_GUARDED_BY(mutex_);  ///< by CA file
};

}  // namespace vantlow
