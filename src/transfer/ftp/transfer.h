// One file fetched from one server: what FTP and SFTP look like to whoever wants the bytes.
#pragma once

#include "transfer/ftp/plan.h"

namespace vantlow {

/// Owned and used by one thread.
class FtpTransfer {
  public:
    FtpTransfer() = default;
    FtpTransfer(const FtpTransfer&) = delete;
    FtpTransfer& operator=(const FtpTransfer&) = delete;
    virtual ~FtpTransfer() = default;

    /// Connects, logs in and begins to fetch the file at `offset`, or at 0 where the server cannot (see
    /// FtpFile::granted).
    virtual Result open(const FtpPlan& plan, std::int64_t offset, FtpFile& file) = 0;
    /// The next bytes. `closed` when the server said that this was all.
    virtual Moved read(std::span<std::byte> into, Clock::time_point until) = 0;
    /// Ends the transfer, wherever it stands, and keeps the connection for the next file where that can be
    /// done soon.
    virtual void finish() = 0;
};

}  // namespace vantlow
