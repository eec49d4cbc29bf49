// Times, days and plans as people write them.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "engine/schedule.h"

namespace vantlow {

/// Reads a time of day ("22:00", "06:30:15") as seconds since midnight; none for anything else.
std::optional<std::int64_t> parse_time_of_day(std::string_view text);
/// "22:00", with seconds only where there are any.
std::string time_of_day_text(std::int64_t seconds);
/// Reads a moment: a time of day, the next one that comes; "2026-11-27 22:00" or with a "T" (ISO 8601), local
/// unless a zone follows ("Z", "+01:00"). None for anything else.
std::optional<std::int64_t> parse_moment(std::string_view text, std::int64_t now, const WallClock& clock);
/// "2026-11-27 22:00", local, so that parse_moment() reads it again.
std::string local_moment_text(std::int64_t at, const WallClock& clock);

/// The days' names in the order of their bits: "sun" ... "sat".
inline constexpr std::array<std::string_view, 7> weekday_words{"sun", "mon", "tue", "wed",
                                                               "thu", "fri", "sat"};
inline constexpr std::int32_t every_day = 127;
/// Reads "mon,tue", "mon-fri", "daily"; none for anything else.
std::optional<std::int32_t> parse_weekdays(std::string_view text);
/// "mon,tue".
std::string weekdays_text(std::int32_t days);

/// A person's wish for a job's own times.
struct TimesWish {
    std::string start;       ///< as parse_moment() reads it, with `days` a time of day; empty: none
    std::string stop;        ///< likewise; behind the start where both are moments
    std::string days;        ///< as parse_weekdays() reads them; empty: once
    std::int64_t every = 0;  ///< seconds after which both come again; 0: once
};
/// The entries that are meant: at most one start and one stop. None where a text is no time, or the times do
/// not fit together.
std::optional<JobTimes> read_times(const TimesWish& wish, std::int64_t now, const WallClock& clock);

/// The wish that these entries came from, where they came from one.
TimesWish wish_of(const JobTimes& times, const WallClock& clock);

}  // namespace vantlow
