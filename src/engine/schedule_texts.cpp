#include "engine/schedule_texts.h"

#include <algorithm>
#include <chrono>
#include <vector>

#include "base/text.h"

namespace vantlow {
namespace {

constexpr std::int64_t minute = 60;
constexpr std::int64_t hour = 3600;

// Reads exactly so many digits.
std::optional<std::int64_t> digits(std::string_view text, std::size_t count) {
    const bool all =
        text.size() == count && std::ranges::all_of(text, [](char c) { return c >= '0' && c <= '9'; });
    return all ? parse_decimal(text) : std::nullopt;
}

// Reads "2026-11-27" as a day since 1970-01-01.
std::optional<std::int64_t> parse_day(std::string_view text) {
    using namespace std::chrono;
    if (text.size() != 10 || text[4] != '-' || text[7] != '-') return std::nullopt;
    const auto y = digits(text.substr(0, 4), 4);
    const auto m = digits(text.substr(5, 2), 2);
    const auto d = digits(text.substr(8, 2), 2);
    if (!y || !m || !d) return std::nullopt;
    const year_month_day date{year(static_cast<int>(*y)), month(static_cast<unsigned>(*m)),
                              day(static_cast<unsigned>(*d))};
    if (!date.ok()) return std::nullopt;
    return sys_days(date).time_since_epoch().count();
}

// Reads "Z", "+01:00" or "-0330" as seconds ahead of UTC.
std::optional<std::int64_t> parse_zone(std::string_view text) {
    if (text == "Z" || text == "z") return 0;
    if (text.size() < 5 || (text[0] != '+' && text[0] != '-')) return std::nullopt;
    const auto hours = digits(text.substr(1, 2), 2);
    const auto minutes = digits(text.substr(text[3] == ':' ? 4 : 3), 2);
    if (!hours || !minutes || *hours > 23 || *minutes > 59) return std::nullopt;
    return (text[0] == '-' ? -1 : 1) * (*hours * hour + *minutes * minute);
}

std::optional<std::size_t> weekday_of(std::string_view word) {
    for (std::size_t i = 0; i < weekday_words.size(); ++i) {
        if (iequals(word, weekday_words.at(i))) return i;
    }
    return std::nullopt;
}

std::int32_t rotated(std::int32_t days, int by) {
    constexpr int week = 7;
    return ((days << by) | (days >> (week - by))) & every_day;
}

CScheduleNode entry_of(std::int32_t action, std::int32_t days, std::int64_t time) {
    CScheduleNode entry;
    entry.action = action;
    entry.weekdays = days;
    entry.time = time;
    return entry;
}

}  // namespace

std::optional<std::int64_t> parse_time_of_day(std::string_view text) {
    if (text.size() == 4 || text.size() == 7) return parse_time_of_day("0" + std::string(text));
    if (text.size() != 5 && text.size() != 8) return std::nullopt;
    const auto hours = digits(text.substr(0, 2), 2);
    const auto minutes = digits(text.substr(3, 2), 2);
    const auto seconds = text.size() == 8 ? digits(text.substr(6), 2) : 0;
    if (text[2] != ':' || (text.size() == 8 && text[5] != ':')) return std::nullopt;
    if (!hours || !minutes || !seconds || *hours > 23 || *minutes > 59 || *seconds > 59) return std::nullopt;
    return *hours * hour + *minutes * minute + *seconds;
}

std::string time_of_day_text(std::int64_t seconds) {
    std::string text =
        print("%02d:%02d", static_cast<int>(seconds / hour % 24), static_cast<int>(seconds / minute % 60));
    if (seconds % minute != 0) text += print(":%02d", static_cast<int>(seconds % minute));
    return text;
}

std::optional<std::int64_t> parse_moment(std::string_view text, std::int64_t now, const WallClock& clock) {
    constexpr std::size_t date = 10;
    text = trim(text);
    if (const auto time = parse_time_of_day(text))
        return next_moment(entry_of(0, every_day, *time), now, clock);
    const auto day = parse_day(text.substr(0, date));
    if (!day || text.size() <= date || (text[date] != ' ' && ascii_lower(text[date]) != 't'))
        return std::nullopt;
    text.remove_prefix(date + 1);
    const auto end = std::min(text.find_first_of("Zz+-"), text.size());
    const auto time = parse_time_of_day(text.substr(0, end));
    if (!time) return std::nullopt;
    if (end == text.size()) return moment_of(*day, *time, clock);
    const auto zone = parse_zone(text.substr(end));
    if (!zone) return std::nullopt;
    return *day * seconds_of_day + *time - *zone;
}

std::string local_moment_text(std::int64_t at, const WallClock& clock) {
    using namespace std::chrono;
    const std::int64_t day = local_day(at, clock);
    const year_month_day date{sys_days(days(day))};
    return print("%04d-%02u-%02u ", static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                 static_cast<unsigned>(date.day())) +
           time_of_day_text(at + clock.offset(at) - day * seconds_of_day);
}

std::optional<std::int32_t> parse_weekdays(std::string_view text) {
    if (iequals(trim(text), "daily")) return every_day;
    std::int32_t days = 0;
    for (const std::string_view part : split(text, ',')) {
        const auto dash = part.find('-');
        const auto first = weekday_of(trim(part.substr(0, dash)));
        const auto last = dash == std::string_view::npos ? first : weekday_of(trim(part.substr(dash + 1)));
        if (!first || !last) return std::nullopt;
        for (std::size_t day = *first;; day = (day + 1) % weekday_words.size()) {
            days |= 1 << day;
            if (day == *last) break;
        }
    }
    return days;
}

std::string weekdays_text(std::int32_t days) {
    std::string text;
    for (std::size_t i = 1; i <= weekday_words.size(); ++i) {  // a week begins on Monday (ISO 8601)
        const std::size_t day = i % weekday_words.size();
        if (((days >> day) & 1) == 0) continue;
        if (!text.empty()) text += ',';
        text += weekday_words.at(day);
    }
    return text;
}

std::optional<JobTimes> read_times(const TimesWish& wish, std::int64_t now, const WallClock& clock) {
    std::int32_t days = 0;
    if (!wish.days.empty()) {
        const auto read = parse_weekdays(wish.days);
        if (!read || wish.every != 0) return std::nullopt;
        days = *read;
    }
    const bool repeats = wish.every != 0;
    if (repeats && (wish.every < shortest_span || wish.every > INT32_MAX)) return std::nullopt;
    JobTimes times;
    std::int64_t earliest = now;
    for (const auto& [text, action] :
         {std::pair(wish.start, schedule_action::start), std::pair(wish.stop, schedule_action::stop)}) {
        if (trim(text).empty()) continue;
        const auto at = days != 0 ? parse_time_of_day(trim(text)) : parse_moment(text, earliest, clock);
        if (!at) return std::nullopt;
        // A moment that has passed is a mistake, and so is an end that comes before its beginning.
        if (days == 0 && *at <= earliest) return std::nullopt;
        if (days != 0 && !times.empty() && times.front().time == *at) return std::nullopt;
        earliest = *at;
        // The stop that belongs to a start at night comes on the following day.
        if (days != 0 && !times.empty() && *at < times.front().time) days = rotated(days, 1);
        times.push_back(entry_of(action, repeats ? -static_cast<std::int32_t>(wish.every) : days, *at));
    }
    if (times.empty() && (days != 0 || repeats)) return std::nullopt;
    if (repeats && times.size() == 2 && times[1].time - times[0].time >= wish.every) return std::nullopt;
    return times;
}

TimesWish wish_of(const JobTimes& times, const WallClock& clock) {
    TimesWish wish;
    for (const CScheduleNode& entry : times) {
        const bool starts = entry.action == schedule_action::start;
        const bool is_weekly = entry.weekdays > 0;
        (starts ? wish.start : wish.stop) =
            is_weekly ? time_of_day_text(entry.time) : local_moment_text(entry.time, clock);
        if (is_weekly && (starts || wish.days.empty())) wish.days = weekdays_text(entry.weekdays);
        if (entry.weekdays < 0) wish.every = -static_cast<std::int64_t>(entry.weekdays);
    }
    return wish;
}

}  // namespace vantlow
