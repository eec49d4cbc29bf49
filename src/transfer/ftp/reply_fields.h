// The texts of FTP replies, read.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "transfer/ftp/reply.h"

namespace vantlow {

/// Where a server waits for the data connection.
struct FtpPassive {
    std::array<std::uint8_t, 4> ipv4{};
    std::uint16_t port = 0;
};
/// "227 Entering Passive Mode (h1,h2,h3,h4,p1,p2)"; also without the brackets, as some servers write it (RFC
/// 1123, 4.1.2.6). None when six numbers up to 255 are not there, or the port is 0.
std::optional<FtpPassive> parse_pasv(const FtpReply& reply);
/// "229 Entering Extended Passive Mode (|||port|)", with any delimiter (RFC 2428, 3).
std::optional<std::uint16_t> parse_epsv(const FtpReply& reply);
/// False for private, loopback, link-local and unspecified addresses, which mean something in a network of
/// their own only (RFC 1918, 3927, 5735, 6598).
bool is_public_address(const std::array<std::uint8_t, 4>& address) noexcept;
/// Whether a data connection may go to the address that a server with another one told: it is the server's
/// neighbour, in the same network of 256 public addresses. Anybody else's would have this side knock there in
/// the server's place. `anywhere`: any public one will do.
bool may_lead_to(const std::array<std::uint8_t, 4>& told, const std::array<std::uint8_t, 4>& server,
                 bool anywhere) noexcept;

/// "213 size".
std::optional<std::int64_t> parse_size(const FtpReply& reply);
/// "213 YYYYMMDDHHMMSS[.fff]" (RFC 3659, 2.3): the digits; some servers of 2000 and later write the year as
/// 19100 and up, which is put right. Empty when it is no time.
std::string parse_mdtm(const FtpReply& reply);
/// The size in "150 Opening data connection for x (N bytes)"; none when there is none.
std::optional<std::int64_t> parse_announced_size(const FtpReply& reply);

/// The features that a server's list (RFC 2389) names.
struct FtpFeatures {
    bool listed = false;  ///< there was a list
    bool mode_z = false;
    bool utf8 = false;
    bool rest_stream = false;
    bool mdtm = false;
    bool size = false;
};
FtpFeatures parse_features(const FtpReply& reply);

/// A one-time password's challenge (RFC 2289, 6): "otp-md5 487 dog2".
struct OtpChallenge {
    std::string algorithm;  ///< "otp-md4", "otp-md5" or "otp-sha1"
    int sequence = 0;
    std::string seed;  ///< 1 to 16 letters and digits, lower case
};
/// True when the reply holds "otp-": it wants a one-time password, whether the challenge can be read or not.
bool wants_otp(const FtpReply& reply) noexcept;
std::optional<OtpChallenge> parse_otp_challenge(const FtpReply& reply);

/// True when a refused login tells of too many users or connections, not of wrong credentials.
bool tells_of_limit(const FtpReply& reply) noexcept;

}  // namespace vantlow
