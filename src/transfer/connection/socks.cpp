#include <algorithm>
#include <chrono>
#include <string_view>

#include "base/text.h"
#include "transfer/connection/tunnel.h"

namespace vantlow {
namespace {

constexpr std::size_t longest_field = 255;  // what one length byte can tell
// The wait for the rest of a reply that is longer than ten bytes: some proxies name a long address and send
// a short one.
constexpr std::chrono::milliseconds longest_wait_for_rest{1000};

// The bytes of a request as it grows.
class Request {
  public:
    Request& byte(unsigned value) {
        bytes_.push_back(static_cast<std::byte>(value));
        return *this;
    }
    Request& port(std::uint16_t value) { return byte(value >> 8U).byte(value & 0xFFU); }
    Request& text(std::string_view value) {
        for (const char c : value) byte(static_cast<unsigned char>(c));
        return *this;
    }
    template <std::size_t n>
    Request& address(const std::array<std::uint8_t, n>& value) {
        for (const std::uint8_t one : value) byte(one);
        return *this;
    }
    [[nodiscard]] std::span<const std::byte> bytes() const noexcept { return bytes_; }

  private:
    std::vector<std::byte> bytes_;
};

template <std::size_t n>
bool is_known(const std::array<std::uint8_t, n>& address) {
    return std::any_of(address.begin(), address.end(), [](std::uint8_t byte) { return byte != 0; });
}

unsigned value(std::byte byte) {
    return std::to_integer<unsigned>(byte);
}

std::uint16_t port_at(std::span<const std::byte> reply, std::size_t at) {
    return static_cast<std::uint16_t>(value(reply[at]) << 8U | value(reply[at + 1]));
}

Result refuse(LogSink& log, Code code, std::string_view text) {
    log.line(Direction::error, text);
    return {code, "The proxy refused: " + std::string(text)};
}

Result cannot_ask(LogSink& log, const char* why) {
    log.line(Direction::error, why);
    return {Code::tunnel_refused, why};
}

// Reads that many bytes and shows the first two, which tell all that matters.
Result read_reply(ProxyWire& wire, LogSink& log, const char* name, std::span<std::byte> reply) {
    if (Result result = wire.receive(reply, wire.time_out()); !result.ok()) return result;
    log.line(Direction::received, print("%s: %02u %02u", name, value(reply[0]), value(reply[1])));
    return {};
}

Result socks4_refusal(LogSink& log, unsigned code) {
    switch (code) {
        case 91:
            return refuse(log, Code::tunnel_refused, "request rejected or failed.");
        case 92:  // the spelling is the message's own: it is compared with, not read
            return refuse(log, Code::proxy_refused,
                          "request rejected becasue SOCKS server cannot connect to identd on the client.");
        case 93:
            return refuse(log, Code::proxy_refused,
                          "request rejected because the client program and identd report different "
                          "user-ids.");
        default:
            return {Code::proxy_refused, "The proxy refused with the code " + std::to_string(code) + "."};
    }
}

Result socks5_refusal(LogSink& log, unsigned code) {
    constexpr std::array<const char*, 10> texts{nullptr,
                                                "general SOCKS server failure.",
                                                "connection not allowed by ruleset.",
                                                "Network unreachable.",
                                                "Host unreachable.",
                                                "Connection refused.",
                                                "TTL expired.",
                                                "Command not supported.",
                                                "Address type not supported.",
                                                "to X'FF' unassigned."};
    if (code > 0 && code < texts.size()) return refuse(log, Code::proxy_refused, texts[code]);
    return {Code::proxy_refused, "The proxy refused with the code " + std::to_string(code) + "."};
}

Result send_socks5_login(ProxyWire& wire, LogSink& log, const ProxyPlan& proxy) {
    Request login;
    login.byte(1).byte(static_cast<unsigned>(proxy.user.size())).text(proxy.user);
    login.byte(static_cast<unsigned>(proxy.password.size())).text(proxy.password);
    log.line(Direction::sent, "Socks5: 05 01 (USERNAME/PASSWORD)");
    if (Result result = wire.send(login.bytes()); !result.ok()) return result;
    std::array<std::byte, 2> reply{};
    if (Result result = read_reply(wire, log, "Socks5", reply); !result.ok()) return result;
    if (value(reply[1]) == 0) return {};
    Result refusal = socks5_refusal(log, value(reply[1]));
    refusal.detail = "The proxy refused the user name or the password.";
    refusal.about_credentials = true;
    return refusal;
}

// Asks which login the proxy wants, and logs in.
Result socks5_greet(ProxyWire& wire, LogSink& log, const ProxyPlan& proxy) {
    Request greeting;
    if (proxy.user.empty()) {
        greeting.byte(5).byte(1).byte(0);
        log.line(Direction::sent, "Socks5: 05 01");
    } else {
        greeting.byte(5).byte(2).byte(2).byte(0);
        log.line(Direction::sent, "Socks5: 05 02");
    }
    if (Result result = wire.send(greeting.bytes()); !result.ok()) return result;
    std::array<std::byte, 2> chosen{};
    if (Result result = read_reply(wire, log, "Socks5", chosen); !result.ok()) return result;
    switch (value(chosen[1])) {
        case 0:
            return {};
        case 2:
            return send_socks5_login(wire, log, proxy);
        default: {
            Result refusal = refuse(log, Code::proxy_refused, "Unknown authentication mode.");
            refusal.about_credentials = value(chosen[1]) == 0xFF;
            return refusal;
        }
    }
}

Request socks5_request(LogSink& log, const TunnelTarget& target) {
    Request request;
    request.byte(5).byte(target.command).byte(0);
    const char* kind = "IP V4";
    if (is_known(target.ipv6)) {
        kind = "IP V6";
        request.byte(4).address(target.ipv6);
    } else if (!is_known(target.ipv4) && !target.host.empty()) {
        kind = target.name_words;
        request.byte(3).byte(static_cast<unsigned>(target.host.size())).text(target.host);
    } else {
        request.byte(1).address(target.ipv4);
    }
    log.line(Direction::sent, print("Socks5: 05 %02u %s", unsigned{target.command}, kind));
    return request.port(target.port);
}

// The bytes of a reply by its address, told by the first five. An empty name is none: such a proxy means the
// ten bytes of a reply with an IPv4 address.
std::size_t reply_length(std::span<const std::byte> reply) {
    const unsigned type = value(reply[3]);
    const unsigned name = value(reply[4]);
    if (type == 4) return 4 + 16 + 2;
    return type == 3 && name > 0 ? 5 + name + 2 : 4 + 4 + 2;
}

// The rest of a reply must not be taken for the server's first words. It comes at once, or not at all.
Result drop_rest(ProxyWire& wire, std::size_t rest) {
    const auto until = std::min(from_now(longest_wait_for_rest), wire.time_out());
    for (; rest > 0; --rest) {
        std::byte dropped{};
        Result result = wire.receive({&dropped, 1}, until);
        if (result.kind() == Kind::stopped) return result;
        if (!result.ok()) break;
    }
    return {};
}

// Reads the answer to the request, all of it and nothing behind it.
Result read_socks5_answer(ProxyWire& wire, LogSink& log, std::uint16_t& port) {
    constexpr std::size_t head = 5;
    std::array<std::byte, 10> reply{};
    const std::span<std::byte> bytes(reply);
    if (Result result = read_reply(wire, log, "Socks5", bytes.first(2)); !result.ok()) return result;
    if (const unsigned code = value(reply[1]); code != 0) return socks5_refusal(log, code);
    if (Result result = wire.receive(bytes.subspan(2, head - 2), wire.time_out()); !result.ok())
        return result;
    const std::size_t length = reply_length(reply);
    const std::size_t read = std::min(length, reply.size());
    if (Result result = wire.receive(bytes.subspan(head, read - head), wire.time_out()); !result.ok())
        return result;
    port = port_at(reply, read - 2);
    return drop_rest(wire, length - read);
}

}  // namespace

Result open_socks4(ProxyWire& wire, LogSink& log, const ProxyPlan& proxy, const TunnelTarget& target,
                   std::uint16_t& port) {
    const bool by_name = !is_known(target.ipv4);
    if (by_name && target.host.empty()) return cannot_ask(log, "No host name and no address for the proxy.");
    // A zero byte would end the field early and make the rest another one.
    if (proxy.user.find('\0') != std::string::npos || target.host.find('\0') != std::string::npos)
        return cannot_ask(log, "The user name or the host name cannot be sent to the proxy.");
    Request request;
    request.byte(4).byte(target.command).port(target.port);
    request.address(by_name ? std::array<std::uint8_t, 4>{0, 0, 0, 1} : target.ipv4);
    request.text(proxy.user).byte(0);
    if (by_name) request.text(target.host).byte(0);
    log.line(Direction::sent, print("Socks4: 04 %02u", unsigned{target.command}));
    if (Result result = wire.send(request.bytes()); !result.ok()) return result;
    std::array<std::byte, 8> reply{};
    if (Result result = read_reply(wire, log, "Socks4", reply); !result.ok()) return result;
    const unsigned code = value(reply[1]);
    if (code != 90 && code != 0) return socks4_refusal(log, code);
    port = port_at(reply, 2);
    return {};
}

Result open_socks5(ProxyWire& wire, LogSink& log, const ProxyPlan& proxy, const TunnelTarget& target,
                   std::uint16_t& port) {
    if (proxy.user.size() > longest_field || proxy.password.size() > longest_field)
        return cannot_ask(log, "The user name or the password is too long for the proxy.");
    if (target.host.size() > longest_field)
        return cannot_ask(log, "The host name is too long for the proxy.");
    if (Result result = socks5_greet(wire, log, proxy); !result.ok()) return result;
    const Request request = socks5_request(log, target);
    if (Result result = wire.send(request.bytes()); !result.ok()) return result;
    return read_socks5_answer(wire, log, port);
}

}  // namespace vantlow
