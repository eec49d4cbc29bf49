// A moment as the user of this machine writes it.
#pragma once

#include <cstdint>
#include <string>

namespace vantlow {

struct LocalDate {
    std::u16string date;  ///< in the short form of the user's locale, at most 128 characters
    std::u16string time;  ///< the time of day, likewise
};

/// Both in the local time zone; empty for what the system cannot write. `file_time`: ticks of 100
/// nanoseconds since 1601, UTC.
LocalDate local_date(std::uint64_t file_time);

}  // namespace vantlow
