#include "transfer/connection/pacer.h"

namespace vantlow {

// `read` is given the number of bytes that may come now.
template <class Read>
Moved PacedStream::paced(Read read, std::size_t most, Clock::time_point until) {
    if (node_ == nullptr) return read(most);
    const std::size_t granted = node_->ask(most, until, stop_);
    if (granted == 0) return stop_.requested() ? Moved::failed(stop_.reason()) : Moved::quiet();
    const Moved moved = read(granted);
    const std::size_t used = moved.state == Moved::State::data ? moved.bytes : 0;
    if (used < granted) node_->give_back(granted - used);
    return moved;
}

Moved PacedStream::read(std::span<std::byte> into, Clock::time_point until) {
    return paced([&](std::size_t granted) { return below_.read(into.first(granted), until); }, into.size(),
                 until);
}

Moved PacedStream::fill(Conduit& conduit, std::size_t most, Clock::time_point until) {
    return paced([&](std::size_t granted) { return below_.fill(conduit, granted, until); }, most, until);
}

}  // namespace vantlow
