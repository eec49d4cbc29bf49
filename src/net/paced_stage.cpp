#include "net/paced_stage.h"

namespace vantlow::net {
namespace {

// Asks for tokens, moves as many bytes as there are, and gives back what did not go.
template <class Bytes, class Move>
Step paced(TokenUser& user, Bytes bytes, Clock::time_point now, Move move) {
    const TokenTree::Grant grant = user.take(bytes.size(), now);
    if (grant.bytes == 0) return Step::again_at(grant.not_before);
    const Step step = move(bytes.first(grant.bytes));
    const std::size_t moved = step.state == Step::State::moved ? step.bytes : 0;
    if (moved < grant.bytes) user.give_back(grant.bytes - moved);
    return step;
}

}  // namespace

Step PacedStage::read(std::span<std::byte> into, Clock::time_point now) {
    return paced(down_, into, now, [&](std::span<std::byte> some) { return below_.read(some, now); });
}

Step PacedStage::write(std::span<const std::byte> from, Clock::time_point now) {
    return paced(up_, from, now, [&](std::span<const std::byte> some) { return below_.write(some, now); });
}

}  // namespace vantlow::net
