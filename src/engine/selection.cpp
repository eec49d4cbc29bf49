#include "engine/selection.h"

#include <algorithm>
#include <array>
#include <limits>

#include "base/text.h"
#include "bt/torrent_content.h"
#include "store/job.h"

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

constexpr std::array<std::string_view, 4> priority_names{"skip", "low", "normal", "high"};

// People see and count the files without those that only fill pieces up.
std::vector<std::size_t> shown_files(const TorrentContent& content) {
    std::vector<std::size_t> shown;
    for (std::size_t i = 0; i < content.files.size(); ++i) {
        if (!content.files[i].padding) shown.push_back(i);
    }
    return shown;
}

}  // namespace

std::string_view file_priority_name(FilePriority priority) noexcept {
    return priority_names[static_cast<std::size_t>(priority)];
}

std::optional<FilePriority> file_priority_of(std::string_view name) noexcept {
    const auto* const at = std::find(priority_names.begin(), priority_names.end(), name);
    if (at == priority_names.end()) return std::nullopt;
    return static_cast<FilePriority>(at - priority_names.begin());
}

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

std::string selection_of(const std::vector<bool>& chosen) {
    std::string text;
    if (std::ranges::find(chosen, false) == chosen.end()) return text;
    for (std::size_t first = 0; first < chosen.size(); ++first) {
        if (!chosen[first]) continue;
        std::size_t last = first;
        while (last + 1 < chosen.size() && chosen[last + 1]) ++last;
        if (!text.empty()) text += ',';
        text += std::to_string(first + 1);
        if (last > first) text += "-" + std::to_string(last + 1);
        first = last;
    }
    return text;
}

bool TorrentChoice::wants_more_than(const TorrentChoice& other) const noexcept {
    for (std::size_t file = 0; file < files.size(); ++file) {
        if (files[file] != FilePriority::skip && other.files[file] == FilePriority::skip) return true;
    }
    return false;
}

std::vector<bool> TorrentChoice::chosen() const {
    std::vector<bool> flags;
    for (const FilePriority priority : files) flags.push_back(priority != FilePriority::skip);
    return flags;
}

Outcome<TorrentChoice> choice_of(const TorrentContent& content, const JobRules* rules) {
    const JobRules none;
    if (rules == nullptr) rules = &none;
    const std::vector<std::size_t> shown = shown_files(content);
    TorrentChoice choice{std::vector<FilePriority>(content.files.size(), FilePriority::skip),
                         rules->sequential, rules->ends_first};
    const auto chosen = select(rules->select, shown.size());
    if (!chosen || chosen->empty())
        return Result(Code::unsupported, "The torrent has no file that \"" + rules->select + "\" selects.");
    for (const std::size_t number : *chosen) choice.files[shown[number]] = FilePriority::normal;
    for (const auto& [text, priority] :
         {std::pair(&rules->low, FilePriority::low), std::pair(&rules->high, FilePriority::high)}) {
        if (text->empty()) continue;
        for (const std::size_t number : select(*text, shown.size()).value_or(std::vector<std::size_t>())) {
            FilePriority& now = choice.files[shown[number]];
            if (now != FilePriority::skip) now = priority;
        }
    }
    return choice;
}

void keep_choice(const TorrentContent& content, const TorrentChoice& choice, JobRules& rules) {
    const std::vector<std::size_t> shown = shown_files(content);
    const auto text_of = [&](const auto& is_meant) {
        std::vector<bool> meant;
        for (const std::size_t file : shown) meant.push_back(is_meant(choice.files[file]));
        // An empty text stands for all files in one place and for none in the others.
        const bool is_all = std::ranges::find(meant, false) == meant.end();
        return is_all ? std::string("1-") : selection_of(meant);
    };
    rules.select = text_of([](FilePriority one) { return one != FilePriority::skip; });
    if (rules.select == "1-") rules.select.clear();
    rules.high = text_of([](FilePriority one) { return one == FilePriority::high; });
    rules.low = text_of([](FilePriority one) { return one == FilePriority::low; });
    rules.sequential = choice.sequential;
    rules.ends_first = choice.ends_first;
}

}  // namespace vantlow
