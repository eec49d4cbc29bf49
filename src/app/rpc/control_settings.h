// The settings of the control API, read for its endpoint, and the secret.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "app/rpc/certificate.h"
#include "platform/file.h"
#include "rpc/access.h"
#include "store/settings.h"

namespace vantlow {

/// How the endpoint is to be. A plain record.
struct ControlConfig {
    bool enabled = false;
    std::vector<std::string> addresses;  ///< literals, IPv6 without brackets
    std::uint16_t port = 0;
    rpc::AccessRules rules;
    std::size_t largest_request = 0;                ///< bytes
    std::optional<ControlCertificate> certificate;  ///< none: no TLS

    bool operator==(const ControlConfig& other) const;
};

/// Reads the settings of section "RPC". Makes the secret, and with TLS the certificate, where there is none
/// yet and the endpoint is wanted. Where they do not fit together `error` says so, and the endpoint is not to
/// be opened.
ControlConfig read_control_config(Settings& settings, const std::u16string& data_folder, std::string& error);

/// The certificate that the settings name, else the program's own.
Outcome<ControlCertificate> control_certificate(const Settings& settings, const std::u16string& data_folder);

/// The secret as it stands in the settings, in the clear; empty: none is asked for. None where there is none
/// yet, or where this user of this machine cannot read it.
std::optional<std::string> control_secret(const Settings& settings);

/// Makes a new secret and stores it, in the form that the system keeps secrets in.
FileError make_control_secret(Settings& settings, std::string& secret);

}  // namespace vantlow
