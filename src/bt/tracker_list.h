// Lists of trackers that somebody publishes: a text with the address of one tracker in each line.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/result.h"

namespace vantlow {

/// The trackers of a list, as far as they are used.
struct TrackerList {
    /// Every public torrent has a thread for each of them, and lists name those first that answer best.
    static constexpr std::size_t most_trackers = 32;
    static constexpr std::size_t longest_text = 1024 * 1024;  ///< bytes; lists have some thousands

    std::vector<std::string> trackers;  ///< as normalise_tracker() has them, each once
    std::size_t left_out = 0;           ///< lines of trackers that cannot be asked, or are too many
    std::size_t bad_lines = 0;          ///< that name no tracker

    bool operator==(const TrackerList&) const = default;
};

/// Reads a list. Empty lines and those that begin with "#" mean nothing. Fails with `server_error` and a
/// sentence where the text is too long, has more lines that name no tracker than others (a page for people,
/// an error message), or none of a tracker that can be asked.
Outcome<TrackerList> read_tracker_list(std::string_view text);

/// A list as it is kept on the disk: what it was at its address, and when.
struct KeptTrackerList {
    std::string address;
    std::int64_t fetched = 0;  ///< seconds since 1970
    TrackerList list;

    /// Whether it need not be fetched again at this moment (seconds since 1970): it is of this address and
    /// younger than `lasts` seconds. One from the future was kept by a clock that was wrong.
    [[nodiscard]] bool is_fresh(std::string_view wanted, std::int64_t now,
                                std::int64_t lasts) const noexcept {
        return address == wanted && fetched <= now && now - fetched < lasts;
    }
};

/// Its text, which is itself a list: a remark with time and address, then the trackers.
std::string text_of(const KeptTrackerList& kept);
/// None where the text is no such one.
std::optional<KeptTrackerList> read_kept_tracker_list(std::string_view text);

}  // namespace vantlow
