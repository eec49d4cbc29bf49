// SFTP: the same dialogue through the library that speaks SSH.
#pragma once

#include <memory>

#include "transfer/ftp/login.h"
#include "transfer/ftp/sftp_link.h"
#include "transfer/ftp/transfer.h"

namespace vantlow {

/// SFTP. Used by one thread; what it is made with outlives it.
class SftpConversation : public FtpTransfer {
  public:
    SftpConversation(ConnectionServices& services, LogSink& log, const StopSource& stop,
                     CConnectionNode* node)
        : log_(log), socket_(services, log, stop, node), channel_(log) {}
    ~SftpConversation() override;

    Result open(const FtpPlan& plan, std::int64_t offset, FtpFile& file) override;
    Moved read(std::span<std::byte> into, Clock::time_point until) override;
    void finish() override;

  private:
    Result attempt(const FtpPlan& plan, std::int64_t offset, FtpFile& file, bool& dead);
    Result begin(const FtpPlan& plan, std::int64_t offset, FtpFile& file);
    Result log_in(const FtpPlan& plan);
    Result enter_folder(const FtpPlan& plan);
    void let_go();

    LogSink& log_;
    CBaseSocket socket_;
    SftpChannel channel_;
    std::shared_ptr<SftpLink> link_;  ///< shared with the notes of a connection that is kept
    FtpSession session_;
    bool usable_ = false;  ///< the connection stands before the next command, once the transfer is closed
};

}  // namespace vantlow
