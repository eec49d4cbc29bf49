// HTTP dates: RFC 9110, 5.6.7.
#include <algorithm>
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
    const auto first = std::min(text.find(':'), text.size());
    const auto second_at = text.find(':', first + 1);
    if (second_at == std::string_view::npos) return std::nullopt;
    const auto hour = parse_decimal(text.substr(0, first));
    const auto minute = parse_decimal(text.substr(first + 1, second_at - first - 1));
    const auto second = parse_decimal(text.substr(second_at + 1));
    if (!hour || !minute || !second || *hour > 23 || *minute > 59 || *second > 60) return std::nullopt;
    return *hour * 3600 + *minute * 60 + *second;
}

// The words of a date that count; those that are missing are empty.
std::array<std::string_view, 5> first_words(std::string_view text) {
    std::array<std::string_view, 5> found;
    for (std::string_view& word : found) {
        text.remove_prefix(std::min(text.find_first_not_of(" ,-\t"), text.size()));
        word = text.substr(0, text.find_first_of(" ,-\t"));
        text.remove_prefix(word.size());
    }
    return found;
}

}  // namespace

std::optional<std::int64_t> parse_http_date(std::string_view text) {
    // "Sun, 06 Nov 1994 08:49:37 GMT", "Sunday, 06-Nov-94 08:49:37 GMT", "Sun Nov  6 08:49:37 1994"
    const auto parts = first_words(text);
    if (parts.back().empty()) return std::nullopt;
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
