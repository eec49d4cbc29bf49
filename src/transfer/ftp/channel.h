// Commands to a server and its replies, whatever carries them: a control connection, or the SFTP library that
// speaks the same words.
#pragma once

#include <string>
#include <string_view>

#include "base/log.h"
#include "transfer/connection/stream.h"
#include "transfer/ftp/reply.h"

namespace vantlow {

/// One conversation's commands. Each command is logged as sent, each line of a reply as received. Used by one
/// thread.
class FtpChannel {
  public:
    FtpChannel() = default;
    FtpChannel(const FtpChannel&) = delete;
    FtpChannel& operator=(const FtpChannel&) = delete;
    virtual ~FtpChannel() = default;

    /// Sends one command. `shown` is what the log gets, where the command itself holds a secret.
    virtual Result send(std::string_view command, std::string_view shown = {}) = 0;
    /// Waits for the next reply: `data` when it is there, `quiet` when nothing came until then, else what
    /// went wrong; bytes that are no reply are a `transient` failure.
    virtual Moved next(FtpReply& reply, Clock::time_point until) = 0;

    /// The next reply, or why there is none: `transient` when the connection broke or nothing came in time,
    /// `busy` for a 421.
    Result read(FtpReply& reply, Clock::time_point until);
    Result ask(std::string_view command, FtpReply& reply, Clock::time_point until,
               std::string_view shown = {});
};

/// The failure for a reply that the dialogue does not expect.
Result unexpected_reply(LogSink& log, const FtpReply& reply);

}  // namespace vantlow
