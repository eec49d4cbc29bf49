#include "bt/swarm/blame_book.h"

#include <algorithm>

namespace vantlow {

Picker::Peer BlameBook::wrong(std::uint32_t piece, const std::vector<Picker::Peer>& givers,
                              const std::vector<InfoHash>& blocks) {
    if (givers.empty()) return 0;
    const bool is_one = std::all_of(givers.begin(), givers.end(),
                                    [&](Picker::Peer giver) { return giver == givers.front(); });
    auto& tries = wrong_[piece];
    if (tries.size() < most_tries) tries.push_back({givers, blocks});
    return is_one ? givers.front() : 0;
}

std::vector<Picker::Peer> BlameBook::right(std::uint32_t piece, const std::vector<InfoHash>& blocks) {
    std::vector<Picker::Peer> guilty;
    const auto at = wrong_.find(piece);
    if (at == wrong_.end()) return guilty;
    for (const Try& one : at->second) {
        const std::size_t known = std::min({one.givers.size(), one.blocks.size(), blocks.size()});
        for (std::size_t i = 0; i < known; ++i) {
            const bool is_known = std::find(guilty.begin(), guilty.end(), one.givers[i]) != guilty.end();
            if (one.blocks[i] != blocks[i] && !is_known) guilty.push_back(one.givers[i]);
        }
    }
    wrong_.erase(at);
    return guilty;
}

}  // namespace vantlow
