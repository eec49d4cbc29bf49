#include "platform/local_date.h"

#include "platform/win32/native.h"

namespace vantlow {
namespace {

constexpr int most_characters = 128;

}  // namespace

LocalDate local_date(std::uint64_t file_time) {
    FILETIME ticks{};
    ticks.dwLowDateTime = static_cast<DWORD>(file_time & 0xFFFFFFFF);
    ticks.dwHighDateTime = static_cast<DWORD>(file_time >> 32U);
    SYSTEMTIME utc{};
    SYSTEMTIME local{};
    if (!FileTimeToSystemTime(&ticks, &utc) || !SystemTimeToTzSpecificLocalTime(nullptr, &utc, &local))
        return {};
    wchar_t date[most_characters + 1] = {};
    wchar_t time[most_characters + 1] = {};
    if (GetDateFormatW(LOCALE_USER_DEFAULT, 0, &local, nullptr, date, most_characters) == 0) return {};
    if (GetTimeFormatW(LOCALE_USER_DEFAULT, 0, &local, nullptr, time, most_characters) == 0) return {};
    return {from_wide(date), from_wide(time)};
}

}  // namespace vantlow
