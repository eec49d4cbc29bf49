// The one interface or address of this machine that packets may leave by.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "platform/socket.h"

namespace vantlow {

/// A way out of this machine: every one, or that of one interface. Nothing that is held to an interface ever
/// leaves by another: where the interface is not there, nothing leaves. The system is asked anew each time,
/// so that an interface may come and go. A value; any thread.
class NetworkWay {
  public:
    /// The interface as the system has it now.
    struct State {
        std::string device{};                 ///< the system's name of it, UTF-8
        unsigned index = 0;                   ///< the system's number of it for IPv4
        unsigned index6 = 0;                  ///< the same for IPv6
        std::optional<SocketAddress> ipv4{};  ///< the address that sockets are bound to; none: no such way
        std::optional<SocketAddress> ipv6{};
        bool operator==(const State&) const = default;
        /// Takes it unless there is one of its kind, or it reaches its own network alone (fe80::/10).
        void take(const SocketAddress& address);
        [[nodiscard]] const std::optional<SocketAddress>& own(bool is_ipv6) const noexcept {
            return is_ipv6 ? ipv6 : ipv4;
        }
    };

    /// Every way.
    NetworkWay() = default;
    /// `name`: an interface's as the system shows it, or one of its addresses, UTF-8; empty: every way. With
    /// an address the other kind of addresses has no way.
    explicit NetworkWay(std::string name) : name_(std::move(name)) {}

    [[nodiscard]] bool is_any() const noexcept { return name_.empty(); }
    [[nodiscard]] const std::string& name() const noexcept { return name_; }
    /// `transient` with a sentence where there is no such interface, or it is down or has no address. Not to
    /// be asked of every way.
    [[nodiscard]] Outcome<State> look() const;
    /// Holds a fresh socket of the system to it. The system's error number, with which the socket must not be
    /// used; 0: done. Of every way nothing is done.
    [[nodiscard]] int hold(std::intptr_t socket, bool is_ipv6) const;
    /// The same, and binds the socket to its address and the port (0: a free one).
    [[nodiscard]] int bind(std::intptr_t socket, bool is_ipv6, std::uint16_t port) const;

    bool operator==(const NetworkWay&) const = default;

  private:
    static int hold_to(const State& state, std::intptr_t socket, bool is_ipv6) noexcept;

    std::string name_;
};

}  // namespace vantlow
