// TCP sockets whose every wait can be stopped, and the name functions.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/clock.h"
#include "base/result.h"
#include "platform/stop.h"

namespace vantlow {

/// An IPv4 or IPv6 address with its port.
class SocketAddress {
  public:
    SocketAddress() = default;
    /// Copies a system sockaddr of `size` bytes (28 at most are kept).
    SocketAddress(const void* sockaddr, std::size_t size);
    /// Reads an IP literal ("127.0.0.1", "::1", without brackets); none for anything else.
    static std::optional<SocketAddress> from_literal(std::string_view literal, std::uint16_t port);

    [[nodiscard]] bool is_ipv6() const noexcept;
    [[nodiscard]] std::uint16_t port() const noexcept;
    void set_port(std::uint16_t port) noexcept;
    /// The four bytes of an IPv4 address in network order; zeroes for IPv6.
    [[nodiscard]] std::array<std::uint8_t, 4> ipv4() const noexcept;
    /// The sixteen bytes of an IPv6 address; zeroes for IPv4.
    [[nodiscard]] std::array<std::uint8_t, 16> ipv6() const noexcept;
    /// The address without port or brackets.
    [[nodiscard]] std::string host() const;
    [[nodiscard]] const void* data() const noexcept { return storage_.data(); }
    [[nodiscard]] std::size_t size() const noexcept { return size_; }
    bool operator==(const SocketAddress& other) const noexcept;

  private:
    alignas(8) std::array<std::byte, 28> storage_{};
    std::size_t size_ = 0;
};

class NetworkWay;

/// The faults of a socket that callers tell apart.
enum class SocketFault { none, refused, reset, unreachable, timed_out, no_descriptors, other };

/// A sentence for the system's socket error number, UTF-8.
std::string socket_error_text(int system_error);
SocketFault socket_fault(int system_error) noexcept;

/// The outcome of one non-blocking read or write.
struct IoStep {
    enum class State { moved, would_block, closed, failed };
    State state = State::failed;
    std::size_t bytes = 0;
    int system_error = 0;
};

enum class Ready { yes, timeout, stopped, failed };
enum class Interest { read, write };

/// Prepares the system's sockets (version 1.1 on Windows). To be called once, before any other operation;
/// false when the system refuses.
bool start_sockets() noexcept;

/// One stream socket, non-blocking inside. It is owned and used by one thread, and movable.
class TcpSocket {
  public:
    TcpSocket() = default;
    explicit TcpSocket(std::intptr_t native) noexcept;
    TcpSocket(TcpSocket&& other) noexcept;
    TcpSocket& operator=(TcpSocket&& other) noexcept;
    ~TcpSocket();

    [[nodiscard]] bool is_open() const noexcept { return native_ != invalid; }
    void close() noexcept;
    /// Closes so that the peer sees a reset at once, unread data or not.
    void close_with_reset() noexcept;

    /// Begins to connect. The connection is made once wait() for Interest::write has answered yes and
    /// connect_error() is 0.
    static Outcome<TcpSocket> begin_connect(const SocketAddress& to);
    static Outcome<TcpSocket> begin_connect(const SocketAddress& to, const NetworkWay& way);
    [[nodiscard]] int connect_error() const noexcept;

    IoStep read(std::span<std::byte> into) noexcept;
    IoStep write(std::span<const std::byte> from) noexcept;

    /// True when the peer neither closed nor sent anything: an idle connection that can be used again.
    [[nodiscard]] bool is_quiet() noexcept;
    /// Turns off the delay before small writes (the default for connections made here; RFC 896).
    void set_no_delay() noexcept;
    /// Sets how many bytes the system keeps unread; 0 leaves the choice, which then grows, to the system.
    void set_receive_buffer(std::size_t bytes) noexcept;
    [[nodiscard]] std::optional<SocketAddress> local_address() const;
    [[nodiscard]] std::optional<SocketAddress> peer_address() const;

  private:
    friend struct SocketWaiter;
    friend class Conduit;
    static constexpr std::intptr_t invalid = -1;
    std::intptr_t native_ = invalid;
    std::intptr_t event_ = 0;  ///< Windows: the event that the socket sets; made by the first wait
    int event_error_ = 0;      ///< Windows: what an event said of the connect or the end
};

/// One socket of a wait, and the event that is awaited on it.
struct SocketWait {
    TcpSocket* socket = nullptr;
    Interest interest = Interest::read;
    bool ready = false;  ///< out: the socket is ready, or broken, which the next step reports
};

/// Waits until one of the sockets (at most 16) is ready, the time is over (negative: no end) or a stop was
/// requested; a stop wins over a ready socket.
Ready wait_sockets(std::span<SocketWait> sockets, std::chrono::milliseconds at_most, const StopSource& stop);
Ready wait_socket(TcpSocket& socket, Interest interest, std::chrono::milliseconds at_most,
                  const StopSource& stop);

/// A listening socket.
class TcpListener {
  public:
    TcpListener() = default;
    TcpListener(TcpListener&& other) noexcept = default;
    TcpListener& operator=(TcpListener&& other) noexcept = default;
    /// Listens at the address; port 0 takes a free one, which address() then reports.
    static Outcome<TcpListener> listen(const SocketAddress& at, int backlog = 128);
    /// Returns a connection; `transient` when the time is over, `stopped` when a stop was requested.
    Outcome<TcpSocket> accept(std::chrono::milliseconds at_most, const StopSource& stop);
    [[nodiscard]] std::optional<SocketAddress> address() const { return socket_.local_address(); }
    void close() noexcept { socket_.close(); }

  private:
    TcpSocket socket_;
};

/// The answer of a name look-up.
struct NameAnswer {
    std::vector<SocketAddress> addresses;  ///< in the system's order, without duplicates
    int error = 0;                         ///< the system's EAI_ number; 0 when there are addresses
    bool definite = false;                 ///< the name does not exist: asking again gives the same answer
    std::string text;                      ///< the error as a sentence, UTF-8
};
NameAnswer resolve_name(const std::string& host, std::uint16_t port);

/// The place where the name functions were found: "ws2_32", "wship6", "system", or "built-in" for the
/// versions that know IPv4 only.
std::string_view name_functions_source() noexcept;

}  // namespace vantlow
