#include "platform/local_text.h"

#include <locale.h>  // NOLINT(modernize-deprecated-headers): the POSIX one

#include <cstring>
#include <ctime>

#include "base/text.h"

namespace vantlow {
namespace {

constexpr std::uint64_t ticks_a_second = 10'000'000;
constexpr std::int64_t seconds_to_1970 = 11'644'473'600;

std::u16string formatted(const char* format, const std::tm& parts) {
    char text[128 + 1] = {};
    const std::size_t length = std::strftime(text, sizeof text, format, &parts);
    return to_utf16({text, length});
}

}  // namespace

std::string system_text(int system_error) {
    char space[256] = {};
    return strerror_r(system_error, space,
                      sizeof space);  // the GNU one: it may answer with a text of its own
}

LocalDate local_date(std::uint64_t file_time) {
    const auto seconds = static_cast<std::time_t>(file_time / ticks_a_second) - seconds_to_1970;
    std::tm parts{};
    if (localtime_r(&seconds, &parts) == nullptr) return {};
    return {formatted("%x", parts), formatted("%X", parts)};
}

std::u16string short_date_today() {
    const std::time_t now = std::time(nullptr);
    struct tm local {};
    char text[64] = {};
    if (::localtime_r(&now, &local) == nullptr || std::strftime(text, sizeof text, "%x", &local) == 0)
        return u"today";
    return to_utf16(text);
}

void set_default_locale() noexcept {
    // Numbers and messages keep their form, since programs read both.
    const int parts = LC_CTYPE_MASK | LC_TIME_MASK | LC_COLLATE_MASK;
    // Threads keep using the locale until the process ends, so it is never freed.
    static const locale_t locale = ::newlocale(parts, "", nullptr);
    if (locale != nullptr) ::uselocale(locale);
}

std::string to_ansi(std::u16string_view text) {
    return to_utf8(text);
}

std::u16string from_ansi(std::string_view bytes) {
    return to_utf16(bytes);
}

}  // namespace vantlow
