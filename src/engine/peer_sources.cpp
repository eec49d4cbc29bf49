#include "engine/peer_sources.h"

#include <algorithm>

#include "bt/torrent_settings.h"

namespace vantlow {
namespace {

using namespace std::chrono_literals;

// A lonely torrent is searched for again, less and less often.
constexpr Clock::duration first_pause = 30s;
constexpr Clock::duration longest_pause = 10min;

}  // namespace

void PeerSources::begin(net::Network& network, const NetworkWay& way, const InfoHash& torrent,
                        std::uint16_t port, std::span<const SocketAddress> nodes) {
    if (has_begun_) return;
    has_begun_ = true;
    torrent_ = torrent;
    found_.emplace();
    told_ = in_table_ = near_ = 0;
    if (table_ != nullptr && settings_.flag(setting::dht)) begin_table(way, port, nodes);
    if (port != 0 && settings_.flag(setting::local_discovery)) begin_near(network, port);
}

void PeerSources::begin_table(const NetworkWay& way, std::uint16_t port,
                              std::span<const SocketAddress> nodes) {
    if (const Result result = table_->begin(torrent_, port, *found_, way); !result.ok()) {
        log_.line(Direction::note, "No peers come from the distributed hash table: " + result.message());
        return;
    }
    uses_table_ = true;
    table_->add_nodes(nodes);
    pause_ = first_pause;
    next_search_ = Clock::now() + pause_;
}

void PeerSources::begin_near(net::Network& network, std::uint16_t port) {
    discovery_.emplace(network, torrent_, port, [this](const SocketAddress& peer) {
        const std::size_t added = found_->add({&peer, 1});
        near_ += added;
        return added > 0;
    });
    if (!discovery_->start()) discovery_.reset();
}

void PeerSources::call_near_again(net::Network& network, std::uint16_t port) {
    if (!discovery_) return;
    discovery_.reset();
    begin_near(network, port);
}

void PeerSources::end() {
    if (uses_table_) table_->end(torrent_, *found_);
    uses_table_ = has_begun_ = false;
    discovery_.reset();
    found_.reset();
}

void PeerSources::look(bool is_alone) {
    if (!uses_table_ || !is_alone || Clock::now() < next_search_) return;
    table_->search_again(torrent_);
    pause_ = std::min(pause_ * 2, longest_pause);
    next_search_ = Clock::now() + pause_;
}

std::vector<SocketAddress> PeerSources::fresh() {
    if (!found_) return {};
    in_table_ = found_->size() - near_;
    return found_->fresh(told_);
}

void PeerSources::add_node(const SocketAddress& node) const {
    if (uses_table_) table_->add_nodes({&node, 1});
}

}  // namespace vantlow
