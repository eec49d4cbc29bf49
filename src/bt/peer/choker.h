// Which peers may ask this side for blocks (BEP 3, "choking").
#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "base/clock.h"

namespace vantlow {

/// Decides who is unchoked: those who give most in return or, where this side has everything, those who take
/// most; and one more by chance, so that newcomers get something to give. A slot that becomes free is filled
/// at once, the best are chosen anew every ten seconds, the one by chance every thirty. One thread; the times
/// never go back.
class Choker {
  public:
    static constexpr std::chrono::seconds round{10};
    static constexpr std::chrono::seconds chance_round{30};

    explicit Choker(std::uint32_t seed) : random_(seed) {}

    struct Peer {
        std::uint32_t peer = 0;      ///< a number of its owner's, above 0
        bool is_interested = false;  ///< it wants something
        bool is_snubbed = false;     ///< it owes blocks and does not send them: it earns no slot
        bool is_unchoked = false;
        double rate = 0;  ///< bytes a second: received from it, or sent to it where this side has everything
        Clock::time_point came{};  ///< when it connected: newcomers are three times as likely to be chosen
    };
    /// The peers that are unchoked from now on, `slots` at most, the one by chance among them. Called once a
    /// second, and when a peer became interested, was not any more, or left.
    std::vector<std::uint32_t> choose(const std::vector<Peer>& peers, std::size_t slots,
                                      Clock::time_point now);

  private:
    static constexpr std::chrono::minutes newcomer{1};

    std::uint32_t by_chance(const std::vector<Peer>& peers, const std::vector<std::uint32_t>& chosen,
                            Clock::time_point now);

    std::minstd_rand random_;
    std::uint32_t chance_ = 0;  ///< the peer of the slot by chance
    Clock::time_point next_round_{};
    Clock::time_point next_chance_{};
};

}  // namespace vantlow
