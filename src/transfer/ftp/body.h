// From a data connection's bytes to the file's.
#pragma once

#include <memory>
#include <vector>

#include "transfer/connection/base_socket.h"
#include "transfer/ftp/transfer.h"

namespace vantlow {

/// Gives the bytes of a transfer. `closed` at the end of what the server sent; a compressed transfer that is
/// cut short fails with `transient`. Owned and used by one thread.
using FtpBody = ByteSource;

/// The stages that a transfer needs, over the data connection, which outlives them.
std::unique_ptr<FtpBody> make_ftp_body(CBaseSocket& data, const FtpPlan& plan, bool compressed);

}  // namespace vantlow
