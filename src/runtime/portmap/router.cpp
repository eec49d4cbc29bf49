// The router in front of this machine: over NAT-PMP by libnatpmp, which tells within a second or two, and
// over UPnP by miniupnpc where nobody answers that; its firewall of IPv6 over UPnP.
#ifndef _WIN32
#include <poll.h>
#endif

#include <miniupnpc/miniupnpc.h>
#include <miniupnpc/upnpcommands.h>
#include <miniupnpc/upnperrors.h>
#ifdef VANTLOW_HAS_NATPMP
#include <natpmp.h>
#endif

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <string>

#include "runtime/operations.h"
#include "runtime/portmap/firewall.h"
#include "runtime/portmap/ways.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr int upnp_patience = 2000;  // milliseconds
constexpr unsigned char upnp_hops = 2;
// Some routers pass ports on without an end or not at all.
constexpr int only_permanent = 725;
constexpr int already_taken = 718;

void put_text(const char* text, char* into, std::size_t room) {
    if (into != nullptr && room > 0) std::snprintf(into, room, "%s", text);
}

#ifdef VANTLOW_HAS_NATPMP

/// A router's NAT-PMP.
class NatPmp {
  public:
    NatPmp() : is_there_(initnatpmp(&natpmp_, 0, 0) == 0) {}
    ~NatPmp() {
        if (is_there_) closenatpmp(&natpmp_);
    }
    NatPmp(const NatPmp&) = delete;
    NatPmp& operator=(const NatPmp&) = delete;

    bool find(const Asker& asker, std::string& address) {
        natpmpresp_t answer{};
        if (!is_there_ || sendpublicaddressrequest(&natpmp_) < 0 || hear(asker, answer) < 0) return false;
        char text[INET_ADDRSTRLEN] = "";
        if (inet_ntop(AF_INET, &answer.pnu.publicaddress.addr, text, sizeof text) != nullptr) address = text;
        return true;
    }
    /// Passes on for that long; 0 seconds: not any more. The seconds, or none where it fails.
    std::optional<std::uint32_t> order(int protocol, std::uint16_t port, std::uint32_t seconds,
                                       std::string& why) {
        natpmpresp_t answer{};
        const int kind = protocol == VANTLOW_PORT_TCP ? NATPMP_PROTOCOL_TCP : NATPMP_PROTOCOL_UDP;
        // A mapping that ends must not name an outer port (RFC 6886, 3.4).
        const std::uint16_t outer = seconds == 0 ? 0 : port;
        if (sendnewportmappingrequest(&natpmp_, kind, port, outer, seconds) < 0) {
            why = "The router cannot be asked.";
            return std::nullopt;
        }
        if (hear({}, answer) < 0) {
            why = "The router refuses, or does not answer.";
            return std::nullopt;
        }
        const auto& mapping = answer.pnu.newportmapping;
        if (seconds == 0 || mapping.mappedpublicport == port) return mapping.lifetime;
        // Trackers and peers are told the port that this side listens at.
        std::string ignored;
        static_cast<void>(order(protocol, port, 0, ignored));
        why = "The router has given this port to another machine.";
        return std::nullopt;
    }

  private:
    static constexpr Clock::duration patience = 2s;  ///< three requests: at once, after 250 ms, after 750 ms
    static constexpr int slice = 100;                ///< milliseconds

    // Waits for the answer to what was sent last; below 0 where none comes.
    int hear(const Asker& asker, natpmpresp_t& answer) {
        const auto until = Clock::now() + patience;
        int state = NATPMP_TRYAGAIN;
        while (state == NATPMP_TRYAGAIN && Clock::now() < until && !asker.has_left()) {
            pollfd waiting{};
            waiting.fd = static_cast<decltype(waiting.fd)>(natpmp_.s);
            waiting.events = POLLIN;
#ifdef _WIN32
            WSAPoll(&waiting, 1, slice);
#else
            poll(&waiting, 1, slice);
#endif
            state = readnatpmpresponseorretry(&natpmp_, &answer);
        }
        return state;
    }

    natpmp_t natpmp_{};
    const bool is_there_;
};

#else

/// A library without NAT-PMP finds no router that speaks it.
class NatPmp {
  public:
    bool find(const Asker&, std::string&) { return false; }
    std::optional<std::uint32_t> order(int, std::uint16_t, std::uint32_t, std::string&) {
        return std::nullopt;
    }
};

#endif

/// A router's UPnP.
class Upnp {
  public:
    Upnp() = default;
    ~Upnp() {
        if (is_there_) FreeUPNPUrls(&urls_);
    }
    Upnp(const Upnp&) = delete;
    Upnp& operator=(const Upnp&) = delete;

