// The servers that have a running torrent's files: which, how they are asked, and when.
#include <algorithm>

#include "engine/torrent_run.h"
#include "transfer/http/auth_scheme.h"
#include "transfer/job/proxy_rules.h"

namespace vantlow {
namespace {

// Each has a thread and a connection; documents name a handful.
constexpr std::size_t most_web_seeds = 16;

}  // namespace

// The servers that the document and the link name; each is shown to the swarm at an address that no peer has.
std::vector<std::unique_ptr<WebSeed>> TorrentRun::make_web_seeds() {
    std::vector<std::unique_ptr<WebSeed>> seeds;
    std::vector<std::string> addresses = shelf_.find_web_seeds(magnet_.info_hash);
    addresses.insert(addresses.end(), magnet_.web_seeds.begin(), magnet_.web_seeds.end());
    WebSeedServices services{
        *loop_, services_.connections, services_.libraries, services_.threads, log_, stop_, {}};
    fill_seed_errand(services.errand);
    for (const std::string& address : addresses) {
        const auto number = static_cast<std::uint16_t>(seeds.size() + 1);
        if (seeds.size() == most_web_seeds) break;
        const bool is_known = std::any_of(seeds.begin(), seeds.end(),
                                          [&](const auto& seed) { return seed->address() == address; });
        if (is_known) continue;
        if (!is_web_seed(address)) {
            log_.line(Direction::error,
                      "This web seed cannot be used: " + services.errand.show(to_utf16(address)));
            continue;
        }
        log_.line(Direction::note, "Web seed: " + services.errand.show(to_utf16(address)));
        seeds.push_back(std::make_unique<WebSeed>(address, content_, services,
                                                  *SocketAddress::from_literal("0.0.0.0", number)));
    }
    return seeds;
}

// Asked as the files of a plain job are.
void TorrentRun::fill_seed_errand(HttpErrand& errand) const {
    const Settings& settings = services_.settings;
    errand.http.agent = job_.agent.empty() ? options_.default_agent : job_.agent;
    errand.with_cookies = false;
    errand.timeout = std::chrono::seconds(settings.number(setting::connect_timeout));
    errand.trust.verify = settings.flag(setting::verify_peer) && !(job_.rules && job_.rules->insecure);
    errand.trust.ca_file =
        job_.rules && !job_.rules->ca_file.empty() ? job_.rules->ca_file : settings.text(setting::ca_file);
    errand.limits.most = settings.number(setting::max_per_server);
    errand.limits.interval = std::chrono::milliseconds(settings.number(setting::connect_interval));
    errand.proxy_for = [this](const Target& target) {
        if (proxy_.is_used()) return proxy_;  // the peers' is everybody's
        ProxyPlan proxy = options_.proxy;
        if (options_.proxy_rules)
            proxy = options_.proxy_rules->choose(target.scheme, target.host, target.port);
        proxy.resolve_here = !services_.settings.flag(setting::proxy_resolves);
        if (!proxy.user.empty())
            add_login(proxy, services_.libraries, &services_.connections.memory.of<LoginMemory>());
        return proxy;
    };
}

WebSeed* TorrentRun::web_seed_at(const SocketAddress& address) const {
    if (web_seeds_ == nullptr) return nullptr;
    const auto at = std::find_if(web_seeds_->begin(), web_seeds_->end(),
                                 [&](const auto& seed) { return seed->shown() == address; });
    return at == web_seeds_->end() ? nullptr : at->get();
}

void TorrentRun::call_web_seeds() {
    if (web_seeds_ == nullptr || done_ == size_) return;
    for (const auto& seed : *web_seeds_) {
        if (auto stream = seed->connect()) swarm_->take_inner(std::move(stream));
    }
}

}  // namespace vantlow
