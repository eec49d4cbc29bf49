#include "engine/selection.h"

#include <algorithm>
#include <limits>

#include "base/text.h"
#include "bt/torrent_content.h"

namespace vantlow {
namespace {

struct Range {
    std::size_t first = 0;  // from 1 on
    std::size_t last = 0;
};

std::optional<Range> parse_range(std::string_view text) noexcept {
    text = trim(text);
    const auto hyphen = text.find('-');
    const auto first = parse_decimal(trim(text.substr(0, hyphen)));
    if (!first || *first < 1) return std::nullopt;
    Range range{static_cast<std::size_t>(*first), static_cast<std::size_t>(*first)};
    if (hyphen == std::string_view::npos) return range;
    const std::string_view end = trim(text.substr(hyphen + 1));
    if (end.empty()) {
        range.last = std::numeric_limits<std::size_t>::max();
        return range;
    }
    const auto last = parse_decimal(end);
    if (!last || *last < *first) return std::nullopt;
    range.last = static_cast<std::size_t>(*last);
    return range;
}

}  // namespace

bool is_selection(std::string_view text) noexcept {
    while (!text.empty()) {
        const auto comma = std::min(text.find(','), text.size());
        if (!parse_range(text.substr(0, comma))) return false;
        if (comma + 1 == text.size()) return false;
        text.remove_prefix(std::min(comma + 1, text.size()));
    }
    return true;
}

std::optional<std::vector<std::size_t>> select(std::string_view text, std::size_t count) {
    std::vector<bool> chosen(count, trim(text).empty());
    if (!trim(text).empty()) {
        for (const std::string_view part : split(text, ',')) {
            const auto range = parse_range(part);
            if (!range) return std::nullopt;
            for (std::size_t i = range->first; i <= std::min(range->last, count); ++i) chosen[i - 1] = true;
        }
    }
    std::vector<std::size_t> indexes;
    for (std::size_t i = 0; i < count; ++i) {
        if (chosen[i]) indexes.push_back(i);
    }
    if (indexes.empty() && count > 0) return std::nullopt;
    return indexes;
}

Outcome<std::vector<bool>> chosen_files(const TorrentContent& content, std::string_view text) {
    // People see and count the files without those that only fill pieces up.
    std::vector<std::size_t> shown;
    for (std::size_t i = 0; i < content.files.size(); ++i) {
        if (!content.files[i].padding) shown.push_back(i);
    }
    const auto numbers = select(text, shown.size());
    std::vector<bool> chosen(content.files.size(), false);
    for (const std::size_t number : numbers.value_or(std::vector<std::size_t>()))
        chosen[shown[number]] = true;
    if (numbers && !numbers->empty()) return chosen;
    return Result(Code::unsupported, "The torrent has no file that \"" + std::string(text) + "\" selects.");
}

}  // namespace vantlow
