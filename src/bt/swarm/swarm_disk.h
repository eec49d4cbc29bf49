// The disk as a swarm sees it.
#pragma once

#include <functional>
#include <span>
#include <string>
#include <vector>

#include "base/result.h"
#include "bt/metainfo.h"
#include "bt/peer/picker.h"

namespace vantlow {

/// Takes and gives a torrent's bytes. Everything is called on the swarm's thread, and so are the callbacks,
/// never from inside the call that asks for them. Operations on one piece are carried out in the order of the
/// calls. Once the swarm is gone no callback comes any more.
class SwarmDisk {
  public:
    SwarmDisk() = default;
    SwarmDisk(const SwarmDisk&) = delete;
    SwarmDisk& operator=(const SwarmDisk&) = delete;
    virtual ~SwarmDisk() = default;

    /// Takes a copy of a block's bytes. `failed` is called only where it cannot be written.
    virtual void write(const PieceBlock& block, std::span<const std::byte> bytes,
                       std::function<void(Result)> failed) = 0;
    /// True while so much waits to be written that no more should be received.
    [[nodiscard]] virtual bool is_full() const = 0;
    /// Calls once when it is not full any more; a later call replaces the callback.
    virtual void when_room(std::function<void()> call) = 0;

    /// The outcome of holding a piece against its hash.
    struct Check {
        Result result{};       ///< other than ok: the piece could not be read
        bool is_good = false;  ///< it is the torrent's, and stays on the disk
        /// The digest of each block, so that it shows who gave a wrong one: where the piece is wrong, and
        /// where it was asked for.
        std::vector<InfoHash> blocks{};
    };
    virtual void check(std::uint32_t piece, bool wants_blocks, std::function<void(Check)> done) = 0;
    /// Gives a block of a good piece, or several that stand beside each other.
    virtual void read(const PieceBlock& block, std::function<void(Outcome<std::string>)> done) = 0;
};

}  // namespace vantlow
