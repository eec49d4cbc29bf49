#include "transfer/connection/pacer.h"

namespace vantlow {

Moved PacedStream::read(std::span<std::byte> into, Clock::time_point until) {
    if (node_ == nullptr) return below_.read(into, until);
    const std::size_t granted = node_->ask(into.size(), until, stop_);
    if (granted == 0) return stop_.requested() ? Moved::failed(stop_.reason()) : Moved::quiet();
    const Moved moved = below_.read(into.first(granted), until);
    const std::size_t used = moved.state == Moved::State::data ? moved.bytes : 0;
    if (used < granted) node_->give_back(granted - used);
    return moved;
}

}  // namespace vantlow
