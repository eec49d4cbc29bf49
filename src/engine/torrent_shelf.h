// Where the documents of torrent jobs are kept.
#pragma once

#include <cstddef>
#include <deque>
#include <map>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "base/mutex.h"
#include "bt/piece_layers.h"
#include "platform/file.h"
#include "platform/socket.h"

namespace vantlow {

/// The .torrent documents by their info hashes: in the data folder, or in memory where the jobs are. Any
/// thread may call.
class TorrentShelf {
  public:
    /// An empty folder: in memory.
    explicit TorrentShelf(std::u16string data_folder) : folder_(std::move(data_folder)) {}

    /// Keeps a document, in place of an earlier one of the hash.
    FileError keep(const InfoHash& hash, std::span<const std::byte> document);
    /// The "info" value of the kept document, whose digest is the hash; empty where there is none.
    [[nodiscard]] std::string find_info(const InfoHash& hash) const;
    /// The digests of pieces that the kept document has for a torrent of the second version.
    [[nodiscard]] PieceLayers find_layers(const InfoHash& hash, const TorrentContent& content) const;
    /// Puts digests into the kept document, in place of its own.
    FileError keep_layers(const InfoHash& hash, const PieceLayers& layers);
    /// The nodes of the distributed hash table that the kept document names.
    [[nodiscard]] std::vector<SocketAddress> find_nodes(const InfoHash& hash) const;
    /// The servers that the kept document names as having the files.
    [[nodiscard]] std::vector<std::string> find_web_seeds(const InfoHash& hash) const;
    /// The addresses of scripts that give the pieces, as the kept document names them.
    [[nodiscard]] std::vector<std::string> find_http_seeds(const InfoHash& hash) const;
    /// The facts that the kept document tells of itself; empty where there is none.
    [[nodiscard]] DocumentFacts find_facts(const InfoHash& hash) const;
    /// Ok also where there is none.
    FileError drop(const InfoHash& hash);

  private:
    [[nodiscard]] std::vector<std::byte> find(const InfoHash& hash) const;
    [[nodiscard]] std::string find_recent(const InfoHash& hash) const;
    void remember(const InfoHash& hash, const std::string& info) const;
    void forget(const InfoHash& hash);

    const std::u16string folder_;
    mutable Mutex mutex_;
    std::map<InfoHash, std::vector<std::byte>> kept_ VANTLOW_GUARDED_BY(mutex_);
    /// "info" values that were read of files, the latest one last: lists of jobs ask for them again and
    /// again.
    mutable std::deque<std::pair<InfoHash, std::string>> recent_ VANTLOW_GUARDED_BY(mutex_);
    mutable std::size_t recent_bytes_ VANTLOW_GUARDED_BY(mutex_) = 0;
    mutable std::map<InfoHash, DocumentFacts> facts_
        VANTLOW_GUARDED_BY(mutex_);  ///< that were read, likewise
};

}  // namespace vantlow
