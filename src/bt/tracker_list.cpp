#include "bt/tracker_list.h"

#include <algorithm>

#include "base/text.h"
#include "bt/announce.h"

namespace vantlow {
namespace {

constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";
constexpr std::string_view kept_begin = "# Trackers, fetched ";
constexpr std::string_view kept_from = " from ";

// Trackers of browsers, of which lists are full.
bool is_over_web_sockets(std::string_view url) noexcept {
    return istarts_with(url, "wss://") || istarts_with(url, "ws://");
}

std::string_view without_carriage_return(std::string_view line) noexcept {
    if (line.ends_with('\r')) line.remove_suffix(1);
    return trim(line);
}

}  // namespace

Outcome<TrackerList> read_tracker_list(std::string_view text) {
    if (text.size() > TrackerList::longest_text)
        return Result(Code::server_error, "It is too long for a list of trackers.");
    if (text.starts_with(byte_order_mark)) text.remove_prefix(byte_order_mark.size());
    TrackerList list;
    std::size_t named = 0;
    for (const std::string_view whole : split(text, '\n')) {
        const std::string_view line = without_carriage_return(whole);
        if (line.empty() || line.starts_with('#')) continue;
        std::string url = normalise_tracker(line);
        const bool can_be_asked = can_be_announced_to(url);
        if (!can_be_asked && !is_over_web_sockets(url)) {
            ++list.bad_lines;
            continue;
        }
        ++named;
        if (can_be_asked && std::ranges::find(list.trackers, url) != list.trackers.end()) continue;
        if (can_be_asked && list.trackers.size() < TrackerList::most_trackers)
            list.trackers.push_back(std::move(url));
        else
            ++list.left_out;
    }
    if (list.bad_lines > named)
        return Result(Code::server_error,
                      "It is no list of trackers: " + std::to_string(list.bad_lines) + " lines name none.");
    if (list.trackers.empty()) return Result(Code::server_error, "It names no tracker that can be asked.");
    return list;
}

std::string text_of(const KeptTrackerList& kept) {
    std::string text(kept_begin);
    text.append(std::to_string(kept.fetched)).append(kept_from).append(kept.address).append("\n");
    for (const std::string& tracker : kept.list.trackers) text += tracker + "\n";
    return text;
}

std::optional<KeptTrackerList> read_kept_tracker_list(std::string_view text) {
    const std::string_view head = text.substr(0, text.find('\n'));
    const auto from = head.find(kept_from);
    if (!head.starts_with(kept_begin) || from == std::string_view::npos) return std::nullopt;
    const auto fetched = parse_decimal(head.substr(kept_begin.size(), from - kept_begin.size()));
    auto list = read_tracker_list(text);
    if (!fetched || !list) return std::nullopt;
    return KeptTrackerList{std::string(head.substr(from + kept_from.size())), *fetched, *std::move(list)};
}

}  // namespace vantlow
