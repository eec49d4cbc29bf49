#include "app/terminal/quantities.h"

#include <algorithm>
#include <limits>

#include "base/text.h"

namespace vantlow {
namespace {

bool remove_end(std::string_view& text, std::string_view end) noexcept {
    const bool there = text.size() >= end.size() && iequals(text.substr(text.size() - end.size()), end);
    if (there) text.remove_suffix(end.size());
    return there;
}

// Takes the unit off the end: the power of two that it stands for, 0 for bytes.
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

}  // namespace

std::optional<std::int64_t> parse_rate(std::string_view text) noexcept {
    const int shift = take_unit(text);
    const auto point = text.find('.');
    const auto whole = parse_decimal(text.substr(0, point));
    if (!whole || *whole > std::numeric_limits<std::int64_t>::max() >> (shift + 1)) return std::nullopt;
    std::int64_t rate = *whole << shift;
    if (point != std::string_view::npos) {
        constexpr std::size_t most_digits = 6;  // more do not change a rate that matters, but would overflow
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

}  // namespace vantlow
