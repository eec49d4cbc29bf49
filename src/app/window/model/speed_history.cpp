#include "app/window/model/speed_history.h"

#include <algorithm>
#include <cmath>

namespace vantlow {
namespace {

struct SpanFacts {
    std::int64_t step;  ///< seconds
    std::size_t count;
};
constexpr std::int64_t longest_span = 300 * 288;
// Seconds in a row.
constexpr std::int64_t most_late = 2;
constexpr SpanFacts spans[] = {{1, 300}, {10, 360}, {60, 360}, {300, 288}};

const SpanFacts& facts(SpeedHistory::Span span) noexcept {
    return spans[static_cast<std::size_t>(span)];
}

}  // namespace

std::chrono::seconds SpeedHistory::step_of(Span span) noexcept {
    return std::chrono::seconds(facts(span).step);
}

std::size_t SpeedHistory::count_of(Span span) noexcept {
    return facts(span).count;
}

void SpeedHistory::close_step(Ring& ring) {
    SpeedSample sample;
    if (ring.taken > 0)
        sample = {static_cast<float>(ring.down / ring.taken), static_cast<float>(ring.up / ring.taken),
                  static_cast<float>(ring.peak)};
    ring.samples[ring.next] = sample;
    ring.next = (ring.next + 1) % ring.samples.size();
    ring.down = ring.up = ring.peak = 0;
    ring.taken = 0;
}

void SpeedHistory::put(std::int64_t second, double down, double up) {
    for (std::size_t i = 0; i < rings_.size(); ++i) {
        Ring& ring = rings_[i];
        if (ring.samples.empty()) ring.samples.resize(spans[i].count);
        const std::int64_t step = second / spans[i].step;
        if (ring.step >= 0 && step > ring.step) close_step(ring);
        ring.step = step;
        ring.down += down;
        ring.up += up;
        ring.peak = std::max(ring.peak, down);
        ++ring.taken;
    }
}

void SpeedHistory::add(Time now, double down, double up) {
    const auto second = std::chrono::duration_cast<std::chrono::seconds>(now.time_since_epoch()).count();
    if (last_second_ < 0) last_second_ = second - 1;
    // A timer that comes a little late has missed nothing; while the machine slept nothing moved.
    const std::int64_t missed = second - last_second_ - 1;
    const double share = missed <= most_late ? 1 : 0;
    for (std::int64_t one = std::max(second - missed, second - longest_span); one < second; ++one)
        put(one, down * share, up * share);
    put(second, down, up);
    last_second_ = std::max(last_second_, second);
}

std::vector<SpeedSample> SpeedHistory::samples(Span span) const {
    const Ring& ring = rings_[static_cast<std::size_t>(span)];
    if (ring.samples.empty()) return std::vector<SpeedSample>(count_of(span));
    std::vector<SpeedSample> all(ring.samples.begin() + static_cast<std::ptrdiff_t>(ring.next),
                                 ring.samples.end());
    all.insert(all.end(), ring.samples.begin(),
               ring.samples.begin() + static_cast<std::ptrdiff_t>(ring.next));
    return all;
}

double SpeedHistory::scale_of(const std::vector<SpeedSample>& samples, double limit) {
    constexpr double least = 16 * 1024;
    double most = std::max(least, limit);
    for (const SpeedSample& sample : samples) most = std::max({most, double{sample.peak}, double{sample.up}});
    // The next of 1, 2, 5, 10, 20, 50, ... of a unit; units are powers of 1024.
    double unit = 1;
    while (unit * 1024 <= most) unit *= 1024;
    for (double step = 1; step <= 1000; step *= 10) {
        for (const double part : {1.0, 2.0, 5.0}) {
            if (unit * step * part >= most) return unit * step * part;
        }
    }
    return unit * 1024;
}

}  // namespace vantlow
