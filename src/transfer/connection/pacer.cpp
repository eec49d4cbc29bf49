#include "transfer/connection/pacer.h"

#include <algorithm>

namespace vantlow {
namespace {

// So much time may be saved up: long enough that a late thread loses nothing, short enough that no burst is
// felt.
constexpr double burst_seconds = 0.25;
// Reads are not cut finer than this many a second, or a small share would be eaten by system calls.
constexpr double reads_per_second = 20;
// A pause is no longer than this, so that a changed limit is felt.
constexpr std::chrono::milliseconds longest_pause{100};

}  // namespace

Pacer::Grant Pacer::grant(std::size_t wanted, std::int64_t rate, Clock::time_point now) {
    const auto speed = static_cast<double>(rate);
    const double elapsed = std::chrono::duration<double>(now - last_).count();
    last_ = now;
    const double cap = std::max(speed * burst_seconds, 1.0);
    tokens_ = std::min(tokens_ + elapsed * speed, cap);
    const double quantum =
        std::clamp(speed / reads_per_second, 1.0, static_cast<double>(std::max<std::size_t>(wanted, 1)));
    if (tokens_ >= quantum) return {std::min(wanted, static_cast<std::size_t>(tokens_)), {}};
    const auto pause = std::chrono::ceil<std::chrono::milliseconds>(
        std::chrono::duration<double>((quantum - tokens_) / speed));
    return {0, std::clamp(pause, std::chrono::milliseconds(1), longest_pause)};
}

Moved PacedStream::read(std::span<std::byte> into, Clock::time_point until) {
    for (;;) {
        const std::int64_t rate = share_ != nullptr ? share_->bytes_per_second() : -1;
        if (rate <= 0) {
            const Moved moved = below_.read(into, until);
            if (share_ != nullptr) pacer_.idle(time_.now());
            return moved;
        }
        const Pacer::Grant grant = pacer_.grant(into.size(), rate, time_.now());
        if (grant.bytes > 0) {
            const Moved moved = below_.read(into.first(grant.bytes), until);
            if (moved.state == Moved::State::data) pacer_.spend(moved.bytes);
            return moved;
        }
        const auto left = time_left(until);
        if (left.count() == 0) return Moved::quiet();
        if (stop_ != nullptr && stop_->wait_for(std::min(grant.wait, left)))
            return Moved::failed(stop_->reason());
    }
}

}  // namespace vantlow
