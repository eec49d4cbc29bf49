// One file fetched from one server: what FTP and SFTP are told, and what they look like to whoever wants the
// bytes.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "runtime/operations.h"
#include "transfer/connection/base_socket.h"
#include "transfer/ftp/ftp_path.h"

namespace vantlow {

/// Inflates MODE Z: operations of a run-time library, any of which may be missing.
struct InflateOperations {
    ZLib_InflateInit_t* begin = nullptr;
    ZLib_Inflate_t* step = nullptr;
    ZLib_InflateEnd_t* end = nullptr;
    [[nodiscard]] bool complete() const noexcept {
        return begin != nullptr && step != nullptr && end != nullptr;
    }
};

/// SFTP: operations of a run-time library, any of which may be missing.
struct SshOperations {
    SSH_Init_t* make = nullptr;
    SSH_Exit_t* free = nullptr;
    SSH_Settings_t* settings = nullptr;
    SSH_SetErrPtr_t* set_error = nullptr;
    Sftp_Connect_t* connect = nullptr;
    SSH_Send_t* send = nullptr;
    SSH_Recv_t* receive = nullptr;
    SSH_Disconnect_t* disconnect = nullptr;
    [[nodiscard]] bool complete() const noexcept {
        return make != nullptr && free != nullptr && settings != nullptr && set_error != nullptr &&
               connect != nullptr && send != nullptr && receive != nullptr && disconnect != nullptr;
    }
};

/// The part of a plan that SFTP alone needs.
struct SshPlan {
    SshOperations operations;
    std::vector<std::string> keys;  ///< texts of private keys
    std::size_t first_keys = 0;     ///< so many of them are tried before the password
    bool use_agent = true;
    std::string known_hosts;  ///< in OpenSSH's form
    /// Asked about a server that is not known: its name, its key's fingerprint and the line that would make
    /// it known. Called on the conversation's thread; empty refuses.
    std::function<bool(const std::string& host, const std::string& fingerprint, const std::string& line)>
        accept;
    std::size_t receive_buffer = 256 * 1024;  ///< bytes
};

/// Everything that a conversation about one file needs to be told. Texts are bytes as they go on the wire and
/// hold no CR, LF or NUL.
struct FtpPlan {
    ConnectPlan connect;
    FtpPath path;
    std::string user;  ///< empty: anonymous
    std::string password;
    /// TLS on the control and the data connections, or nothing; none: in the clear.
    std::optional<TlsPlan> tls;
    bool utf8 = true;           ///< names are UTF-8
    bool ask_features = true;   ///< send FEAT
    bool passive = true;        ///< the server waits for the data connection; false: this side does
    bool follows_pasv = false;  ///< data connections go to any public address that the server names
    bool only_version = false;  ///< its version is asked for once more, and no byte of it
    bool text_mode = false;     ///< transfer as text (TYPE A)
    bool native_lines = false;  ///< text mode: the line ends of this system are LF, not CR LF
    bool trace_listings = false;
    /// For somebody who may want it later: the file is asked about, also whether it could be resumed, and no
    /// byte of it comes. Fails where the server tells nothing about it.
    bool facts_only = false;
    /// The address that PORT announces in place of the local one, for a network whose router forwards a port;
    /// none: the local address.
    std::optional<std::array<std::uint8_t, 4>> mapped_address;
    std::string client_name;  ///< for CLNT
    std::string client_version;
    std::size_t buffer_size = 64 * 1024;  ///< bytes, where a decoder stands between connection and file
    InflateOperations inflate;
    opieKeyGenerate_t* one_time_password = nullptr;
    SshPlan ssh;  ///< for SFTP, which needs a user
};

/// The file, as far as the server told of it.
struct FtpFile {
    std::int64_t size = -1;  ///< bytes; -1: unknown
    std::string time;        ///< as told; the same file gives the same text; empty: unknown
    bool can_restart = false;
    std::int64_t granted = 0;  ///< the offset at which the transfer begins
};

/// Gives the bytes of a file; `closed` when the server said that this was all. Owned and used by one thread.
class FtpTransfer : public ByteSource {
  public:
    /// Connects, logs in and begins to fetch the file at `offset`, or at 0 where the server cannot (see
    /// FtpFile::granted).
    virtual Result open(const FtpPlan& plan, std::int64_t offset, FtpFile& file) = 0;
    /// Ends the transfer, wherever it stands, and keeps the connection for the next file where that can be
    /// done soon.
    virtual void finish() = 0;
};

}  // namespace vantlow
