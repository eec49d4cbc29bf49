// Which proxy an address goes through.
#pragma once

#include <map>
#include <string>
#include <string_view>

#include "store/job.h"
#include "transfer/connection/tunnel.h"

namespace vantlow {

/// A proxy of the store as a connection needs it. Kinds that are none, and no host, give a direct one.
ProxyPlan proxy_plan(const CProxyNode& proxy);

/// Proxies by scheme, and the hosts that need none. Read by any thread once it is made.
class ProxyRules {
  public:
    /// For the addresses of this scheme ("http", "https", "ftp"; "ftps" and "sftp" follow "ftp"); "" is for
    /// all that have none of their own.
    void set(const std::string& scheme, ProxyPlan proxy) { by_scheme_[scheme] = std::move(proxy); }
    /// Hosts that are reached directly: names (which stand for the names below them too), addresses and
    /// address ranges ("10.0.0.0/8"), each with a port if it is meant for that alone, commas or blanks
    /// between them; "*" is all.
    void set_direct(std::string hosts) { direct_ = std::move(hosts); }

    /// The proxy for a server; a direct one where there is none. `host` without brackets.
    [[nodiscard]] const ProxyPlan& choose(const std::string& scheme, std::string_view host,
                                          std::uint16_t port) const;
    [[nodiscard]] bool is_direct(std::string_view host, std::uint16_t port) const;

  private:
    std::map<std::string, ProxyPlan> by_scheme_;
    std::string direct_;
    ProxyPlan none_;
};

}  // namespace vantlow
