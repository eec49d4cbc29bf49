// Who gave which wrong block.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "bt/metainfo.h"
#include "bt/peer/picker.h"

namespace vantlow {

/// Remembers the blocks of pieces that were wrong, until the piece was fetched again and is right: whoever
/// gave a block that differs is guilty, and nobody else. Where one peer alone gave a wrong piece, that is
/// known at once.
class BlameBook {
  public:
    /// A piece was wrong. Returns the guilty peer, or 0 where it is not known yet.
    Picker::Peer wrong(std::uint32_t piece, const std::vector<Picker::Peer>& givers,
                       const std::vector<InfoHash>& blocks);
    /// True where the digests of the piece's blocks are needed when it is right.
    [[nodiscard]] bool awaits(std::uint32_t piece) const { return wrong_.contains(piece); }
    /// The piece is right now. Returns the guilty.
    std::vector<Picker::Peer> right(std::uint32_t piece, const std::vector<InfoHash>& blocks);

  private:
    static constexpr std::size_t most_tries = 8;  ///< of one piece that are remembered

    struct Try {
        std::vector<Picker::Peer> givers;
        std::vector<InfoHash> blocks;
    };
    std::map<std::uint32_t, std::vector<Try>> wrong_;
};

}  // namespace vantlow
