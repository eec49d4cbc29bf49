#include "bt/local_discovery.h"

#include <algorithm>
#include <array>

#include "base/codes.h"
#include "base/guid.h"
#include "base/text.h"
#include "store/job.h"

namespace vantlow {
namespace {

using namespace std::chrono_literals;

constexpr std::uint16_t group_port = 6771;
constexpr Clock::duration between_calls = 5min;
constexpr Clock::duration least_between_calls = 1min;
constexpr Clock::duration a_rest = 1s;
constexpr std::size_t largest_call = 1400;
constexpr std::size_t longest_cookie = 64;
constexpr std::string_view first_line = "BT-SEARCH * HTTP/1.1\r\n";

std::optional<InfoHash> read_hash(std::string_view text) {
    const auto bytes = from_hex(text);
    InfoHash hash;
    if (!bytes || bytes->size() != hash.size()) return std::nullopt;
    std::copy(bytes->begin(), bytes->end(), hash.begin());
    return hash;
}

void read_line(std::string_view line, LocalCall& call) {
    const auto colon = line.find(':');
    if (colon == std::string_view::npos) return;
    const std::string_view name = line.substr(0, colon);
    const std::string_view value = trim(line.substr(colon + 1));
    if (iequals(name, "Port")) {
        const auto port = parse_decimal(value);
        if (port && *port > 0 && *port < 65536) call.port = static_cast<std::uint16_t>(*port);
    } else if (iequals(name, "cookie")) {
        call.cookie = value.substr(0, longest_cookie);
    } else if (iequals(name, "Infohash")) {
        if (const auto hash = read_hash(value)) call.torrents.push_back(*hash);
    }
}

}  // namespace

std::string build_local_call(std::string_view group, const LocalCall& call) {
    std::string text(first_line);
    text.append("Host: ").append(group).append("\r\nPort: ").append(std::to_string(call.port)).append("\r\n");
    for (const InfoHash& torrent : call.torrents) text += "Infohash: " + to_hex(torrent) + "\r\n";
    if (!call.cookie.empty()) text += "cookie: " + call.cookie + "\r\n";
    return text + "\r\n\r\n";
}

std::optional<LocalCall> parse_local_call(std::string_view datagram) {
    if (datagram.size() > largest_call || !datagram.starts_with(first_line)) return std::nullopt;
    LocalCall call;
    for (std::string_view rest = datagram.substr(first_line.size()); !rest.empty();) {
        const std::string_view line = rest.substr(0, rest.find("\r\n"));
        if (line.empty()) break;
        read_line(line, call);
        rest.remove_prefix(std::min(rest.size(), line.size() + 2));
    }
    if (call.port == 0 || call.torrents.empty()) return std::nullopt;
    return call;
}

LocalDiscovery::LocalDiscovery(net::Network& network, const InfoHash& torrent, std::uint16_t port,
                               Found found)
    : network_(network),
      torrent_(torrent),
      port_(port),
      cookie_(guid_text(new_guid()).substr(0, 8)),
      found_(std::move(found)),
      calls_(network.timers()),
      rest_(network.timers()) {}

bool LocalDiscovery::start() {
    for (const char* const host : {"239.192.152.143", "ff15::efc0:988f"}) {
        const auto address = SocketAddress::from_literal(host, group_port);
        auto datagrams = network_.join(*address);
        if (!datagrams) continue;
        const std::string name = address->is_ipv6() ? "[" + std::string(host) + "]" : host;
        groups_.push_back({*address, name + ":" + std::to_string(group_port), *std::move(datagrams)});
    }
    for (Group& group : groups_) group.datagrams->when_readable([this, &group] { read_some(group); });
    if (!groups_.empty()) call_at(network_.now());
    return !groups_.empty();
}

void LocalDiscovery::call() {
    for (Group& group : groups_) {
        const std::string text = build_local_call(group.text, {port_, cookie_, {torrent_}});
        // A call that the system does not take is made again with the next one.
        static_cast<void>(group.datagrams->send(std::as_bytes(std::span(text)), group.address));
    }
    called_ = network_.now();
    call_at(called_ + between_calls);
}

void LocalDiscovery::call_at(Clock::time_point moment) {
    next_call_ = moment;
    calls_.start(moment, [this] { call(); });
}

// A failure of the system makes a pause, and so does a flood: what the system has no room for is lost then.
void LocalDiscovery::read_some(Group& group) {
    std::array<std::byte, largest_call + 1> room;
    for (int calls = 0; calls < most_calls; ++calls) {
        SocketAddress from;
        const net::Step step = group.datagrams->receive(room, from);
        if (step.state == net::Step::State::again)
            return group.datagrams->when_readable([this, &group] { read_some(group); });
        if (step.state != net::Step::State::moved) break;
        take({reinterpret_cast<const char*>(room.data()), step.bytes}, from);
    }
    rest_.start(network_.now() + a_rest, [this] {
        for (Group& each : groups_) each.datagrams->when_readable([this, &each] { read_some(each); });
    });
}

void LocalDiscovery::take(std::string_view datagram, SocketAddress from) {
    const auto call = parse_local_call(datagram);
    if (!call || call->cookie == cookie_) return;
    if (std::find(call->torrents.begin(), call->torrents.end(), torrent_) == call->torrents.end()) return;
    from.set_port(call->port);
    if (found_(from)) call_at(std::min(next_call_, std::max(called_ + least_between_calls, network_.now())));
}

}  // namespace vantlow
