// `vantlow torrent show`, and the words of all `vantlow torrent` commands.
#include <memory>

#include "app/cli/command_set.h"
#include "app/cli/tools/tools.h"

#include "app/cli/report.h"
#include "app/process/application.h"
#include "app/process/ending.h"
#include "app/terminal/display_text.h"
#include "app/terminal/quantities.h"
#include "base/codes.h"
#include "base/text.h"
#include "bt/torrent_content.h"
#include "bt/torrent_settings.h"
#include "platform/console.h"

namespace vantlow {
namespace {

using nlohmann::ordered_json;

constexpr std::size_t bytes_of_a_piece_hash = 20;

// The files in the order in which "--select" counts them: those that only fill pieces up (BEP 47) are left
// out, and a document of the second version names none.
std::vector<CBEMetaInfo::File> shown_files(const CBEMetaInfo& meta) {
    std::vector<CBEMetaInfo::File> files = meta.files();
    if (meta.pieces.empty()) return files;
    const auto content = read_torrent_content(meta.info);
    if (!content || content->files.size() != files.size()) return files;
    std::size_t number = 0;
    std::erase_if(files, [&](const CBEMetaInfo::File&) { return content->files[number++].padding; });
    return files;
}

std::int64_t pieces_of(const CBEMetaInfo& meta) {
    const auto content =
        meta.pieces.empty() ? read_torrent_content(meta.info) : Outcome<TorrentContent>(Code::unsupported);
    if (content) return content->piece_count();
    return static_cast<std::int64_t>(meta.pieces.size() / bytes_of_a_piece_hash);
}

ordered_json json_of(const TorrentFacts& facts) {
    const CBEMetaInfo& meta = facts.meta;
    ordered_json json{{"name", to_utf8(meta.name())}};
    if (facts.is_magnet) {
        json["utf8"] = json["pieceLength"] = json["pieces"] = nullptr;
    } else {
        json["utf8"] = meta.utf8;
        json["pieceLength"] = meta.piece_length;
        json["pieces"] = pieces_of(meta);
    }
    json["infoHash"] = to_hex(meta.info_hash);
    if (meta.second_hash) json["infoHashV2"] = to_hex(*meta.second_hash);
    json["trackers"] = ordered_json::array();
    for (const std::string& tracker : meta.trackers) {
        if (!tracker.empty()) json["trackers"].push_back(tracker);
    }
    json["files"] = ordered_json::array();
    for (const CBEMetaInfo::File& file : shown_files(meta)) {
        json["files"].push_back({{"path", to_utf8(file.path)}, {"size", file.size}});
    }
    return json;
}

std::string lines_of(const TorrentFacts& facts) {
    std::string lines;
    const auto add = [&lines](const std::string& line) { lines += printable(line) + "\n"; };
    const CBEMetaInfo& meta = facts.meta;
    const std::string name = to_utf8(meta.name());
    add("Name:      " + (facts.is_magnet ? percent_decode(name) : name));
    if (!is_of_second(meta.info_hash, meta.second_hash)) add("Info hash: " + to_hex(meta.info_hash));
    if (meta.second_hash) add("Version 2: " + to_hex(*meta.second_hash));
    if (!facts.is_magnet) {
        const auto total = meta.total_size();
        add("Size:      " + (total ? human_size(*total) : std::string("--")));
        add("Pieces:    " + std::to_string(pieces_of(meta)) + " of " + human_size(meta.piece_length));
    }
    for (const std::string& tracker : meta.trackers) {
        if (!tracker.empty()) {
            add("Tracker:   " + (facts.is_magnet ? tracker_from_magnet(tracker) : tracker));
        }
    }
    for (const CBEMetaInfo::File& file : shown_files(meta)) {
        add(print("%12llu  ", static_cast<unsigned long long>(file.size)) + to_utf8(file.path));
    }
    return lines;
}

Exit run_show(const GlobalOptions& global, const std::string& torrent, const Settings& settings) {
    std::string complaint;
    const auto facts = read_torrent(torrent, settings, complaint);
    if (!facts) return complain(complaint);
    print_answer(global, json_of(*facts), lines_of(*facts));
    return Exit::done;
}

void add_make_word(CommandSet& commands, CLI::App& group) {
    const auto options = std::make_shared<MakeTorrentOptions>();
    CLI::App& make = commands.add_below(
        group, "make", "Write PATH.torrent for a file or a folder",
        [options](CFerrywellApp& app, const GlobalOptions& global) {
            return run_make_torrent(app, global, *options);
        },
        [options] { return check_make_torrent(*options); });
    make.add_option("PATH", options->path, "The file or folder")->required();
    make.add_option("--tracker", options->trackers, "URL[|URL...]: a tier of trackers; repeatable");
    make.add_option("--comment", options->comment, "A comment to put into it");
    make.add_option("--piece-length", options->piece_length,
                    "Bytes in a piece, a power of two such as 256K (default: chosen by the size)");
    make.add_option("--threads", options->threads, "Threads for hashing (default: one for each core)")
        ->check(CLI::Range(1, 1024));
}

void add_announce_word(CommandSet& commands, CLI::App& group) {
    const auto options = std::make_shared<AnnounceOptions>();
    CLI::App& announce = commands.add_below(group, "announce", "Ask the trackers of a torrent for peers",
                                            [options](CFerrywellApp& app, const GlobalOptions& global) {
                                                return run_announce(app, global, *options);
                                            });
    announce.add_option("TORRENT", options->torrent, "The torrent file or magnet link")->required();
    announce.add_option("--event", options->event, "The event to report: started, completed or stopped")
        ->check(CLI::IsMember({"started", "completed", "stopped"}));
    announce.add_option("--port", options->port, "The port to announce to peers (default: none)");
    announce.add_option("--proxy", options->proxy,
                        "The proxy: http://, connect://, socks4:// or socks5:// and "
                        "[user:password@]host:port");
    announce.add_option("--probe", options->probe,
                        "HOST:PORT: contact this peer, encrypted and plain, instead of the trackers");
}

}  // namespace

std::optional<TorrentFacts> read_torrent(const std::string& file_or_magnet, const Settings& settings,
                                         std::string& complaint) {
    TorrentFacts facts;
    if (is_magnet(file_or_magnet)) {
        const auto magnet = parse_magnet(file_or_magnet, default_magnet_trackers(settings));
        if (!magnet) {
            complaint = "The magnet link holds no info hash: " + file_or_magnet;
            return std::nullopt;
        }
        facts.is_magnet = true;
        facts.meta.info_hash = magnet->info_hash;
        facts.meta.second_hash = magnet->second_hash;
        facts.meta.name_utf8 = magnet->name;
        facts.meta.trackers = magnet->trackers;
        return facts;
    }
    CBEncode parser;
    if (const Result loaded = parser.load_file(to_utf16(file_or_magnet)); !loaded.ok()) {
        complaint = file_or_magnet + ": " + loaded.message();
        return std::nullopt;
    }
    const auto document = parser.parse_document();
    const std::string standard = default_tracker(settings);
    if (!document || !parse_meta_info(parser, *document, {standard}, facts.meta)) {
        complaint = file_or_magnet + ": not a torrent.";
        return std::nullopt;
    }
    return facts;
}

void add_torrent_commands(CommandSet& commands) {
    CLI::App& group = commands.add_group("torrent", "Show, make, announce and check torrents");
    const auto shown = std::make_shared<std::string>();
    CLI::App& show = commands.add_below(group, "show", "Show what a torrent file or a magnet link contains",
                                        [shown](CFerrywellApp& app, const GlobalOptions& global) {
                                            return run_show(global, *shown, app.settings());
                                        });
    show.add_option("TORRENT", *shown, "The torrent file or magnet link")->required();
    add_make_word(commands, group);
    add_announce_word(commands, group);
}

}  // namespace vantlow
