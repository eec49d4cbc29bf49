// The parts of a simulated network that packets go between.
#pragma once

#include <array>
#include <deque>
#include <string>

#include "support/network/simulated_network.h"

namespace vantlow::test {

/// A connection between two hosts. End 0 is the one that connected.
struct SimulatedLink : std::enable_shared_from_this<SimulatedLink> {
    /// On its way: bytes, or the end of them.
    struct Packet {
        Clock::time_point arrives{};
        Clock::time_point sent{};
        std::string bytes;
    };
    struct End {
        SimulatedHost* host = nullptr;
        SocketAddress local;
        SocketAddress peer;  ///< as this end sees it
        std::string inbox;
        std::deque<Packet> on_the_way;  ///< to this end
        std::size_t unread = 0;         ///< of what this end sent: on its way, or not known to be read
        bool connected = false;
        bool ended = false;     ///< the other end sends nothing more
        bool sent_end = false;  ///< this one does not
        bool closed = false;    ///< its owner is gone
        int error = 0;          ///< of the system
        net::Network::Connected done;
        net::Callback readable;
        net::Callback writable;
    };

    explicit SimulatedLink(SimulatedInternet& world) : internet(world) {}

    void begin(SimulatedHost& host, const SocketAddress& to, net::Network::Connected done);
    net::Step read(int end, std::span<std::byte> into);
    net::Step write(int end, std::span<const std::byte> from);
    void when_readable(int end, net::Callback call);
    void when_writable(int end, net::Callback call);
    Result shut_down_sending(int end);
    void close(int end);
    void reset(int end);

    SimulatedInternet& internet;
    std::array<End, 2> ends;

  private:
    void knock(Clock::time_point since, std::chrono::milliseconds pause);
    void open_at(SimulatedHost& host, const SocketAddress& inner, SimulatedBacklog& backlog);
    void finish_connect(int error);
    void send(int from, std::string bytes);
    void deliver(int to);
    void acknowledge(int reader, std::size_t bytes, Clock::time_point since);
    void send_reset(int from);
    void fail(int end, int error);
    [[nodiscard]] bool is_cut() const noexcept;
    [[nodiscard]] bool is_readable(const End& end) const noexcept;
    [[nodiscard]] bool is_writable(const End& end) const noexcept;
    void notify(int end);
};

/// The connections that a listener has not taken yet.
struct SimulatedBacklog : std::enable_shared_from_this<SimulatedBacklog> {
    SimulatedBacklog(SimulatedHost& at_host, const SocketAddress& at, int most_waiting)
        : host(at_host), address(at), most(static_cast<std::size_t>(std::max(most_waiting, 1))) {}

    void notify();
    void close();

    SimulatedHost& host;
    SocketAddress address;
    std::size_t most;
    std::deque<std::shared_ptr<SimulatedLink>> waiting;
    net::Listener::Accepted call;
    Clock::time_point rests_until{};
    bool closed = false;
};

/// A bound datagram socket.
struct SimulatedPort : std::enable_shared_from_this<SimulatedPort> {
    struct Datagram {
        SocketAddress from;
        std::string bytes;
    };
    SimulatedPort(SimulatedHost& at_host, const SocketAddress& at) : host(at_host), address(at) {}

    net::Step receive(std::span<std::byte> into, SocketAddress& from);
    net::Step send(std::span<const std::byte> datagram, const SocketAddress& to);
    void when_readable(net::Callback call);
    void notify();
    void close();

    SimulatedHost& host;
    SocketAddress address;
    std::deque<Datagram> inbox;
    std::size_t inbox_bytes = 0;
    net::Callback readable;
    net::Callback writable;
    bool closed = false;
};

inline constexpr std::size_t simulated_packet_bytes = 1460;

}  // namespace vantlow::test
