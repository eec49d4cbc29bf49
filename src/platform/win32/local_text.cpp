#include "platform/local_text.h"

#include "base/text.h"
#include "platform/win32/native.h"

namespace vantlow {
namespace {

constexpr int most_characters = 128;

}  // namespace

std::string system_text(int system_error) {
    wchar_t space[512];
    const DWORD flags = FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;
    DWORD length =
        FormatMessageW(flags, nullptr, static_cast<DWORD>(system_error), 0, space, std::size(space), nullptr);
    while (length > 0 && (space[length - 1] <= L' ' || space[length - 1] == L'.')) --length;
    if (length == 0) return print("System error %d", system_error);
    return to_utf8(from_wide({space, length}));
}

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

std::u16string short_date_today() {
    wchar_t text[128] = {};
    const int length =
        GetDateFormatW(LOCALE_USER_DEFAULT, DATE_SHORTDATE, nullptr, nullptr, text, std::size(text));
    return length > 1 ? from_wide(text) : std::u16string(u"today");
}

void set_default_locale() noexcept {
    SetThreadLocale(GetSystemDefaultLCID());
}

std::string to_ansi(std::u16string_view text) {
    if (text.empty()) return {};
    const bool utf8 = GetACP() == CP_UTF8;  // which takes neither flag nor replacement
    const DWORD flags = utf8 ? 0 : WC_NO_BEST_FIT_CHARS;
    const char* const replacement = utf8 ? nullptr : "?";
    const auto* from = reinterpret_cast<const wchar_t*>(text.data());
    const int length = static_cast<int>(text.size());
    const int size = WideCharToMultiByte(CP_ACP, flags, from, length, nullptr, 0, replacement, nullptr);
    std::string bytes(size > 0 ? static_cast<std::size_t>(size) : 0, '\0');
    WideCharToMultiByte(CP_ACP, flags, from, length, bytes.data(), size, replacement, nullptr);
    return bytes;
}

std::u16string from_ansi(std::string_view bytes) {
    if (bytes.empty()) return {};
    const int length = static_cast<int>(bytes.size());
    const int size = MultiByteToWideChar(CP_ACP, 0, bytes.data(), length, nullptr, 0);
    std::wstring text(size > 0 ? static_cast<std::size_t>(size) : 0, L'\0');
    MultiByteToWideChar(CP_ACP, 0, bytes.data(), length, text.data(), size);
    return from_wide(text);
}

}  // namespace vantlow
