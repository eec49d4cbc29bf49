// The servers that have a running torrent's files: which, how they are asked, and when.
#include <algorithm>

#include "engine/inquiry.h"
#include "engine/torrent_run.h"

namespace vantlow {
namespace {

// Each has a thread and a connection; documents name a handful.
constexpr std::size_t most_web_seeds = 16;

}  // namespace

// The servers that the document and the link name; each is shown to the swarm at an address that no peer has.
std::vector<std::unique_ptr<WebSeed>> TorrentRun::make_web_seeds() {
    std::vector<std::unique_ptr<WebSeed>> seeds;
    std::vector<std::pair<WebSeedKind, std::string>> named;
    for (const std::string& address : shelf_.find_web_seeds(magnet_.info_hash))
        named.emplace_back(WebSeedKind::files, address);
    for (const std::string& address : magnet_.web_seeds) named.emplace_back(WebSeedKind::files, address);
    for (const std::string& address : shelf_.find_http_seeds(magnet_.info_hash))
        named.emplace_back(WebSeedKind::pieces, address);
    WebSeedServices services{*loop_, services_.connections, services_.libraries, services_.threads, log_,
                             stop_,  seed_errand()};
    for (const auto& one : named) {
        const std::string& address = one.second;
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
        seeds.push_back(std::make_unique<WebSeed>(address, one.first, content_, services,
                                                  *SocketAddress::from_literal("0.0.0.0", number)));
    }
    return seeds;
}

// Asked as the files of a plain job are, but for logins and cookies. The peers' proxy is everybody's. It may
// outlive this object.
HttpErrand TorrentRun::seed_errand() const {
    HttpErrand errand = errand_by_rules(job_, options_, services_);
    errand.with_cookies = false;
    errand.way = reach_.way();
    if (reach_.is_behind_proxy())
        errand.proxy_for = [proxy = reach_.proxy()](const Target&) { return proxy; };
    return errand;
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
