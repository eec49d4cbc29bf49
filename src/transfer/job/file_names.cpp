#include "transfer/job/file_names.h"

#include <cstdint>

#include "base/text.h"

namespace vantlow {
namespace {

// Takes "(7)" off the end of a base name; 1 when there is no such number.
std::int64_t take_number(std::u16string_view& base) {
    if (base.empty() || base.back() != u')') return 1;
    const auto open = base.rfind(u'(');
    if (open == std::u16string_view::npos) return 1;
    const auto number = parse_decimal(to_utf8(base.substr(open + 1, base.size() - open - 2)));
    if (!number || *number > INT32_MAX) return 1;
    base = base.substr(0, open);
    return *number;
}

}  // namespace

std::u16string free_name(std::u16string_view name,
                         const std::function<bool(const std::u16string&)>& is_taken) {
    const auto dot = name.rfind(u'.');
    const bool has_extension = dot != std::u16string_view::npos && dot > 0;
    const std::u16string extension(has_extension ? name.substr(dot) : std::u16string_view{});
    std::u16string_view base = has_extension ? name.substr(0, dot) : name;
    for (std::int64_t number = take_number(base);; ++number) {
        std::u16string candidate =
            std::u16string(base) + u"(" + to_utf16(std::to_string(number)) + u")" + extension;
        if (!is_taken(candidate)) return candidate;
    }
}

}  // namespace vantlow
