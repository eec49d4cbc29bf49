#include "transfer/http/parameter.h"

#include <algorithm>

#include "base/text.h"

namespace vantlow {

std::optional<Parameter> next_parameter(std::string_view& rest) {
    while (!rest.empty() && (rest.front() == ';' || rest.front() == ' ' || rest.front() == '\t'))
        rest.remove_prefix(1);
    if (rest.empty()) return std::nullopt;
    Parameter parameter;
    const auto end = std::min(rest.find_first_of("=;"), rest.size());
    parameter.name = ascii_lower(trim(rest.substr(0, end)));
    rest.remove_prefix(end);
    if (rest.empty() || rest.front() == ';') return parameter;
    rest.remove_prefix(1);
    while (!rest.empty() && (rest.front() == ' ' || rest.front() == '\t')) rest.remove_prefix(1);
    if (rest.empty() || rest.front() != '"') {
        const auto stop = std::min(rest.find(';'), rest.size());
        parameter.value = std::string(trim(rest.substr(0, stop)));
        rest.remove_prefix(stop);
        return parameter;
    }
    std::size_t at = 1;
    for (; at < rest.size() && rest[at] != '"'; ++at) {
        // Some servers send a Windows path unescaped: a backslash counts as an escape before a quote or
        // itself only.
        const bool escape =
            rest[at] == '\\' && at + 1 < rest.size() && (rest[at + 1] == '"' || rest[at + 1] == '\\');
        if (escape) ++at;
        parameter.value.push_back(rest[at]);
    }
    rest.remove_prefix(std::min(at + 1, rest.size()));
    return parameter;
}

}  // namespace vantlow
