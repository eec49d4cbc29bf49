#include "bt/peer/choker.h"

#include <algorithm>

namespace vantlow {

std::uint32_t Choker::by_chance(const std::vector<Peer>& peers, const std::vector<std::uint32_t>& chosen,
                                Clock::time_point now) {
    constexpr std::size_t weight_of_new = 3;
    std::vector<std::uint32_t> lots;
    for (const Peer& peer : peers) {
        const bool has_slot = std::find(chosen.begin(), chosen.end(), peer.peer) != chosen.end();
        if (!peer.is_interested || has_slot) continue;
        lots.insert(lots.end(), now - peer.came < newcomer ? weight_of_new : 1, peer.peer);
    }
    return lots.empty() ? 0 : lots[random_() % lots.size()];
}

std::vector<std::uint32_t> Choker::choose(const std::vector<Peer>& peers, std::size_t slots,
                                          Clock::time_point now) {
    std::vector<std::uint32_t> chosen;
    if (slots == 0) return chosen;
    const bool is_round = now >= next_round_;
    if (is_round) next_round_ = now + round;
    std::vector<Peer> able;
    for (const Peer& peer : peers) {
        if (peer.is_interested && !peer.is_snubbed) able.push_back(peer);
    }
    // Between two rounds whoever has a slot keeps it, and the best of the others get those that are free.
    std::stable_sort(able.begin(), able.end(), [&](const Peer& a, const Peer& b) {
        if (!is_round && a.is_unchoked != b.is_unchoked) return a.is_unchoked;
        return a.rate > b.rate;
    });
    const std::size_t earned = std::max<std::size_t>(slots - 1, 1);
    const auto find = [&](std::uint32_t wanted) {
        return std::find_if(peers.begin(), peers.end(),
                            [&](const Peer& peer) { return peer.peer == wanted && peer.is_interested; });
    };
    const bool keeps_chance = now < next_chance_ && find(chance_) != peers.end();
    for (const Peer& peer : able) {
        if (chosen.size() >= earned) break;
        if (!keeps_chance || peer.peer != chance_) chosen.push_back(peer.peer);
    }
    if (slots == 1) return chosen;
    if (!keeps_chance) {
        chance_ = by_chance(peers, chosen, now);
        next_chance_ = now + chance_round;
    }
    if (chance_ != 0) chosen.push_back(chance_);
    return chosen;
}

}  // namespace vantlow
