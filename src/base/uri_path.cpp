#include "base/uri_path.h"

#include <algorithm>

#include "base/text.h"

namespace vantlow {
namespace {

// How many dots a segment consists of; 0 where it holds anything else or more than two.
int dots_of(std::string_view segment) noexcept {
    int dots = 0;
    while (!segment.empty() && dots <= 2) {
        const std::size_t size = segment.front() == '.' ? 1 : istarts_with(segment, "%2e") ? 3 : 0;
        if (size == 0) return 0;
        segment.remove_prefix(size);
        ++dots;
    }
    return dots <= 2 ? dots : 0;
}

}  // namespace

std::string remove_dot_segments(std::string_view path) {
    const auto query = std::min(path.find('?'), path.size());
    std::string out;
    std::string_view rest = path.substr(0, query);
    if (!rest.starts_with('/')) {
        const auto end = std::min(rest.find('/'), rest.size());
        const std::string_view first = rest.substr(0, end);
        if (dots_of(first) == 0) out = first;
        rest.remove_prefix(end);
    }
    while (!rest.empty()) {
        const auto end = std::min(rest.find('/', 1), rest.size());
        const std::string_view segment = rest.substr(1, end - 1);
        rest.remove_prefix(end);
        const int dots = dots_of(segment);
        if (dots == 2) out.resize(out.rfind('/') == std::string::npos ? 0 : out.rfind('/'));
        if (dots == 0) {
            out.append("/").append(segment);
        } else if (rest.empty()) {
            out += '/';
        }
    }
    return out.append(path.substr(query));
}

}  // namespace vantlow
