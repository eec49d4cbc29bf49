#include "app/torrent_run.h"

#include <algorithm>
#include <iterator>

#include "base/text.h"
#include "bt/magnet.h"
#include "bt/torrent_settings.h"
#include "platform/process.h"

namespace vantlow {
namespace {

// What is not known is more than nothing, so that trackers give seeders too.
constexpr std::int64_t left_unknown = 16384;
// The log of a job is for reading: of a swarm's peers it shows the first.
constexpr std::size_t most_logged = 100;

std::string new_peer_id() {
    unsigned char bytes[16];
    random_guid(bytes);
    Guid guid;
    std::copy(std::begin(bytes), std::end(bytes), guid.bytes.begin());
    return make_peer_id(guid);
}

}  // namespace

std::unique_ptr<TorrentRun> TorrentRun::begin(const CJobNode& job, const AnnounceServices& services,
                                              const ProxyPlan& proxy, CJobLog::Listener listener,
                                              StopSource& parent, std::string& error) {
    const auto magnet = parse_magnet(to_utf8(job.address), default_magnet_trackers(services.settings));
    if (!magnet) {
        error = "This kind of torrent address cannot be used: " + to_utf8(job.address);
        return nullptr;
    }
    std::unique_ptr<TorrentRun> run(new TorrentRun(services, std::move(listener), parent));
    run->identity_.info_hash = magnet->info_hash;
    run->identity_.peer_id = new_peer_id();
    run->identity_.proxy = proxy;
    run->identity_.left = job.file_size > 0 ? job.file_size : left_unknown;
    std::vector<std::string> trackers;
    for (const std::string& tracker : magnet->trackers) trackers.push_back(tracker_from_magnet(tracker));
    run->announces_.start(trackers);
    return run;
}

void TorrentRun::look() {
    if (logged_ < std::min(peers(), most_logged)) {
        const std::vector<SocketAddress> known = identity_.peers.peers();
        for (; logged_ < std::min(known.size(), most_logged); ++logged_) {
            log_.line(Direction::note, "Peer: " + peer_text(known[logged_]));
        }
    }
    if (!told_ && has_asked_all()) {
        told_ = true;
        log_.line(Direction::error, summary());
    }
    announces_.revive();
}

std::string TorrentRun::summary() const {
    return "Peers cannot be fetched from yet: the BitTorrent network's trackers were asked, " +
           std::to_string(peers()) + " peers are known, the job waits.";
}

}  // namespace vantlow
