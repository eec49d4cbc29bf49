// `vantlow link`, `ed2k make` and `metafile`: the contents of links and metafiles.
#include "app/cli/tools/tools.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <memory>

#include "app/cli/command_set.h"
#include "app/cli/report.h"
#include "app/process/application.h"
#include "app/process/ending.h"
#include "app/terminal/display_text.h"
#include "base/codes.h"
#include "base/text.h"
#include "bt/magnet.h"
#include "bt/torrent_settings.h"
#include "ed2k/link.h"
#include "engine/plans.h"
#include "meta/playlist.h"
#include "platform/file.h"
#include "store/address.h"

namespace vantlow {
namespace {

using nlohmann::ordered_json;

// A value for a person.
std::string shown(const ordered_json& value) {
    return value.is_string() ? value.get<std::string>() : json_line(value);
}

// The fields for a person, a line each; those without a value are left out.
std::string lines_of(const ordered_json& fields) {
    std::string lines;
    for (const auto& [name, value] : fields.items()) {
        if (value.is_null() || (value.is_string() && value.get<std::string>().empty())) continue;
        lines += value.is_object() ? lines_of(value) : printable(name + ": " + shown(value)) + "\n";
    }
    return lines;
}

// The scheme in lower case. An address without one names an FTP server.
ordered_json kind_name(std::u16string_view address) {
    if (link_kind(address) == LinkKind::unknown) return nullptr;
    const std::string text = to_utf8(address);
    if (istarts_with(text, "magnet:?")) return "magnet";
    const auto end = text.find("://");
    return end == std::string::npos ? "ftp" : ascii_lower(text.substr(0, end));
}

Exit run_link(const GlobalOptions& global, const std::string& link,
              const std::vector<std::string>& magnet_trackers) {
    const std::u16string address = to_utf16(link);
    const SplitAddress split = split_address(address);
    ordered_json json{{"recognised", split.port != 0},       {"kind", kind_name(address)},
                      {"address", to_utf8(split.address)},   {"port", split.port},
                      {"path", to_utf8(split.path)},         {"user", to_utf8(split.user)},
                      {"password", to_utf8(split.password)}, {"secure", split.secure}};
    CED2KLink file;
    if (file.parse(address)) {
        json["ed2k"] = {{"name", to_utf8(file.file_name())},
                        {"size", file.file_size()},
                        {"hash", to_utf8(file.hash_text())}};
    }
    if (const auto magnet = is_magnet(link) ? parse_magnet(link, magnet_trackers) : std::nullopt) {
        json["magnet"] = {
            {"hash", to_hex(magnet->info_hash)}, {"name", magnet->name}, {"trackers", magnet->trackers}};
    }
    print_answer(global, json, lines_of(json));
    return Exit::done;
}

struct MakeOptions {
    std::string name;
    std::string size;
    std::string hash;
};

std::optional<std::uint64_t> parse_size(const std::string& text) {
    std::uint64_t size = 0;
    const char* end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, size);
    if (text.empty() || parsed.ec != std::errc() || parsed.ptr != end) return std::nullopt;
    return size;
}

Complaint check_make(const MakeOptions& options) {
    const auto hash = from_hex(options.hash);
    if (options.name.empty()) return "--name needs the file's name.";
    if (!parse_size(options.size)) return "--size takes bytes, not \"" + options.size + "\".";
    if (!hash || hash->size() != CED2KLink::hash_size) return "--hash takes 32 hexadecimal digits.";
    return std::nullopt;
}

Exit run_make(const MakeOptions& options) {
    CED2KLink::Hash hash{};
    std::ranges::copy(*from_hex(options.hash), hash.begin());  // checked before
    say(to_utf8(CED2KLink(to_utf16(options.name), *parse_size(options.size), hash).format()));
    return Exit::done;
}

ordered_json file_json(const CMetalinkNode& file) {
    ordered_json hashes = ordered_json::array();
    const bool has_hashes = file.hash_type != CMetalinkNode::no_hashes;
    if (has_hashes) {
        const std::size_t size = digest_size(digest_of(file.hash_type));
        for (std::size_t at = 0; at < file.piece_hashes.size(); at += size)
            hashes.push_back(to_hex(std::span(file.piece_hashes).subspan(at, size)));
    }
    return {{"name", file.name},
            {"size", file.size},
            {"urls", file.urls},
            {"plain", file.plain},
            {"hashType", has_hashes ? ordered_json(hash_type_name(file.hash_type)) : ordered_json(nullptr)},
            {"pieceLength", file.piece_length},
            {"pieceHashes", std::move(hashes)}};
}

ordered_json metalink_json(std::span<const std::byte> bytes, const DocumentOptions& options) {
    ordered_json files = ordered_json::array();
    const CMetalink metalink(bytes);
    if (const auto chosen = choose_files(metalink.files(), options)) {
        for (const std::size_t index : *chosen) files.push_back(file_json(metalink.files()[index]));
    }
    return {{"kind", "metalink"}, {"files", std::move(files)}};
}

// Seconds; a whole number of them is written without a fraction.
ordered_json seconds_json(double seconds) {
    constexpr double most = 9e15;
    const bool is_whole = std::floor(seconds) == seconds && seconds < most;
    return is_whole ? ordered_json(static_cast<std::int64_t>(seconds)) : ordered_json(seconds);
}

ordered_json playlist_json(const char* kind, const Playlist& list) {
    ordered_json clips = ordered_json::array();
    for (const CMetafileNode& clip : list.clips) {
        clips.push_back({{"url", clip.url},
                         {"title", clip.title},
                         {"start", seconds_json(clip.start)},
                         {"end", seconds_json(clip.end)}});
    }
    return {{"kind", kind}, {"base", list.base}, {"clips", std::move(clips)}};
}

std::string file_line(const ordered_json& file) {
    std::string line = file["name"].get<std::string>();
    if (file["size"] >= 0) line += ", " + shown(file["size"]) + " bytes";
    if (!file["hashType"].is_null()) {
        line += ", " + std::to_string(file["pieceHashes"].size()) + " " + shown(file["hashType"]) +
                " hashes of " + shown(file["pieceLength"]) + " bytes each";
    }
    return line;
}

std::string metafile_lines(const ordered_json& json) {
    std::string lines;
    const auto add = [&lines](const std::string& line) { lines += printable(line) + "\n"; };
    std::size_t number = 0;
    if (json.contains("files")) {
        for (const ordered_json& file : json["files"]) {
            add(std::to_string(++number) + ". " + file_line(file));
            for (const ordered_json& url : file["urls"]) add("   " + shown(url));
        }
        return lines;
    }
    if (!json["base"].get<std::string>().empty()) add("base: " + shown(json["base"]));
    for (const ordered_json& clip : json["clips"]) {
        add(std::to_string(++number) + ". " + shown(clip["url"]) + "  " + shown(clip["start"]) + " to " +
            shown(clip["end"]) + " s  " + shown(clip["title"]));
    }
    return lines;
}

Exit run_metafile(const GlobalOptions& global, const std::string& file) {
    MetalinkPath path = split_metalink_path(to_utf16(file));
    if (path_kind(to_utf16(file)) == PathKind::file) path = {to_utf16(file), {}};
    std::vector<std::byte> bytes;
    if (const FileError error = read_file(path.file, largest_document, bytes); !error.ok())
        return complain(to_utf8(path.file) + ": " + error.text());
    const auto kind = metafile_kind(path.file, bytes);
    if (!kind) return complain(to_utf8(path.file) + ": neither a Metalink nor an ASX or SMIL playlist.");
    ordered_json json;
    switch (*kind) {
        case MetafileKind::metalink:
            json = metalink_json(bytes, {path.file, path.fragment, {}});
            break;
        case MetafileKind::asx:
            json = playlist_json("asx", CASXSimple::read(bytes));
            break;
        case MetafileKind::smil:
            json = playlist_json("smil", CSMILSimple::read(bytes));
            break;
    }
    print_answer(global, json, metafile_lines(json));
    return Exit::done;
}

}  // namespace

