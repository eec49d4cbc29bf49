// The speeds of the last day, for the histogram.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <vector>

namespace vantlow {

/// The speeds of a span of time: their average and their peak, bytes a second.
struct SpeedSample {
    float down = 0;
    float up = 0;
    float peak = 0;  ///< of down
};

/// Keeps the last five minutes by seconds, an hour by ten, six hours by the minute, a day by five minutes:
/// rings of fixed size, 30 KiB together. One thread.
class SpeedHistory {
  public:
    using Time = std::chrono::steady_clock::time_point;
    enum class Span : std::uint8_t { five_minutes, hour, six_hours, day };

    /// Takes the speeds of a moment, about once a second; up to two seconds that were missed
    /// count like it, longer gaps as nothing moved.
    void add(Time now, double down, double up);
    /// The samples of a span, oldest first; always as many as the span has.
    [[nodiscard]] std::vector<SpeedSample> samples(Span span) const;
    [[nodiscard]] static std::chrono::seconds step_of(Span span) noexcept;
    [[nodiscard]] static std::size_t count_of(Span span) noexcept;
    /// The top of a scale that all samples and the limit (0: none) fit under: a round number.
    [[nodiscard]] static double scale_of(const std::vector<SpeedSample>& samples, double limit);

  private:
    struct Ring {
        std::vector<SpeedSample> samples;
        std::size_t next = 0;    ///< where the sample in work will stand
        std::int64_t step = -1;  ///< number of the one in work; -1: none yet
        double down = 0;
        double up = 0;
        double peak = 0;
        int taken = 0;
    };
    static void close_step(Ring& ring);
    void put(std::int64_t second, double down, double up);
    std::array<Ring, 4> rings_;
    std::int64_t last_second_ = -1;
};

}  // namespace vantlow
