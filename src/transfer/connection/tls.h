// The stage that makes a connection secret: TLS over whatever lies below.
#pragma once

#include <array>
#include <map>
#include <memory>
#include <string>

#include "base/log.h"
#include "base/mutex.h"
#include "platform/file_marks.h"
#include "runtime/tables.h"
#include "transfer/connection/stream.h"

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

/// TLS (RFC 8446, RFC 5246) as a client. Used by one thread at a time; the stop may come from any.
class TlsStream : public ByteStream {
  public:
    /// A client on `below`, which outlives it. `host` and `session_key` must be filled in the plan.
    TlsStream(TlsEngines& engines, TlsEngines::Engine engine, const TlsPlan& plan, ByteStream& below);
    /// Tells the server where the connection still stands.
    ~TlsStream() override;

    /// Whose stop ends operations, and who is told what went wrong; null: nobody.
    void attach(const StopSource* stop, LogSink* log) noexcept;

    /// Shakes hands before `until`: `not_trusted` and why, `server_error` when the two sides have nothing in
    /// common, `transient`, or the stop's reason.
    Result connect(Clock::time_point until);
    Moved read(std::span<std::byte> into, Clock::time_point until) override;
    Result write(std::span<const std::byte> from, Clock::time_point until) override;

    /// An earlier session went on: nothing was negotiated anew.
    [[nodiscard]] bool is_resumed() const noexcept { return resumed_; }
    /// True while the peer neither ended the connection nor sent anything for the caller.
    [[nodiscard]] bool is_quiet() noexcept;

  private:
    static ptrdiff_t receive_below(void* self, void* into, std::size_t size) noexcept;
    static int send_below(void* self, const void* from, std::size_t size) noexcept;
    int failed_below(Code code, int system_error) noexcept;
    [[nodiscard]] Result result_of(ptrdiff_t answer) const;

    const SecurTable& library_;
    TlsEngines::Engine engine_;
    ByteStream& below_;
    const StopSource* stop_ = nullptr;
    LogSink* log_ = nullptr;
    Clock::time_point until_{};
    Code below_code_ = Code::ok;  ///< why the stage below failed
    int below_error_ = 0;
    std::array<char, 400> text_{};  ///< the library's sentence
    VantlowTls* tls_ = nullptr;     ///< null without memory
    bool resumed_ = false;
};

}  // namespace vantlow