    bool find(const Asker& asker, std::string& address) {
        if (!has_way_to_devices()) return false;
        int error = 0;
        UPNPDev* const devices = upnpDiscover(upnp_patience, nullptr, nullptr, 0, 0, upnp_hops, &error);
        if (devices == nullptr) return false;
        int kind = 0;
        if (!asker.has_left()) {
#if MINIUPNPC_API_VERSION >= 18
            char outer[64] = "";
            kind = UPNP_GetValidIGD(devices, &urls_, &data_, here_, sizeof here_, outer, sizeof outer);
#else
            kind = UPNP_GetValidIGD(devices, &urls_, &data_, here_, sizeof here_);
#endif
        }
        freeUPNPDevlist(devices);
        is_there_ = kind != 0;
        // Others are routers that are not connected, or no routers.
#if MINIUPNPC_API_VERSION >= 18
        if (kind != 1 && kind != 2) return false;
#else
        if (kind != 1) return false;
#endif
        char text[40] = "";
        if (UPNP_GetExternalIPAddress(urls_.controlURL, data_.first.servicetype, text) == UPNPCOMMAND_SUCCESS)
            address = text;
        return true;
    }
    std::uint32_t open(int protocol, std::uint16_t port, std::uint32_t seconds, const char* name,
                       std::string& why) {
        int error = add(protocol, port, seconds, name);
        if (error == only_permanent) error = add(protocol, port, 0, name);
        if (error == UPNPCOMMAND_SUCCESS) return seconds;
        const char* const text = strupnperror(error);
        why = error == already_taken
                  ? "The router has given this port to another machine."
                  : "The router refuses: " + std::string(text != nullptr ? text : "no reason") + ".";
        return 0;
    }
    bool close(int protocol, std::uint16_t port) {
        return UPNP_DeletePortMapping(urls_.controlURL, data_.first.servicetype, std::to_string(port).c_str(),
                                      words_of(protocol), nullptr) == UPNPCOMMAND_SUCCESS;
    }

  private:
    static const char* words_of(int protocol) {
        return protocol == VANTLOW_PORT_TCP ? "TCP" : "UDP";
    }
    int add(int protocol, std::uint16_t port, std::uint32_t seconds, const char* name) {
        const std::string number = std::to_string(port);
        return UPNP_AddPortMapping(urls_.controlURL, data_.first.servicetype, number.c_str(), number.c_str(),
                                   here_, name, words_of(protocol), nullptr, std::to_string(seconds).c_str());
    }

    UPNPUrls urls_{};
    IGDdatas data_{};
    char here_[64] = "";  ///< this machine's address, as the router sees it
    bool is_there_ = false;
};

}  // namespace

/// One of the three, and the others null.
struct VantlowRouter {
    std::unique_ptr<NatPmp> natpmp;
    std::unique_ptr<Upnp> upnp;
    std::unique_ptr<Firewall> firewall;
    std::string address;
};

extern "C" {

VANTLOW_EXPORT PortMap_Find_t PortMap_Find;
VANTLOW_EXPORT PortMap_FindFirewall_t PortMap_FindFirewall;
VANTLOW_EXPORT PortMap_Forget_t PortMap_Forget;
VANTLOW_EXPORT PortMap_Describe_t PortMap_Describe;
VANTLOW_EXPORT PortMap_Open_t PortMap_Open;
VANTLOW_EXPORT PortMap_Close_t PortMap_Close;

VantlowRouter* PortMap_Find(int (*stopped)(void*), void* context) try {
    const Asker asker{stopped, context};
    auto router = std::make_unique<VantlowRouter>();
    router->natpmp = std::make_unique<NatPmp>();
    if (router->natpmp->find(asker, router->address)) return router.release();
    router->natpmp.reset();
    if (asker.has_left()) return nullptr;
    router->upnp = std::make_unique<Upnp>();
    return router->upnp->find(asker, router->address) ? router.release() : nullptr;
} catch (...) {
    return nullptr;  // no memory
}

VantlowRouter* PortMap_FindFirewall(int (*stopped)(void*), void* context, int* has_address) try {
    *has_address = outward_ipv6() ? 1 : 0;
    auto router = std::make_unique<VantlowRouter>();
    router->firewall = std::make_unique<Firewall>();
    return router->firewall->find({stopped, context}, router->address) ? router.release() : nullptr;
} catch (...) {
    return nullptr;  // no memory
}

void PortMap_Forget(VantlowRouter* router) {
    const std::unique_ptr<VantlowRouter> ends(router);
}

void PortMap_Describe(const VantlowRouter* router, char* protocol, char* address, std::size_t room) {
    put_text(router->natpmp ? "NAT-PMP" : "UPnP", protocol, room);
    put_text(router->address.c_str(), address, room);
}

std::uint32_t PortMap_Open(VantlowRouter* router, int protocol, std::uint16_t port, std::uint32_t seconds,
                           const char* name, char* why, std::size_t room) try {
    std::string reason;
    const std::uint32_t granted = router->firewall ? router->firewall->open(protocol, port, seconds, reason)
                                  : router->natpmp
                                      ? router->natpmp->order(protocol, port, seconds, reason).value_or(0)
                                      : router->upnp->open(protocol, port, seconds, name, reason);
    put_text(reason.c_str(), why, room);
    return granted;
} catch (...) {
    put_text("There is no memory.", why, room);
    return 0;
}

int PortMap_Close(VantlowRouter* router, int protocol, std::uint16_t port) try {
    if (router->firewall) return router->firewall->close(protocol, port) ? 1 : 0;
    std::string reason;
    if (router->natpmp) return router->natpmp->order(protocol, port, 0, reason) ? 1 : 0;
    return router->upnp->close(protocol, port) ? 1 : 0;
} catch (...) {
    return 0;
}

}  // extern "C"
