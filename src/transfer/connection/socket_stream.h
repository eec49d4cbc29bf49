// The lowest stage: a TCP socket whose waits end on a stop.
#pragma once

#include "transfer/connection/stream.h"

namespace vantlow {

/// Owns its socket. Used by one thread at a time; the stop may come from any.
class SocketStream : public ByteStream {
  public:
    explicit SocketStream(TcpSocket socket) : socket_(std::move(socket)) {}

    /// Whose stop ends the waits from now on; a connection that is kept for reuse changes hands. Null: waits
    /// fail at once.
    void attach(const StopSource* stop) noexcept { stop_ = stop; }

    Moved read(std::span<std::byte> into, Clock::time_point until) override;
    Result write(std::span<const std::byte> from, Clock::time_point until) override;

    [[nodiscard]] TcpSocket& socket() noexcept { return socket_; }

  private:
    TcpSocket socket_;
    const StopSource* stop_ = nullptr;
};

/// The result for a socket error of the system, with its sentence.
Result socket_failure(int system_error);

}  // namespace vantlow
