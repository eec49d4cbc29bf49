// The commands that need neither jobs nor a store, and what those of `vantlow torrent` share.
#pragma once

#include <optional>
#include <string>

#include "app/cli/command.h"
#include "app/process/application.h"
#include "bt/magnet.h"
#include "bt/metainfo.h"

namespace vantlow {

class CommandSet;

// Each function adds the words of its file.
void add_link_commands(CommandSet& commands);     ///< link, ed2k make, metafile
void add_torrent_commands(CommandSet& commands);  ///< torrent show, torrent make, torrent announce
void add_combine_command(CommandSet& commands);   ///< combine
void add_media_command(CommandSet& commands);     ///< media show

/// A torrent file or a magnet link, read.
struct TorrentFacts {
    CBEMetaInfo meta;  ///< of a magnet link: trackers, name (as it stands in the link) and hash only
    bool is_magnet = false;
};

/// Reads a torrent file or a magnet link; none with the reason in `complaint`.
std::optional<TorrentFacts> read_torrent(const std::string& file_or_magnet, const Settings& settings,
                                         std::string& complaint);

/// The options of `torrent make`.
struct MakeTorrentOptions {
    std::string path;
    std::vector<std::string> trackers;  ///< a tier each, URLs parted by "|"
    std::string comment;
    std::string piece_length;  ///< bytes, "256K"; empty: chosen by the size
    unsigned threads = 0;      ///< 0: one a core
};
Complaint check_make_torrent(const MakeTorrentOptions& options);
Exit run_make_torrent(CFerrywellApp& app, const GlobalOptions& global, const MakeTorrentOptions& options);

/// The options of `torrent announce`.
struct AnnounceOptions {
    std::string torrent;
    std::string event;
    std::uint16_t port = 0;  ///< for peers to connect to; 0: none
    std::string proxy;
    std::string probe;  ///< "host:port": a peer to contact in place of the trackers
};
Exit run_announce(CFerrywellApp& app, const GlobalOptions& global, const AnnounceOptions& options);

}  // namespace vantlow
