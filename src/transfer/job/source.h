// One connection's protocol side, and the table that says which protocol an address means.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "transfer/http/errand.h"
#include "transfer/job/host_keys.h"
#include "transfer/job/version_rule.h"

namespace vantlow {

/// How FTP is spoken.
struct FtpRules {
    bool features = true;           ///< ask for the server's features
    bool passive = true;            ///< the server waits for data connections
    bool follows_pasv = false;      ///< at whatever public address it names
    bool trace_listings = true;     ///< listings go to the log whole
    std::u16string mapped_address;  ///< IPv4, announced in PORT; empty: the local address
    std::u16string binary_types;    ///< ".EXE;.ZIP": never as text
    std::u16string client_version;
};

class ProxyRules;

/// A job's wish to one connection, with the settings as they are at this moment: `address` is the
/// job's, or where it was redirected to, `origin` the job's own.
struct SourcePlan : FetchPlan {
    std::shared_ptr<const ProxyRules> proxy_rules;  ///< for where redirects lead; null: `proxy` for all
    std::chrono::milliseconds silence{
        30000};                 ///< without a byte of the body: the connection counts as broken
    bool only_version = false;  ///< its version is asked for once more, and no byte of it, where that can be
    HttpWishes http;
    FtpRules ftp;
    SshRules ssh;
    std::size_t ssh_buffer = 256 * 1024;  ///< bytes that SSH receives at once
    bool facts_only = false;  ///< the server is asked what it has before anything is wanted: no byte
};

/// A conversation about one resource over one connection, whose bytes it gives; `closed` at the end of what
/// the server gives. Owned and used by one thread; destroying it ends the connection.
class Source : public ByteSource {
  public:
    /// Connects and asks for the bytes from `offset` on. `moved` when the server redirects to an address of
    /// another protocol, which the answer then holds.
    virtual Result open(const SourcePlan& plan, std::int64_t offset, SourceAnswer& answer) = 0;
    /// Ends the conversation; keeps the connection for reuse where that is possible.
    virtual void close() = 0;
    /// The time that a busy server asked to wait, after open() failed; none where it asked for none.
    [[nodiscard]] virtual std::optional<std::chrono::seconds> retry_after() const = 0;
};

/// Every source of a connection is made with this.
using SourceContext = ConnectionContext;

/// HTTP: redirects, statuses, ranges.
std::unique_ptr<Source> make_http_source(const SourceContext& context);
/// FTP, FTPS and SFTP, for ftp://, ftps:// (TLS by AUTH) and sftp:// addresses and those without a scheme.
/// Through an HTTP proxy that forwards requests the proxy speaks FTP and this side HTTP.
std::unique_ptr<Source> make_ftp_source(const SourceContext& context);

/// One protocol: the scheme with its "://" and what makes its sources.
struct Protocol {
    std::u16string_view scheme;
    bool secured;           ///< TLS before anything that matters is said
    bool tells_place;       ///< an answer names the bytes that it gives; else only their comparison shows it
    bool tells_time_alone;  ///< the time of the last change can be asked for without the file
    std::unique_ptr<Source> (*make)(const SourceContext& context);
};

/// Why no byte can be fetched from an address, for the person; empty where find_protocol() knows its scheme.
std::string why_not_fetched(std::u16string_view address);

/// The protocol of an address; null when none is known for its scheme.
const Protocol* find_protocol(std::u16string_view address);
/// False where the protocol of the address has answers that do not name the bytes that they give.
bool tells_place(std::u16string_view address);
/// True where the protocol of the address lets one ask for the time of the last change by itself.
bool tells_time_alone(std::u16string_view address);

}  // namespace vantlow
