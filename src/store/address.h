// Recognising an address and cutting it into the parts that a connection needs.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vantlow {

/// The result of splitting an address.
struct SplitAddress {
    std::u16string address;  ///< scheme and server part with its port ("http://host:80")
    bool secure = false;     ///< set for "ftps://" only
    std::u16string user;
    std::u16string password;
    std::u16string path = u"/";
    int port = 0;  ///< the scheme's default port; 0: not recognised, address unchanged
};

/// The part of the program that handles an address.
enum class LinkKind {
    unknown,
    transfer,  ///< a server, from which one file is fetched
    torrent,   ///< "magnet:?", "bt://"
    edonkey,   ///< "ed2k://"
    metafile,  ///< "metalink://": a file that names others
};

/// The kind of an address by its scheme, letter case ignored. A text without "://" is the address of a
/// server. "http:/host", which lacks a slash, has no kind.
LinkKind link_kind(std::u16string_view address) noexcept;

/// Splits an address by its scheme, letter case ignored. The returned port is always the scheme's default
/// one; a port in the address stays in the server part.
SplitAddress split_address(std::u16string_view address);

/// The parts of a recognised address with a server part that a connection needs. The server part ends at the
/// first "/", "?" or "#" (RFC 3986), so that nothing behind them is taken for a host or for credentials.
struct Target {
    std::string scheme;          ///< lower case, without "://"
    std::string host;            ///< ASCII (ascii_host), without the brackets of an IPv6 literal
    std::uint16_t port = 0;      ///< the written port, else the default one
    bool explicit_port = false;  ///< the address itself named a port
    /// With its leading slash, query included, without fragment and dot segments; escapes as written,
    /// everything else that may not stand in a request line escaped.
    std::string path;
    std::u16string user;  ///< percent-decoded, like the password; no control characters in either
    std::u16string password;
    [[nodiscard]] bool is_ipv6_literal() const noexcept { return host.find(':') != std::string::npos; }
    /// "host", or "[host]" for IPv6 literals, without their zone, which has a meaning on this machine only.
    [[nodiscard]] std::string host_text() const {
        return is_ipv6_literal() ? "[" + host.substr(0, host.find('%')) + "]" : host;
    }
};

/// Reads an address. None when it is not recognised or lacks a slash ("http:/host"); when it has no server
/// part or an empty host; when the host cannot be written in ASCII (ascii_host) or has characters that no
/// host may have; for control characters in its credentials, and for a port that is no number from 1 to
/// 65535. `utf8`: non-ASCII characters of the path are written in UTF-8 before they are escaped, otherwise in
/// the ANSI code page (in UTF-8 all the same where the code page lacks one of them).
std::optional<Target> parse_target(std::u16string_view address, bool utf8 = true);

/// The reason why an address has no target: a sentence for people that does not repeat the address.
std::string why_no_target(std::u16string_view address);

/// True when both name the same server, so that a login or cookies for one may be sent to the other. Host
/// names are compared without regard to letter case (RFC 4343).
bool is_same_server(const Target& a, const Target& b) noexcept;

/// The address without user name and password, for logs and files. Of an address whose server part cannot be
/// read, everything up to the last "@" is taken for credentials.
std::u16string without_credentials(std::u16string_view address);

/// The address without its password; the user name stays.
std::u16string without_password(std::u16string_view address);

}  // namespace vantlow
