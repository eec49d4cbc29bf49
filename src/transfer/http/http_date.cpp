// HTTP dates: RFC 9110, 5.6.7.
#include <array>
#include <chrono>

#include "base/text.h"
#include "transfer/http/head.h"

namespace vantlow {
namespace {

std::optional<unsigned> month_number(std::string_view name) {
    constexpr std::array names{"jan", "feb", "mar", "apr", "may", "jun",
                               "jul", "aug", "sep", "oct", "nov", "dec"};
    for (unsigned i = 0; i < names.size(); ++i) {
        if (istarts_with(name, names[i])) return i + 1;
    }
    return std::nullopt;
}

// "08:49:37" in seconds; 24 hours, with a leap second allowed.
std::optional<std::int64_t> time_of_day(std::string_view text) {
    const auto parts = split(text, ':');
    if (parts.size() != 3) return std::nullopt;
    const auto hour = parse_decimal(parts[0]);
    const auto minute = parse_decimal(parts[1]);
    const auto second = parse_decimal(parts[2]);
    if (!hour || !minute || !second || *hour > 23 || *minute > 59 || *second > 60) return std::nullopt;
    return *hour * 3600 + *minute * 60 + *second;
}

std::vector<std::string_view> words(std::string_view text) {
    std::vector<std::string_view> found;
    while (!text.empty()) {
        const auto start = text.find_first_not_of(" ,-\t");
        if (start == std::string_view::npos) break;
        text.remove_prefix(start);
        const auto end = std::min(text.find_first_of(" ,-\t"), text.size());
        found.push_back(text.substr(0, end));
        text.remove_prefix(end);
    }
    return found;
}

}  // namespace

std::optional<std::int64_t> parse_http_date(std::string_view text) {
    // "Sun, 06 Nov 1994 08:49:37 GMT", "Sunday, 06-Nov-94 08:49:37 GMT", "Sun Nov  6 08:49:37 1994"
    const auto parts = words(text);
    if (parts.size() < 5) return std::nullopt;
    const bool asctime = !parse_decimal(parts[1]).has_value();
    const auto day = parse_decimal(asctime ? parts[2] : parts[1]);
    const auto month = month_number(asctime ? parts[1] : parts[2]);
    auto year = parse_decimal(asctime ? parts[4] : parts[3]);
    const auto seconds = time_of_day(asctime ? parts[3] : parts[4]);
    if (!day || !month || !year || !seconds || *day > 31 || *year > 9999) return std::nullopt;
    if (*year < 70) {
        *year += 2000;
    } else if (*year < 100) {
        *year += 1900;
    }
    const std::chrono::year_month_day date{std::chrono::year(static_cast<int>(*year)),
                                           std::chrono::month(*month),
                                           std::chrono::day(static_cast<unsigned>(*day))};
    if (!date.ok()) return std::nullopt;
    const auto days = std::chrono::sys_days(date).time_since_epoch().count();
    return static_cast<std::int64_t>(days) * 86400 + *seconds;
}

}  // namespace vantlow
