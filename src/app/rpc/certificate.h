// The certificate by which the control API shows over TLS who it is.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/result.h"

namespace vantlow {

/// A certificate, perhaps with those of its issuers behind it, and its private key. PEM (RFC 7468).
struct ControlCertificate {
    std::string chain;
    std::string key;
    bool operator==(const ControlCertificate&) const = default;
};

/// Makes a key (P-256) and a certificate that it signs itself, for these addresses and names and for this
/// machine's loopback; it holds for ten years. `unsupported`, with a sentence, where this build's endpoint
/// has no TLS.
Outcome<ControlCertificate> make_certificate(const std::vector<std::string>& names);

/// Reads them from these files; `key` empty: both stand in one.
Outcome<ControlCertificate> read_certificate(const std::u16string& chain, const std::u16string& key);

/// The program's own ones, which stands in the data folder where only this user can read it. Made for these
/// addresses and names, and for this machine's loopback, where there is none yet.
Outcome<ControlCertificate> own_certificate(const std::u16string& data_folder,
                                            const std::vector<std::string>& names);

/// SHA-256 of the first certificate as browsers show it: "AB:CD:..."; empty where there is none in the text.
std::string fingerprint_of(std::string_view chain);

}  // namespace vantlow
