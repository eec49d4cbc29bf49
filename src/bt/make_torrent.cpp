#include "bt/make_torrent.h"

#include "base/text.h"
#include "platform/local_text.h"

namespace vantlow {
namespace {

using Tiers = std::vector<std::vector<std::string>>;

Tiers read_tiers(std::u16string_view text) {
    Tiers tiers;
    const std::string bytes = to_ansi(text);
    for (std::string_view line : split(bytes, '\n')) {
        if (line.ends_with('\r')) line.remove_suffix(1);
        std::vector<std::string> urls;
        for (const std::string_view url : split(line, '|')) {
            if (!trim(url).empty()) urls.emplace_back(trim(url));
        }
        if (!urls.empty()) tiers.push_back(std::move(urls));
    }
    return tiers;
}

std::unique_ptr<CBEList> list_of(const std::vector<std::string>& strings) {
    auto list = std::make_unique<CBEList>();
    for (const std::string& string : strings) list->add(std::make_unique<CBEString>(string));
    return list;
}

std::unique_ptr<CBEList> files_of(const TorrentSource& source) {
    auto files = std::make_unique<CBEList>();
    for (const SourceFile& file : source.files) {
        auto entry = std::make_unique<CBEDictionary>();
        entry->add("length", file.size);
        auto path = std::make_unique<CBEList>();
        for (const std::string_view component : split(file.relative, '/')) {
            path->add(std::make_unique<CBEString>(component));
        }
        entry->add("path", std::move(path));
        files->add(std::move(entry));
    }
    return files;
}

std::unique_ptr<CBEDictionary> info_of(const TorrentSource& source, std::int64_t piece_length,
                                       std::string_view pieces) {
    auto info = std::make_unique<CBEDictionary>();
    if (source.is_file) {
        info->add("length", source.total);
    } else {
        info->add("files", files_of(source));
    }
    info->add("name", CBEString::from_text_utf8(source.name()));
    info->add("piece length", piece_length);
    info->add("pieces", pieces);
    return info;
}

}  // namespace

std::string torrent_document(const TorrentSource& source, std::int64_t piece_length, std::string_view pieces,
                             const TorrentText& text, InfoHash& hash) {
    const Tiers tiers = read_tiers(text.trackers);
    CBEDictionary document;
    // The keys keep this order, sorted or not; "announce" is written without a tracker too.
    document.add("announce", tiers.empty() ? std::string_view{} : std::string_view(tiers.front().front()));
    auto list = std::make_unique<CBEList>();
    for (const auto& tier : tiers) list->add(list_of(tier));
    document.add("announce-list", std::move(list));
    document.add("encoding", std::string_view("UTF-8"));
    if (!text.comment.empty()) document.add("comment", CBEString::from_text_utf8(text.comment));
    document.add("created by", torrent_creator);
    document.add("creation date", text.created);
    auto info = info_of(source, piece_length, pieces);
    CBEncode writer;
    writer.write(info.get());
    hash = hash_of(writer.output());
    document.add("info", std::move(info));
    CBEncode whole;
    whole.write(&document);
    return std::string(whole.output());
}

std::u16string torrent_path(std::u16string path) {
    while (path.size() > 1 && (path.back() == u'\\' || path.back() == path_separator())) path.pop_back();
    if (path.size() == 2 && path[1] == u':') path += u'\\';  // a drive's own folder
    return path + u".torrent";
}

FileError write_torrent(const std::u16string& path, std::string_view document) {
    return write_file_atomically(path, std::as_bytes(std::span(document)));
}

std::string torrent_from_metadata(const std::vector<std::string>& trackers, std::string_view info,
                                  std::int64_t created) {
    CBEDictionary document;
    if (!trackers.empty()) document.add("announce", std::string_view(trackers.front()));
    if (trackers.size() > 1) {
        auto tiers = std::make_unique<CBEList>();
        tiers->add(list_of(trackers));
        document.add("announce-list", std::move(tiers));
    }
    document.add("created by", torrent_creator);
    document.add("creation date", created);
    document.add("encoding", std::string_view("UTF-8"));
    document.add("info", std::string_view{});
    CBEncode writer;
    writer.write(&document);
    // The info value is copied as it came: parsing and writing it again could change the bytes that were
    // hashed.
    std::string bytes(writer.output());
    constexpr std::string_view key = "4:info";
    bytes.resize(bytes.rfind("4:info0") + key.size());
    return bytes.append(info) + "e";
}

}  // namespace vantlow
