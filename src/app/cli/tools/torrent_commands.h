// `vantlow torrent`: shows, makes and announces torrents.
#pragma once

#include <optional>
#include <string>

#include "app/cli/command_set.h"
#include "bt/magnet.h"
#include "bt/metainfo.h"

namespace vantlow {

/// The words `torrent show`, `torrent make` and `torrent announce` with their options.
void add_torrent_commands(CommandSet& commands);

/// A torrent file or a magnet link, read.
struct TorrentFacts {
    CBEMetaInfo meta;  ///< of a magnet link: trackers, name (as it stands in the link) and hash only
    bool is_magnet = false;
};

/// Reads what a command names; `complaint` says why it is none.
std::optional<TorrentFacts> read_torrent(const std::string& file_or_magnet, const Settings& settings,
                                         std::string& complaint);

struct MakeTorrentOptions {
    std::string path;
    std::vector<std::string> trackers;  ///< a tier each, URLs parted by "|"
    std::string comment;
    std::string piece_length;  ///< bytes, "256K"; empty: chosen by the size
    unsigned threads = 0;      ///< 0: one a core
};
Complaint check_make_torrent(const MakeTorrentOptions& options);
Exit run_make_torrent(CFerrywellApp& app, const GlobalOptions& global, const MakeTorrentOptions& options);

struct AnnounceOptions {
    std::string torrent;
    std::string event;
    std::uint16_t port = 0;  ///< that peers are told to connect to; 0: none
    std::string proxy;
    std::string probe;  ///< "host:port": a peer to speak with in place of the trackers
};
Exit run_announce(CFerrywellApp& app, const GlobalOptions& global, const AnnounceOptions& options);

}  // namespace vantlow
