#include "platform/local_date.h"

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

LocalDate local_date(std::uint64_t file_time) {
    const auto seconds = static_cast<std::time_t>(file_time / ticks_a_second) - seconds_to_1970;
    std::tm parts{};
    if (localtime_r(&seconds, &parts) == nullptr) return {};
    return {formatted("%x", parts), formatted("%X", parts)};
}

}  // namespace vantlow
