// The firewall of IPv6 in a router.
#pragma once

#include <miniupnpc/miniupnpc.h>

#include <cstdint>
#include <map>
#include <string>
#include <utility>

#include "runtime/portmap/ways.h"

/// Lets calls in for ports of this machine: the holes that UPnP's WANIPv6FirewallControl:1 (IGD:2) makes.
class Firewall {
  public:
    Firewall() = default;
    ~Firewall();
    Firewall(const Firewall&) = delete;
    Firewall& operator=(const Firewall&) = delete;

    /// Looks for a router that has one; `address` becomes this machine's, which the holes lead to.
    bool find(const Asker& asker, std::string& address);
    /// As PortMap_Open.
    std::uint32_t open(int protocol, std::uint16_t port, std::uint32_t seconds, std::string& why);
    bool close(int protocol, std::uint16_t port);

  private:
    using Port = std::pair<int, std::uint16_t>;
    struct Hole {
        std::string id;       ///< the router's
        std::string address;  ///< of this machine, when it was made
    };
    int make(const Port& port, const std::string& address, std::uint32_t seconds);
    [[nodiscard]] const char* service() const { return data_.IPv6FC.servicetype; }

    UPNPUrls urls_{};
    IGDdatas data_{};
    bool is_there_ = false;
    std::map<Port, Hole> holes_;
};
