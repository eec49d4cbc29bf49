// From a connected control connection to one that is logged in and stands in the file's folder.
#pragma once

#include "transfer/ftp/control.h"
#include "transfer/ftp/reply_fields.h"
#include "transfer/ftp/transfer.h"

namespace vantlow {

/// The memory of a control connection while it lives, also when it is kept for the next file.
struct FtpSession {
    FtpFeatures features;
    bool compressed = false;          ///< MODE Z is on
    char type = 0;                    ///< of the last TYPE command
    std::optional<bool> can_restart;  ///< whether REST was taken
    std::int64_t restart_said = 0;    ///< with the last REST
    std::string tls_session;          ///< what its data connections resume; empty: in the clear
    // Not to be asked again.
    bool no_pasv = false;
    bool no_epsv = false;
    bool no_passive = false;  ///< no data connection could be made that way
    bool no_size = false;
    bool no_mdtm = false;
    bool no_listing = false;
};

/// The TLS of a control connection that begins now, with a session of its own for its data connections.
TlsPlan ftp_control_tls(const TlsPlan& trust, FtpSession& session);

/// Welcome, TLS, user, password, protection, features, folder, in this order. `credentials_refused`, `busy`
/// (the server has too many users), `server_error` (no such folder; no TLS where it is wanted), `transient`.
Result ftp_log_in(CBaseSocket& socket, FtpControl& control, const FtpPlan& plan, FtpSession& session,
                  LogSink& log);

}  // namespace vantlow
