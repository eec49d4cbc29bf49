// From a data connection's bytes to the file's.
#pragma once

#include <memory>
#include <vector>

#include "transfer/connection/base_socket.h"
#include "transfer/ftp/transfer.h"

namespace vantlow {

/// Gives the bytes of a transfer. `closed` at the end of what the server sent; a compressed transfer that is
/// cut short fails with `transient`. Owned and used by one thread.
class FtpBody {
  public:
    FtpBody() = default;
    FtpBody(const FtpBody&) = delete;
    FtpBody& operator=(const FtpBody&) = delete;
    virtual ~FtpBody() = default;
    virtual Moved read(std::span<std::byte> into, Clock::time_point until) = 0;
    /// The next bytes past the program's memory, as in ByteStream; not for transfers that are decoded.
    [[nodiscard]] virtual bool can_fill() const noexcept { return false; }
    virtual Moved fill(Conduit&, std::size_t, Clock::time_point) { return Moved::failed(Code::unsupported); }
};

/// The stages that a transfer needs, over the data connection, which outlives them.
std::unique_ptr<FtpBody> make_ftp_body(CBaseSocket& data, const FtpPlan& plan, bool compressed);

}  // namespace vantlow
