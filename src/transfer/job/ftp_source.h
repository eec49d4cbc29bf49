// FTP, FTPS and SFTP as sources of a job's bytes.
#pragma once

#include "transfer/job/source.h"

namespace vantlow {

/// For ftp://, ftps:// (TLS by AUTH) and sftp:// addresses and those without a scheme. Through an HTTP proxy
/// that forwards requests the proxy speaks FTP and this side HTTP.
std::unique_ptr<Source> make_ftp_source(const SourceContext& context);

}  // namespace vantlow
