// One SSH connection: the library's handle together with the socket that it talks over.
#pragma once

#include <array>
#include <optional>

#include "transfer/ftp/channel.h"
#include "transfer/ftp/transfer.h"

namespace vantlow {

/// Outlives the conversations that use it one after another: each attaches its own socket object. Used by one
/// thread at a time.
class SftpLink {
  public:
    explicit SftpLink(const SshPlan& plan);
    ~SftpLink();
    SftpLink(const SftpLink&) = delete;
    SftpLink& operator=(const SftpLink&) = delete;

    /// Whose bytes are sent and received from now on; null: nobody's, and nothing works.
    void attach(CBaseSocket* socket) noexcept { socket_ = socket; }
    /// Key exchange, the server's key, login. `timeout` is that of each read.
    Result connect(const FtpPlan& plan);
    /// One command; the answer in FTP's form.
    Result command(std::string_view text, std::string& reply, std::chrono::milliseconds timeout);
    Moved read(std::span<std::byte> into, Clock::time_point until);
    void disconnect();
    /// True when a byte came since this was last asked.
    [[nodiscard]] bool heard_something() noexcept { return std::exchange(heard_, false); }

  private:
    static std::ptrdiff_t receive(void* context, void* into, std::size_t size);
    static int send(void* context, const void* from, std::size_t size);
    static int accept(void* context, const char* fingerprint, const char* line);
    Result result_of(int code);

    SshOperations operations_;
    VantlowSshTransport transport_;
    VantlowSsh* ssh_;
    CBaseSocket* socket_ = nullptr;
    const FtpPlan* plan_ = nullptr;           ///< while connecting
    std::chrono::milliseconds timeout_{0};    ///< of each read, where until_ is not set
    std::optional<Clock::time_point> until_;  ///< of a read of the file
    Result failure_;                          ///< the transport's
    bool heard_ = false;
    std::array<char, 512> error_{};
};

/// The commands of a link, as the dialogue that is shared with FTP speaks them.
class SftpChannel : public FtpChannel {
  public:
    explicit SftpChannel(LogSink& log) : log_(log) {}
    void attach(SftpLink* link, std::chrono::milliseconds timeout) noexcept {
        link_ = link;
        timeout_ = timeout;
        replies_ = {};
    }
    Result send(std::string_view command, std::string_view shown = {}) override;
    Moved next(FtpReply& reply, Clock::time_point until) override;

  private:
    LogSink& log_;
    SftpLink* link_ = nullptr;
    std::chrono::milliseconds timeout_{0};
    FtpReplyReader replies_;
};

}  // namespace vantlow
