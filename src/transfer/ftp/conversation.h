// FTP: the dialogue on the control connection and the transfer beside it.
#pragma once

#include "transfer/ftp/body.h"
#include "transfer/ftp/data_connection.h"
#include "transfer/ftp/transfer.h"

namespace vantlow {

/// FTP and FTPS (RFC 959, RFC 4217). Used by one thread; what it is made with outlives it.
class FtpConversation : public FtpTransfer {
  public:
    FtpConversation(ConnectionServices& services, LogSink& log, const StopSource& stop, CConnectionNode* node)
        : log_(log), socket_(services, log, stop), control_(socket_, log), data_(services, log, stop, node) {}

    Result open(const FtpPlan& plan, std::int64_t offset, FtpFile& file) override;
    Moved read(std::span<std::byte> into, Clock::time_point until) override;
    [[nodiscard]] bool can_fill() const noexcept override;
    Moved fill(Conduit& conduit, std::size_t most, Clock::time_point until) override;
    void finish() override;

  private:
    enum class State {
        idle,
        receiving,  ///< bytes come
        ending,     ///< no more bytes; the server's last word is awaited
        done,       ///< the control connection stands before the next command
    };
    Result attempt(const FtpPlan& plan, std::int64_t offset, FtpFile& file, bool& dead);
    Result begin(const FtpPlan& plan, std::int64_t offset, FtpFile& file);
    Result retrieve(const FtpPlan& plan, FtpFile& file);
    Result hear_why(Result failure);
    template <class Move>
    Moved moved_on(Move move, Clock::time_point until);
    Moved last_word(Clock::time_point until);
    [[nodiscard]] bool refuses_session(const FtpReply& reply) const;
    bool read_to_end();
    bool abort();
    void fail();

    LogSink& log_;
    CBaseSocket socket_;
    FtpControl control_;
    FtpDataConnection data_;
    std::unique_ptr<FtpBody> body_;  // reads from data_
    FtpSession session_;
    State state_ = State::idle;
    std::int64_t granted_ = 0;  ///< where the transfer began
    std::int64_t position_ = 0;
    std::int64_t size_ = -1;
    bool new_session_ = false;  ///< the data connection's TLS did not resume the control connection's
};

}  // namespace vantlow
