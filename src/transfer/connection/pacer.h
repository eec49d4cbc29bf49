// The limits of speed, as one connection keeps to them.
#pragma once

#include <cstddef>

#include "net/shared_tokens.h"
#include "transfer/connection/stream.h"

namespace vantlow {

/// A record of one connection of the transfer engine, as the limits know it: its place below those of its job
/// and of the program. It has a share while it is marked active and asks; otherwise it is not limited. Used
/// by one thread; the limits outlive it.
class CConnectionNode {
  public:
    CConnectionNode(net::SharedTokens& limits, net::TokenTree::Group group) : tokens_(limits, group) {}

    /// The connection receives what is to be limited, from now on or no longer.
    void set_active(bool active) noexcept { is_active_ = active; }
    /// The number of bytes, up to `wanted` (above 0), that may be received now. Waits while there are none:
    /// 0 at `until`, or once the stop is requested.
    std::size_t ask(std::size_t wanted, Clock::time_point until, const StopSource& stop) {
        return is_active_ ? tokens_.wait_and_take(wanted, until, stop) : wanted;
    }
    /// So many of them did not come.
    void give_back(std::size_t unused) {
        if (is_active_) tokens_.give_back(unused);
    }

  private:
    net::TokenUser tokens_;
    bool is_active_ = false;
};

/// The stage that keeps to the limits: it reads less at once and pauses between reads.
class PacedStream final : public ByteStream {
  public:
    /// All outlive the stage. Without a node nothing is limited. The stop ends pauses.
    PacedStream(ByteStream& below, CConnectionNode* node, const StopSource& stop)
        : below_(below), node_(node), stop_(stop) {}

    Moved read(std::span<std::byte> into, Clock::time_point until) override;
    [[nodiscard]] bool can_fill() const noexcept override { return below_.can_fill(); }
    Moved fill(Conduit& conduit, std::size_t most, Clock::time_point until) override;
    Result write(std::span<const std::byte> from, Clock::time_point until) override {
        return below_.write(from, until);
    }

  private:
    template <class Read>
    Moved paced(Read read, std::size_t most, Clock::time_point until);

    ByteStream& below_;
    CConnectionNode* const node_;
    const StopSource& stop_;
};

}  // namespace vantlow
