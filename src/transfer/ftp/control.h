// The control connection of FTP.
#pragma once

#include "transfer/connection/base_socket.h"
#include "transfer/ftp/channel.h"

namespace vantlow {

/// Commands and replies over a TCP connection (RFC 959, 4). Used by one thread.
class FtpControl : public FtpChannel {
  public:
    FtpControl(CBaseSocket& socket, LogSink& log) : socket_(socket), log_(log) {}

    Result send(std::string_view command, std::string_view shown = {}) override;
    Moved next(FtpReply& reply, Clock::time_point until) override;

    /// Begins on another connection.
    void reset();
    /// Whether the lines of listings are written to the log, or their first and last one only.
    void trace_listings(bool whole) noexcept { whole_listings_ = whole; }
    /// True when a byte came since reset().
    [[nodiscard]] bool heard_something() const noexcept { return heard_; }
    /// True when no part of a reply is waiting: the connection can be kept.
    [[nodiscard]] bool is_clean() const noexcept { return reader_.is_empty() && !reader_.is_broken(); }

  private:
    void log_reply(const FtpReply& reply);

    CBaseSocket& socket_;
    LogSink& log_;
    FtpReplyReader reader_;
    bool heard_ = false;
    bool whole_listings_ = true;
};

}  // namespace vantlow