void add_link_commands(CommandSet& commands) {
    const auto address = std::make_shared<std::string>();
    commands
        .add("link", "Show the parts of an address",
             [address](CFerrywellApp& app, const GlobalOptions& global) {
                 return run_link(global, *address, default_magnet_trackers(app.settings()));
             })
        .add_option("ADDRESS", *address, "The address")
        ->required();

    const auto make = std::make_shared<MakeOptions>();
    CLI::App& ed2k = commands.add_group("ed2k", "Make eDonkey links");
    CLI::App& word = commands.add_below(
        ed2k, "make", "Print the eDonkey link of a file",
        [make](CFerrywellApp&, const GlobalOptions&) { return run_make(*make); },
        [make] { return check_make(*make); });
    word.add_option("--name", make->name, "The file's name")->required();
    word.add_option("--size", make->size, "The file's size in bytes")->required();
    word.add_option("--hash", make->hash, "The file's eDonkey hash, 32 hexadecimal digits")->required();

    const auto file = std::make_shared<std::string>();
    commands
        .add("metafile", "Show what a Metalink, ASX or SMIL file lists",
             [file](CFerrywellApp&, const GlobalOptions& global) { return run_metafile(global, *file); })
        .add_option("FILE", *file, "The file; FILE.metalink#2 shows its second file only")
        ->required();
}

}  // namespace vantlow
