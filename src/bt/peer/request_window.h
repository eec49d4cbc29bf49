// How many blocks a peer is asked for ahead.
#pragma once

#include <algorithm>
#include <cstdint>

#include "base/clock.h"

namespace vantlow {

/// The number of blocks that one peer may owe. It begins small, grows by one with each block while the peer
/// keeps getting faster, and then holds some seconds of what the peer sends: so a peer far away is used at
/// its full speed, and a slow one keeps few blocks from others. One thread; the times never go back.
class RequestWindow {
  public:
    static constexpr std::uint32_t least = 2;
    static constexpr std::uint32_t usual_most = 500;
    static constexpr std::chrono::seconds held{3};            ///< of the peer's rate
    static constexpr std::chrono::seconds snubbed_after{20};  ///< without a block that is owed
    static constexpr std::chrono::seconds given_up_after{40};

    /// The number that the peer says it takes ("reqq", BEP 10); 0: it says none.
    void set_most(std::uint32_t most) noexcept { most_ = most == 0 ? usual_most : std::max(most, least); }
    /// Requests are owed from now on: the time that a peer is given begins.
    void asked(Clock::time_point now) noexcept {
        if (!waits_) since_ = now;
        waits_ = true;
    }
    /// A block came; `owed` are left.
    void came(std::uint32_t bytes, std::uint32_t owed, Clock::time_point now) noexcept;
    /// Nothing is owed any more: the peer choked this side, say.
    void dropped() noexcept { waits_ = false; }

    [[nodiscard]] bool is_snubbed(Clock::time_point now) const noexcept {
        return waits_ && now - since_ >= snubbed_after;
    }
    /// Nothing that is owed is waited for any more: take_back() may be called.
    [[nodiscard]] bool is_given_up(Clock::time_point now) const noexcept {
        return waits_ && now - since_ >= given_up_after;
    }
    /// Nothing is owed any more, and the peer begins anew with few blocks.
    void take_back() noexcept {
        waits_ = false;
        depth_ = least;
        slow_start_ = true;
    }
    /// This side did not listen: the time that the peer is given begins again.
    void listened_not(Clock::time_point now) noexcept { since_ = now; }
    /// How many blocks the peer may owe now.
    [[nodiscard]] std::uint32_t depth(Clock::time_point now) const noexcept {
        return is_snubbed(now) ? 1 : depth_;
    }
    /// Bytes a second, over the last seconds.
    [[nodiscard]] double rate() const noexcept { return rate_; }

  private:
    std::uint32_t depth_ = least;
    std::uint32_t most_ = usual_most;
    bool slow_start_ = true;
    bool waits_ = false;
    Clock::time_point since_{};  ///< when it waits: the last block, or the first request
    Clock::time_point measured_{};
    std::int64_t bytes_ = 0;  ///< since measured_
    double rate_ = 0;
};

}  // namespace vantlow
