// Selections among a document's files, as --select writes them, and what is fetched of a torrent.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/result.h"

namespace vantlow {

struct JobRules;
struct TorrentContent;

/// How much a file of a torrent is wanted. One that is skipped is not chosen: it is not fetched.
enum class FilePriority : std::uint8_t { skip, low, normal, high };
/// "skip" and its kin.
std::string_view file_priority_name(FilePriority priority) noexcept;
std::optional<FilePriority> file_priority_of(std::string_view name) noexcept;

/// True when the text has the form of --select: numbers and ranges from 1 on, "1,3-5", "4-" to the last.
bool is_selection(std::string_view text) noexcept;

/// The indexes (from 0 on) of the selected ones of `count` things, in their order, each once. None when the
/// text has another form or selects nothing that exists. An empty text selects all.
std::optional<std::vector<std::size_t>> select(std::string_view text, std::size_t count);

/// The selection of these among files that are counted from 1: "1,3-5"; empty: none or all.
std::string selection_of(const std::vector<bool>& chosen);

/// What of a torrent is fetched, and in which order. A plain record.
struct TorrentChoice {
    std::vector<FilePriority> files;  ///< one for each; those that only fill pieces up are skipped
    bool sequential = false;          ///< see JobRules
    bool ends_first = false;

    /// It has files that the other one has not.
    [[nodiscard]] bool wants_more_than(const TorrentChoice& other) const noexcept;
    [[nodiscard]] std::vector<bool> chosen() const;  ///< one flag for each file
    bool operator==(const TorrentChoice&) const = default;
};
/// The choice that a job's rules (null: none) have of a torrent. Files that only fill pieces up are not
/// counted. `unsupported`, with a sentence, where they select none.
Outcome<TorrentChoice> choice_of(const TorrentContent& content, const JobRules* rules);
/// Puts the choice of files into the rules, from which choice_of() reads it again.
void keep_choice(const TorrentContent& content, const TorrentChoice& choice, JobRules& rules);

}  // namespace vantlow
