// The data connection: who waits for whom, and where.
#pragma once

#include "platform/socket.h"
#include "transfer/ftp/control.h"
#include "transfer/ftp/login.h"
#include "transfer/ftp/transfer.h"

namespace vantlow {

/// One data connection at a time. Belongs to the conversation's thread.
class FtpDataConnection {
  public:
    FtpDataConnection(ConnectionServices& services, LogSink& log, const StopSource& stop,
                      CConnectionNode* node)
        : socket_(services, log, stop, node), stop_(stop) {}

    /// Before the transfer is asked for: connects to where the server waits (PASV, EPSV), or waits itself and
    /// says where (PORT, EPRT). The other way is tried where one is refused.
    Result prepare(CBaseSocket& control_socket, FtpControl& control, const FtpPlan& plan,
                   FtpSession& session);
    /// After the server said that it begins: takes its connection where this side waits, and begins TLS where
    /// the plan says so. `is_end_known`: something else than the connection's end tells whether all bytes
    /// came.
    Result begin(CBaseSocket& control_socket, const FtpPlan& plan, const FtpSession& session,
                 bool is_end_known);
    void close();

    [[nodiscard]] CBaseSocket& socket() noexcept { return socket_; }

  private:
    Result passive(CBaseSocket& control_socket, FtpControl& control, const FtpPlan& plan,
                   FtpSession& session);
    Result ask_pasv(CBaseSocket& control_socket, FtpControl& control, const FtpPlan& plan, ConnectPlan& to);
    Result ask_epsv(CBaseSocket& control_socket, FtpControl& control, const FtpPlan& plan, ConnectPlan& to);
    Result active(CBaseSocket& control_socket, FtpControl& control, const FtpPlan& plan);
    Result take_connection(CBaseSocket& control_socket, const FtpPlan& plan);

    CBaseSocket socket_;
    const StopSource& stop_;
    TcpListener listener_;
    bool waits_ = false;  ///< this side listens
};

/// The argument of PORT: "h1,h2,h3,h4,p1,p2".
std::string port_argument(const std::array<std::uint8_t, 4>& address, std::uint16_t port);

}  // namespace vantlow
