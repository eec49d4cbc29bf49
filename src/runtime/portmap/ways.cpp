#include "runtime/portmap/ways.h"

#ifndef _WIN32
#include <ifaddrs.h>
#include <unistd.h>
#endif

#include <cstring>

namespace {

/// A datagram socket that the system has found a way for.
class Probe {
  public:
    explicit Probe(int family) {
#ifdef _WIN32
        socket_ = socket(family, SOCK_DGRAM, 0);
#else
        socket_ = socket(family, SOCK_DGRAM | SOCK_CLOEXEC, 0);
#endif
    }
    ~Probe() {
        if (!is_there()) return;
#ifdef _WIN32
        closesocket(socket_);
#else
        close(socket_);
#endif
    }
    Probe(const Probe&) = delete;
    Probe& operator=(const Probe&) = delete;

    template <class Address>
    [[nodiscard]] bool finds_way_to(const Address& address) const {
        return is_there() &&
               connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    }
    template <class Address>
    [[nodiscard]] bool tell_own(Address& address) const {
        socklen_t size = sizeof address;
        return getsockname(socket_, reinterpret_cast<sockaddr*>(&address), &size) == 0;
    }

  private:
#ifdef _WIN32
    [[nodiscard]] bool is_there() const {
        return socket_ != INVALID_SOCKET;
    }
    SOCKET socket_;
#else
    [[nodiscard]] bool is_there() const {
        return socket_ >= 0;
    }
    int socket_;
#endif
};

#ifndef _WIN32
std::string interface_of(const in6_addr& address) {
    ifaddrs* all = nullptr;
    if (getifaddrs(&all) != 0) return {};
    std::string name;
    for (const ifaddrs* one = all; one != nullptr && name.empty(); one = one->ifa_next) {
        if (one->ifa_addr == nullptr || one->ifa_addr->sa_family != AF_INET6) continue;
        const auto& its = reinterpret_cast<const sockaddr_in6*>(one->ifa_addr)->sin6_addr;
        if (std::memcmp(&its, &address, sizeof its) == 0) name = one->ifa_name;
    }
    freeifaddrs(all);
    return name;
}
#endif

}  // namespace

bool has_way_to_devices() {
    sockaddr_in devices{};
    devices.sin_family = AF_INET;
    devices.sin_port = htons(1900);
    inet_pton(AF_INET, "239.255.255.250", &devices.sin_addr);
    return Probe(AF_INET).finds_way_to(devices);
}

std::optional<OutwardIpv6> outward_ipv6() {
    sockaddr_in6 world{};
    world.sin6_family = AF_INET6;
    world.sin6_port = htons(9);
    inet_pton(AF_INET6, "2000::1", &world.sin6_addr);  // whoever it is, the way there is that to all
    const Probe probe(AF_INET6);
    sockaddr_in6 own{};
    if (!probe.finds_way_to(world) || !probe.tell_own(own)) return std::nullopt;
    // 2000::/3 are the addresses of the world (RFC 4291).
    if ((own.sin6_addr.s6_addr[0] & 0xE0U) != 0x20U) return std::nullopt;
    char text[INET6_ADDRSTRLEN] = "";
    if (inet_ntop(AF_INET6, &own.sin6_addr, text, sizeof text) == nullptr) return std::nullopt;
    OutwardIpv6 outward;
    outward.text = text;
#ifndef _WIN32
    outward.interface_name = interface_of(own.sin6_addr);
#endif
    return outward;
}
