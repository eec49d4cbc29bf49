// The speed limit of one connection.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/socket.h"
#include "transfer/connection/stream.h"

namespace vantlow {

/// Tells a connection how fast it may receive at this moment. Called by the connection's thread before it
/// reads.
class SpeedShare {
  public:
    SpeedShare() = default;
    SpeedShare(const SpeedShare&) = delete;
    SpeedShare& operator=(const SpeedShare&) = delete;
    virtual ~SpeedShare() = default;
    /// Bytes per second, or -1 for no limit.
    [[nodiscard]] virtual std::int64_t bytes_per_second() = 0;
};

/// A token bucket without a clock of its own: it is told the time.
class Pacer {
  public:
    explicit Pacer(Clock::time_point now) : last_(now) {}

    struct Grant {
        std::size_t bytes = 0;              ///< may be read now
        std::chrono::milliseconds wait{0};  ///< when bytes is 0: ask again after this time
    };
    /// How much of `wanted` may be read now at `rate` bytes per second (above 0).
    Grant grant(std::size_t wanted, std::int64_t rate, Clock::time_point now);
    void spend(std::size_t bytes) noexcept { tokens_ -= static_cast<double>(bytes); }
    /// Forgets what was saved up while there was no limit.
    void idle(Clock::time_point now) noexcept {
        last_ = now;
        tokens_ = 0;
    }

  private:
    Clock::time_point last_;
    double tokens_ = 0;  ///< bytes
};

/// The stage that keeps to a share: it reads less at once and pauses between reads.
class PacedStream : public ByteStream {
  public:
    /// Both outlive the stage.
    explicit PacedStream(ByteStream& below, const TimeSource& time = system_time)
        : below_(below), time_(time), pacer_(time.now()) {}

    /// Null share: no limit. The stop ends pauses.
    void attach(SpeedShare* share, const StopSource* stop) noexcept {
        share_ = share;
        stop_ = stop;
    }
    Moved read(std::span<std::byte> into, Clock::time_point until) override;
    Result write(std::span<const std::byte> from, Clock::time_point until) override {
        return below_.write(from, until);
    }

  private:
    ByteStream& below_;
    const TimeSource& time_;
    Pacer pacer_;
    SpeedShare* share_ = nullptr;
    const StopSource* stop_ = nullptr;
};

}  // namespace vantlow
