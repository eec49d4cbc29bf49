// Text as this system and its user write it: sentences for error numbers, dates, the ANSI code page.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vantlow {

/// The system's sentence for one of its error numbers, UTF-8, without a line end; never empty.
std::string system_text(int system_error);

struct LocalDate {
    std::u16string date;  ///< in the short form of the user's locale, at most 128 characters
    std::u16string time;  ///< the time of day, likewise
};

/// A moment in the local time zone; the fields are empty where the system cannot write it. `file_time`: ticks
/// of 100 nanoseconds since 1601, UTC.
LocalDate local_date(std::uint64_t file_time);

/// Today's date as the user writes short dates ("25.11.2026"); never empty.
std::u16string short_date_today();

/// Sets the calling thread's locale to the system's default locale.
void set_default_locale() noexcept;

/// Text in the system's ANSI code page and back. Characters that the code page lacks become '?'.
std::string to_ansi(std::u16string_view text);
std::u16string from_ansi(std::string_view bytes);

}  // namespace vantlow
