#include "app/torrent_desk.h"

#include <algorithm>

#include "transfer/job/proxy_rules.h"

namespace vantlow {

ProxyPlan torrent_proxy(const RunOptions& run) {
    // Trackers are web servers for the most part: what is meant for those is meant for them.
    if (run.proxy.kind != ProxyPlan::direct || !run.proxy_rules) return run.proxy;
    return run.proxy_rules->choose("http", {}, 0);
}

bool TorrentDesk::is_asking() const noexcept {
    return std::any_of(runs_.begin(), runs_.end(), [](const auto& entry) { return !entry.second.told; });
}

void TorrentDesk::begin(const CJobNode& job, const ProxyPlan& proxy, CJobLog::Listener listener) {
    Entry& entry = runs_[job.identity];
    entry = {};
    entry.run = TorrentRun::begin(job, services_, proxy, std::move(listener), parent_, entry.failure);
}

void TorrentDesk::look(const std::function<void(const Guid&, const std::string&)>& asked) {
    for (auto& [identity, entry] : runs_) {
        if (entry.run) entry.run->look();
        if (entry.told || (entry.run && !entry.run->has_asked_all())) continue;
        entry.told = true;
        if (asked) asked(identity, entry.run ? entry.run->summary() : entry.failure);
    }
}

void TorrentDesk::end_all() {
    for (auto& [identity, entry] : runs_) {
        if (entry.run) entry.run->ask_to_end();
    }
    runs_.clear();
}

}  // namespace vantlow
