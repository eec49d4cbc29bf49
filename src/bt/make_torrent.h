// Writing torrent documents.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "bt/metainfo.h"
#include "bt/torrent_source.h"
#include "platform/file.h"

namespace vantlow {

/// The texts of a new torrent, beside its files.
struct TorrentText {
    std::u16string trackers;   ///< one tier a line (CR LF between), the URLs of a tier parted by "|"
    std::u16string comment;    ///< empty: none
    std::int64_t created = 0;  ///< seconds since 1970, UTC
};

/// The program's name in the torrents that it writes.
inline constexpr std::string_view torrent_creator = "Vantlow/2.95";

/// The document for this source and its pieces' digests; `hash` gets the info hash.
std::string torrent_document(const TorrentSource& source, std::int64_t piece_length, std::string_view pieces,
                             const TorrentText& text, InfoHash& hash);

/// The path at which the torrent of a file or folder is written: the path with ".torrent" behind it.
std::u16string torrent_path(std::u16string path);

/// Writes the document beside its source; an existing file is replaced.
FileError write_torrent(const std::u16string& path, std::string_view document);

/// The document for metadata that peers sent: its info value has exactly these bytes, so that its hash stays
/// the same.
std::string torrent_from_metadata(const std::vector<std::string>& trackers, std::string_view info,
                                  std::int64_t created);

}  // namespace vantlow
