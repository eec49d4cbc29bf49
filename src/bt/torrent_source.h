// The source of a new torrent: one file, or a folder with everything in it.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "base/result.h"
#include "platform/stop.h"

namespace vantlow {

struct SourceFile {
    std::u16string path;  ///< where it lies
    std::string
        relative;  ///< UTF-8, below the source folder, "/" between components; empty for a single file
    std::int64_t size = 0;
};

struct TorrentSource {
    std::u16string path;  ///< without separators at its end
    bool is_file = false;
    std::vector<SourceFile> files;  ///< in the order of the torrent: that of the bytes of `relative`
    std::int64_t total = 0;         ///< bytes of all of them

    /// The name of the torrent: the last component of the path.
    [[nodiscard]] std::u16string name() const;
};

/// Collects the files of the path. Hidden and empty files count; links to folders are not followed. Fails
/// with `local_file` and a sentence when there is nothing, when all files are empty, or when something cannot
/// be listed; with `stopped`.
Outcome<TorrentSource> find_torrent_source(const std::u16string& path, const StopSource& stop);

/// The power of two that makes about 1,500 pieces, from 16 KiB to 16 MiB.
std::int64_t choose_piece_length(std::int64_t total) noexcept;

/// Reads everything and returns the SHA-1 digests of the pieces, one behind the other. `threads` work at once
/// (0: as many as there are cores); `done` counts bytes and may be read meanwhile. Fails with `local_file`
/// and a sentence when a file cannot be read or its size has changed; with `stopped`, within 0.2 s of a
/// request as far as the disk allows.
Outcome<std::string> hash_pieces(const TorrentSource& source, std::int64_t piece_length, unsigned threads,
                                 const StopSource& stop, std::atomic<std::int64_t>& done);

}  // namespace vantlow
