#include "app/terminal/quantities.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <ctime>
#include <limits>

#include "base/text.h"

namespace vantlow {
namespace {

bool remove_end(std::string_view& text, std::string_view end) noexcept {
    const bool there = text.size() >= end.size() && iequals(text.substr(text.size() - end.size()), end);
    if (there) text.remove_suffix(end.size());
    return there;
}

// Takes the unit off the end and returns the power of two that it stands for, 0 for bytes.
int take_unit(std::string_view& text) noexcept {
    constexpr std::string_view units = "kmgt";
    remove_end(text, "/s");
    const bool bytes = remove_end(text, "b");
    std::string_view number = text;
    if (bytes) remove_end(number, "i");  // KiB
    if (number.empty()) return 0;
    const auto unit = units.find(ascii_lower(number.back()));
    if (unit == std::string_view::npos) return 0;
    number.remove_suffix(1);
    text = number;
    return static_cast<int>(unit + 1) * 10;
}

// A moment as ISO 8601 in UTC: "2026-11-25T17:05:09Z".
std::string iso_moment(std::chrono::sys_seconds moment) {
    namespace c = std::chrono;
    const auto day = c::floor<c::days>(moment);
    const c::year_month_day date(day);
    const c::hh_mm_ss time(moment - day);
    return print("%04d-%02u-%02uT%02d:%02d:%02dZ", static_cast<int>(date.year()),
                 static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                 static_cast<int>(time.hours().count()), static_cast<int>(time.minutes().count()),
                 static_cast<int>(time.seconds().count()));
}

}  // namespace

std::optional<std::int64_t> parse_rate(std::string_view text) noexcept {
    const int shift = take_unit(text);
    const auto point = text.find('.');
    const auto whole = parse_decimal(text.substr(0, point));
    if (!whole || *whole > std::numeric_limits<std::int64_t>::max() >> (shift + 1)) return std::nullopt;
    std::int64_t rate = *whole << shift;
    if (point != std::string_view::npos) {
        constexpr std::size_t most_digits =
            6;  // further ones change no rate that matters, but would overflow
        const std::string_view digits = text.substr(point + 1);
        const bool all_digits =
            !digits.empty() && digits.find_first_not_of("0123456789") == std::string_view::npos;
        if (shift == 0 || !all_digits) return std::nullopt;
        std::int64_t scale = 1;
        std::int64_t fraction = 0;
        for (const char digit : digits.substr(0, most_digits)) {
            fraction = fraction * 10 + (digit - '0');
            scale *= 10;
        }
        rate += (fraction << shift) / scale;
    }
    const bool is_nothing = text.find_first_not_of("0.") == std::string_view::npos;
    if (rate == 0 && !is_nothing) return std::nullopt;
    return rate;
}

std::optional<std::chrono::seconds> parse_span(std::string_view text) noexcept {
    constexpr std::int64_t day = 86400;
    if (text == "0") return std::chrono::seconds(0);
    if (text.empty()) return std::nullopt;
    const std::string_view units = "smhd";
    constexpr std::int64_t seconds[] = {1, 60, 3600, day};
    const auto unit = units.find(ascii_lower(text.back()));
    const auto number = parse_decimal(text.substr(0, text.size() - 1));
    if (unit == std::string_view::npos || !number || *number > 36500 * day / seconds[unit])
        return std::nullopt;
    return std::chrono::seconds(*number * seconds[unit]);
}

std::string human_size(std::int64_t bytes) {
    static constexpr std::array units = {"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    if (bytes < 0) return "--";
    if (bytes < 1024) return print("%d B", static_cast<int>(bytes));
    auto value = static_cast<double>(bytes);
    std::size_t unit = 0;
    // A size that would be rounded to 1024 of a unit is shown as one of the next.
    while (value >= 1023.5 && unit + 1 < units.size()) {
        value /= 1024;
        ++unit;
    }
    if (value >= 99.95) return print("%d %s", static_cast<int>(std::lround(value)), units[unit]);
    const int tenths = static_cast<int>(std::lround(value * 10));  // a locale's decimal comma stays out of it
    return print("%d.%d %s", tenths / 10, tenths % 10, units[unit]);
}

std::string human_speed(double bytes_per_second) {
    constexpr double largest = 1e18;
    if (!(bytes_per_second >= 0.5)) return "--";
    return human_size(std::llround(std::min(bytes_per_second, largest))) + "/s";
}

std::string human_time(std::int64_t seconds) {
    constexpr std::int64_t minute = 60;
    constexpr std::int64_t hour = 60 * minute;
    constexpr std::int64_t day = 24 * hour;
    if (seconds < 0 || seconds >= 1000 * day) return "--";
    const auto part = [seconds](std::int64_t unit, std::int64_t of) {
        return static_cast<int>(seconds / unit % of);
    };
    if (seconds >= 100 * hour) return print("%dd %02dh", part(day, 1000), part(hour, 24));
    if (seconds >= hour) return print("%d:%02d:%02d", part(hour, 100), part(minute, 60), part(1, 60));
    return print("%d:%02d", part(minute, 60), part(1, 60));
}

std::string iso_time(std::int64_t seconds) {
    return iso_moment(std::chrono::sys_seconds(std::chrono::seconds(seconds)));
}

std::string iso_time_with_milliseconds(std::int64_t milliseconds) {
    const std::chrono::milliseconds since_epoch(milliseconds);
    const auto seconds = std::chrono::floor<std::chrono::seconds>(since_epoch);
    std::string text = iso_moment(std::chrono::sys_seconds(seconds));
    text.back() = '.';  // in place of the Z
    return text + print("%03dZ", static_cast<int>((since_epoch - seconds).count()));
}

std::string local_time(std::int64_t seconds) {
    if (seconds <= 0) return "--";
    const auto time = static_cast<std::time_t>(seconds);
    char text[64] = {};
    // NOLINTNEXTLINE(concurrency-mt-unsafe): commands run one after the other
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", std::localtime(&time));
    return text;
}

}  // namespace vantlow
