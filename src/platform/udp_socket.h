// UDP sockets whose waits can be stopped.
#pragma once

#include "platform/socket.h"

namespace vantlow {

/// A datagram socket: connected to one address (what comes from elsewhere is not seen), or bound to one of
/// this machine's. Owned and used by one thread; movable.
class UdpSocket {
  public:
    UdpSocket() = default;
    UdpSocket(UdpSocket&& other) noexcept;
    UdpSocket& operator=(UdpSocket&& other) noexcept;
    ~UdpSocket();

    /// Sends nothing yet: only names the other side.
    static Outcome<UdpSocket> connect(const SocketAddress& to);
    /// Port 0 takes a free one, which local_address() then tells.
    static Outcome<UdpSocket> bind(const SocketAddress& at);
    [[nodiscard]] bool is_open() const noexcept { return native_ != invalid; }
    void close() noexcept;

    /// One datagram. `failed` with `refused` as its fault when an earlier one came back as undeliverable.
    IoStep send(std::span<const std::byte> datagram) noexcept;
    /// The next datagram, cut off at the room there is; `would_block` when none is there.
    IoStep receive(std::span<std::byte> into) noexcept;
    /// The same for a bound socket, which tells and is told the other side.
    IoStep send_to(std::span<const std::byte> datagram, const SocketAddress& to) noexcept;
    IoStep receive_from(std::span<std::byte> into, SocketAddress& from) noexcept;
    /// Waits until a datagram, or an error, is there; a stop wins.
    Ready wait(std::chrono::milliseconds at_most, const StopSource& stop) noexcept;

    /// This machine's address towards the other side.
    [[nodiscard]] std::optional<SocketAddress> local_address() const;

  private:
    static Outcome<UdpSocket> make(const SocketAddress& kind);
    static constexpr std::intptr_t invalid = -1;
    explicit UdpSocket(std::intptr_t native) noexcept : native_(native) {}

    std::intptr_t native_ = invalid;
    std::intptr_t event_ = 0;  ///< Windows: the event that the socket sets
};

}  // namespace vantlow
