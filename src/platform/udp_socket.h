// UDP sockets whose waits can be stopped.
#pragma once

#include "platform/network_way.h"

namespace vantlow {

/// A datagram socket: connected to one address (what comes from elsewhere is not seen), or bound to one of
/// this machine's. Owned and used by one thread; movable.
class UdpSocket {
  public:
    UdpSocket() = default;
    UdpSocket(UdpSocket&& other) noexcept;
    UdpSocket& operator=(UdpSocket&& other) noexcept;
    ~UdpSocket();

    /// Makes a socket for one other side; nothing is sent yet.
    static Outcome<UdpSocket> connect(const SocketAddress& to, const NetworkWay& way = NetworkWay());
    /// Makes a socket at one of this machine's addresses; port 0 takes a free one, which local_address() then
    /// reports.
    static Outcome<UdpSocket> bind(const SocketAddress& at);
    [[nodiscard]] bool is_open() const noexcept { return native_ != invalid; }
    void close() noexcept;

    /// Sends one datagram. `failed` with `refused` as its fault when an earlier one came back as
    /// undeliverable.
    IoStep send(std::span<const std::byte> datagram) noexcept;
    /// Receives the next datagram, cut off where the room ends; `would_block` when there is none.
    IoStep receive(std::span<std::byte> into) noexcept;
    /// The same two for a bound socket: the other side is named in each call.
    IoStep send_to(std::span<const std::byte> datagram, const SocketAddress& to) noexcept;
    IoStep receive_from(std::span<std::byte> into, SocketAddress& from) noexcept;
    /// Waits until there is a datagram or an error; a stop wins.
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
