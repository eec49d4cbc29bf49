// Selections among a document's files, as --select writes them.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

#include "base/result.h"

namespace vantlow {

struct TorrentContent;

/// True when the text has the form of --select: numbers and ranges from 1 on, "1,3-5", "4-" to the last.
bool is_selection(std::string_view text) noexcept;

/// The indexes (from 0 on) of the selected ones of `count` things, in their order, each once. None when the
/// text has another form or selects nothing that exists. An empty text selects all.
std::optional<std::vector<std::size_t>> select(std::string_view text, std::size_t count);

/// The files of a torrent that the text selects, one flag for each. Files that only fill pieces up are
/// neither counted nor chosen. `unsupported`, with a sentence, where it selects none.
Outcome<std::vector<bool>> chosen_files(const TorrentContent& content, std::string_view text);

}  // namespace vantlow
