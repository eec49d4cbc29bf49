#include "transfer/ftp/listing.h"

#include <algorithm>
#include <array>
#include <vector>

#include "base/text.h"

namespace vantlow {
namespace {

struct Word {
    std::string_view text;
    std::size_t end;  ///< in the line, behind the word
};

std::vector<Word> words_of(std::string_view line, std::size_t most) {
    std::vector<Word> words;
    std::size_t at = 0;
    while (words.size() < most) {
        at = line.find_first_not_of(" \t", at);
        if (at == std::string_view::npos) break;
        const auto end = std::min(line.find_first_of(" \t", at), line.size());
        words.push_back({line.substr(at, end - at), end});
        at = end;
    }
    return words;
}

bool is_month(std::string_view word) noexcept {
    constexpr std::array<std::string_view, 12> months{"jan", "feb", "mar", "apr", "may", "jun",
                                                      "jul", "aug", "sep", "oct", "nov", "dec"};
    return std::any_of(months.begin(), months.end(), [&](std::string_view m) { return iequals(m, word); });
}

std::string join(std::string_view a, std::string_view b, std::string_view c) {
    return std::string(a).append(1, ' ').append(b).append(1, ' ').append(c);
}

// Permissions, links, owner, group, size, then "Jan 1 10:00", "1 Jan 10:00" or "2024-01-01 10:00"; some leave
// words out, so the size is what stands in front of the date.
std::optional<FtpEntry> parse_unix(std::string_view line) {
    constexpr std::string_view kinds = "-dlbcps";
    if (line.size() < 10 || kinds.find(line[0]) == std::string_view::npos) return std::nullopt;
    if (line.substr(1, 9).find_first_not_of("rwxsStTlL-") != std::string_view::npos) return std::nullopt;
    const std::vector<Word> words = words_of(line, 12);
    for (std::size_t i = 2; i < words.size(); ++i) {
        const bool month_first = is_month(words[i].text) && i + 3 < words.size();
        const bool day_first = i + 3 < words.size() && is_month(words[i + 1].text);
        const bool iso = words[i].text.size() == 10 && words[i].text[4] == '-' && i + 2 < words.size();
        const auto size = parse_decimal(words[i - 1].text);
        if (!size || !(month_first || day_first || iso)) continue;
        const std::size_t last = iso && !month_first ? i + 1 : i + 2;  // of the date's words
        FtpEntry entry;
        entry.is_folder = line[0] == 'd';
        entry.size = line[0] == '-' ? *size : -1;
        entry.time = last == i + 1 ? std::string(words[i].text) + ' ' + std::string(words[i + 1].text)
                                   : join(words[i].text, words[i + 1].text, words[i + 2].text);
        // One blank parts date and name; further ones belong to the name.
        entry.name = line.substr(std::min(words[last].end + 1, line.size()));
        if (line[0] == 'l') entry.name.erase(std::min(entry.name.find(" -> "), entry.name.size()));
        return entry;
    }
    return std::nullopt;
}

// "01-31-24  10:00AM       12 name", "2024-01-31  10:00  <DIR>  name".
std::optional<FtpEntry> parse_dos(std::string_view line) {
    const std::vector<Word> words = words_of(line, 3);
    if (words.size() < 3 || words[0].text.size() < 8 || words[1].text.size() < 4) return std::nullopt;
    if (words[0].text.find_first_not_of("0123456789-./") != std::string_view::npos) return std::nullopt;
    if (words[1].text.find(':') == std::string_view::npos) return std::nullopt;
    FtpEntry entry;
    entry.is_folder = iequals(words[2].text, "<DIR>");
    if (!entry.is_folder) {
        const auto size = parse_decimal(words[2].text);
        if (!size) return std::nullopt;
        entry.size = *size;
    }
    entry.time = std::string(words[0].text) + ' ' + std::string(words[1].text);
    const auto name = line.find_first_not_of(' ', words[2].end);
    if (name == std::string_view::npos) return std::nullopt;
    entry.name = line.substr(name);
    return entry;
}

// "+i8388621.29609,m824255902,/,\tdev" (https://cr.yp.to/ftp/list/eplf.html).
std::optional<FtpEntry> parse_eplf(std::string_view line) {
    const auto tab = line.find('\t');
    if (!line.starts_with('+') || tab == std::string_view::npos) return std::nullopt;
    FtpEntry entry;
    for (const std::string_view fact : split(line.substr(1, tab - 1), ',')) {
        if (fact == "/") entry.is_folder = true;
        if (fact.starts_with('s')) entry.size = parse_decimal(fact.substr(1)).value_or(-1);
        if (fact.starts_with('m')) entry.time = fact.substr(1);
    }
    entry.name = line.substr(tab + 1);
    return entry;
}

std::optional<FtpEntry> parse_facts(std::string_view line) {
    const auto blank = line.find(' ');
    if (blank == std::string_view::npos || blank == 0 || line[blank - 1] != ';') return std::nullopt;
    FtpEntry entry;
    for (const std::string_view fact : split(line.substr(0, blank - 1), ';')) {
        const auto equals = fact.find('=');
        if (equals == std::string_view::npos) return std::nullopt;
        const std::string_view name = fact.substr(0, equals);
        const std::string_view value = fact.substr(equals + 1);
        if (iequals(name, "size")) entry.size = parse_decimal(value).value_or(-1);
        if (iequals(name, "modify")) entry.time = value;
        if (iequals(name, "type"))
            entry.is_folder = value.size() >= 3 && istarts_with(value.substr(1), "dir");
        if (iequals(name, "type") && iequals(value, "dir")) entry.is_folder = true;
    }
    entry.name = line.substr(blank + 1);
    return entry;
}

std::string_view last_part(std::string_view path) noexcept {
    return path.substr(path.rfind('/') + 1);
}

}  // namespace

std::optional<FtpEntry> parse_listing_line(std::string_view line) {
    if (auto entry = parse_unix(line)) return entry;
    if (auto entry = parse_eplf(line)) return entry;
    if (auto entry = parse_facts(line)) return entry;
    return parse_dos(line);
}

std::optional<FtpEntry> find_in_listing(const FtpReply& reply, std::string_view name) {
    std::vector<FtpEntry> entries;
    for (std::size_t i = 0; i < reply.lines.size(); ++i) {
        std::string_view line = reply.lines[i];
        const std::string code = std::to_string(reply.code);
        // The first and the last line may hold the listing of a single file.
        if (line.starts_with(code) && line.size() > 4) line.remove_prefix(4);
        if (line.starts_with(' '))
            line.remove_prefix(line.find_first_not_of(' ') == std::string_view::npos
                                   ? line.size()
                                   : line.find_first_not_of(' '));
        auto entry = parse_listing_line(line);
        if (!entry) continue;
        if (last_part(entry->name) == last_part(name)) return entry;
        entries.push_back(*std::move(entry));
    }
    if (entries.size() == 1 && !entries.front().is_folder) return entries.front();
    return std::nullopt;
}

}  // namespace vantlow
