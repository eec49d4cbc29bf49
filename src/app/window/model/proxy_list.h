// The proxy list as a dialog edits it.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/engine.h"
#include "store/proxies.h"
#include "store/settings.h"

namespace vantlow {

/// The proxies of the data folder, each change of which is written at once, and the one that is set for the
/// program ("Connection/Proxy"). Belongs to the engine's thread. Operations answer with a sentence in the
/// user's language; empty: done.
class ProxyList {
  public:
    ProxyList(Engine& engine, const Settings& settings) : engine_(engine), settings_(settings) {}

    /// Reads the list as it stands on the disk: to be called before it is shown.
    [[nodiscard]] std::string read();
    [[nodiscard]] const std::vector<CProxyNode>& all() const noexcept { return proxies_; }
    /// "socks5://user@host:1080", and whether it is the one that is set.
    [[nodiscard]] std::string line(std::size_t index) const;
    /// The one that is set by its number; none where no proxy of the list is.
    [[nodiscard]] std::optional<std::size_t> used() const;

    /// Whether the fields make a proxy.
    [[nodiscard]] static bool is_proxy(const CProxyNode& proxy);
    [[nodiscard]] std::string add(const CProxyNode& proxy);
    [[nodiscard]] std::string change(std::size_t index, const CProxyNode& proxy);
    /// The numbers of those behind it become smaller: a setting that names one of them follows.
    [[nodiscard]] std::string remove(std::size_t index);
    /// Has the program go through it; none: the setting goes back to its default.
    [[nodiscard]] std::string use(std::optional<std::size_t> index);
    /// Asks a server of the internet through this proxy, as SettingPages::test_proxy does through the one
    /// that is set.
    [[nodiscard]] std::unique_ptr<Inquiry> test(std::size_t index, std::function<void()> wake) const;

  private:
    [[nodiscard]] std::string read_for(std::size_t index);
    [[nodiscard]] std::string write(std::vector<CProxyNode> proxies);

    Engine& engine_;
    const Settings& settings_;
    std::vector<CProxyNode> proxies_;
};

}  // namespace vantlow
