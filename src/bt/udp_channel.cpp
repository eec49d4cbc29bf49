#include "bt/udp_channel.h"

#include <algorithm>
#include <array>

#include "base/string_table.h"
#include "base/text.h"
#include "bt/udp_relay.h"
#include "transfer/connection/tunnel.h"

namespace vantlow {
namespace {

constexpr std::uint8_t udp_associate = 3;

// Remembers the bytes since the last request was sent, because the handshake itself keeps only the port.
class RememberingWire : public ProxyWire {
  public:
    RememberingWire(CBaseSocket& socket, std::chrono::milliseconds timeout)
        : socket_(socket), timeout_(timeout) {}
    Result send(std::span<const std::byte> bytes) override {
        reply_.clear();
        return socket_.send_all(bytes);
    }
    Result receive(std::span<std::byte> into, Clock::time_point until) override {
        Result result = socket_.receive_exactly(into, until);
        if (result.ok()) reply_.append(reinterpret_cast<const char*>(into.data()), into.size());
        return result;
    }
    [[nodiscard]] Clock::time_point time_out() const override { return from_now(timeout_); }
    [[nodiscard]] const std::string& reply() const noexcept { return reply_; }

  private:
    CBaseSocket& socket_;
    std::chrono::milliseconds timeout_;
    std::string reply_;
};

}  // namespace

/// The connection to the proxy that keeps the relay open.
class UdpChannel::Association : public CBaseSocket {
  public:
    using CBaseSocket::CBaseSocket;
    std::chrono::milliseconds timeout{60000};  ///< of connecting and of each answer
    std::string reply;                         ///< of the proxy, from its first byte on

  protected:
    Result tunnel(const ProxyPlan& proxy, const TunnelTarget& /*target*/, std::uint16_t& port) override {
        TunnelTarget any;  // this side's address and port: not known yet
        any.command = udp_associate;
        RememberingWire wire(*this, timeout);
        Result result = open_socks5(wire, log(), proxy, any, port);
        reply = wire.reply();
        if (!result.ok()) close();
        return result;
    }
};

UdpChannel::UdpChannel(ConnectionServices& services, LogSink& log, const StopSource& stop, NetworkWay way)
    : services_(services), log_(log), stop_(stop), way_(std::move(way)) {}
UdpChannel::~UdpChannel() = default;

Result UdpChannel::open(const std::string& host, std::uint16_t port, const ProxyPlan& proxy,
                        std::chrono::milliseconds timeout) {
    association_.reset();
    header_.clear();
    if (!proxy.is_used()) return open_direct(host, port);
    if (proxy.kind == ProxyPlan::socks5) return open_association(host, port, proxy, timeout);
    Result result(Code::unsupported, "A UDP tracker cannot be asked through this kind of proxy.");
    log_.line(Direction::error, result.message());
    return result;
}

Result UdpChannel::open_direct(const std::string& host, std::uint16_t port) {
    log_.line(Direction::note, message(Message::connecting_to, {host, std::int64_t{port}}));
    auto addresses = services_.resolver.resolve(host, port, stop_, way_);
    if (!addresses.ok()) {
        if (addresses.failure().kind() != Kind::stopped)
            log_.line(Direction::error, message_text(Message::not_resolved));
        return addresses.failure();
    }
    // IPv4 first: a broken IPv6 route swallows datagrams and says nothing.
    std::stable_partition(addresses->begin(), addresses->end(),
                          [](const SocketAddress& address) { return !address.is_ipv6(); });
    Result failure(Code::not_resolved);
    for (const SocketAddress& address : *addresses) {
        auto socket = UdpSocket::connect(address, way_);
        if (socket.ok()) {
            socket_ = *std::move(socket);
            is_ipv6_ = address.is_ipv6();
            return {};
        }
        failure = socket.failure();
    }
    return fail(failure.system_error);
}

Result UdpChannel::open_association(const std::string& host, std::uint16_t port, const ProxyPlan& proxy,
                                    std::chrono::milliseconds timeout) {
    if (host.size() > 255) return {Code::invalid_url, "The tracker's host name is too long."};
    association_ = std::make_unique<Association>(services_, log_, stop_);
    association_->timeout = timeout;
    ConnectPlan plan;
    plan.scheme = "udp";
    plan.host = host;
    plan.port = port;
    plan.proxy = proxy;
    plan.way = way_;
    plan.proxy.resolve_here = false;  // nothing is to be resolved for the association itself
    plan.timeout = timeout;
    plan.may_reuse = false;
    if (Result result = association_->open(plan); !result.ok()) return result;
    std::string named = host;
    if (proxy.resolve_here) {
        const auto addresses = services_.resolver.resolve(host, port, stop_, way_);
        if (!addresses.ok()) return addresses.failure();
        named = addresses->front().host();
    }
    header_ = relay_header(named, port);
    const auto named_relay = relay_of(association_->reply);
    if (!named_relay) return {Code::proxy_refused, "The proxy named no relay."};
    SocketAddress relay;
    if (named_relay->address) {
        relay = *named_relay->address;
    } else {
        const auto addresses = services_.resolver.resolve(proxy.host, proxy.port, stop_, way_);
        if (!addresses.ok()) return addresses.failure();
        relay = addresses->front();
        relay.set_port(named_relay->port);
    }
    auto socket = UdpSocket::connect(relay, way_);
    if (!socket.ok()) return fail(socket.failure().system_error);
    socket_ = *std::move(socket);
    is_ipv6_ = names_ipv6(header_);
    return {};
}

Result UdpChannel::fail(int system_error) {
    const std::string text = message(Message::socket_error, {std::int64_t{system_error}});
    log_.line(Direction::error, text);
    return {Code::transient, text + " " + socket_error_text(system_error), system_error};
}

Result UdpChannel::send(std::string_view datagram) {
    const std::string whole = header_ + std::string(datagram);
    const IoStep step = socket_.send(std::as_bytes(std::span(whole)));
    // A full queue loses a datagram as the network may; the time-out of the answer covers both.
    if (step.state == IoStep::State::failed) return fail(step.system_error);
    return {};
}

Outcome<std::string> UdpChannel::receive(std::size_t most, Clock::time_point until) {
    std::string buffer;
    for (;;) {
        const Ready ready = socket_.wait(time_left(until), stop_);
        if (ready == Ready::stopped) return Result(Code::stopped);
        if (ready == Ready::timeout)
            return Result(Code::transient, std::string(message_text(Message::timeout)));
        if (ready == Ready::failed) {
            log_.line(Direction::error, message_text(Message::socket_function_error));
            return Result(Code::transient, std::string(message_text(Message::socket_function_error)));
        }
        buffer.resize(most + header_.size() + 32);
        const IoStep step = socket_.receive(std::as_writable_bytes(std::span(buffer)));
        if (step.state == IoStep::State::would_block) continue;
        if (step.state != IoStep::State::moved) return fail(step.system_error);
        buffer.resize(step.bytes);
        if (header_.empty()) return buffer;
        if (const auto content = relayed(buffer)) return std::string(*content);
        // Fragments and datagrams without a header are dropped.
    }
}

std::optional<SocketAddress> UdpChannel::local_address() const {
    return association_ ? std::nullopt : socket_.local_address();
}

}  // namespace vantlow
