#include "bt/torrent_content.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "base/text.h"

namespace vantlow {
namespace {

// More than any known torrent has; what a swarm remembers of each is a few bytes.
constexpr std::int64_t most_pieces = std::int64_t{2} * 1024 * 1024;
constexpr std::int64_t longest_piece = std::int64_t{1} << 31U;
constexpr std::size_t longest_fact = 4096;
constexpr std::int64_t latest_time = 253'402'300'800;  // the year 10000

Result refusal(const char* why) {
    return {Code::unsupported, why};
}

// The strings under a key: one, or a list of them.
std::vector<std::string> addresses_of_document(std::span<const std::byte> document, std::string_view key) {
    constexpr std::size_t most = 50;
    CBEncode parser;
    if (!parser.load_memory(document)) return {};
    const auto tree = parser.parse_document();
    if (!tree) return {};
    std::vector<std::string> addresses;
    const auto add = [&](const CBEObject* value) {
        const CBEString* const text = as_string(value);
        if (text != nullptr && !text->data.empty() && addresses.size() < most)
            addresses.push_back(text->data);
    };
    add(tree->find(key));
    if (const CBEList* const list = tree->find_list(key)) {
        for (const auto& item : list->items) add(item.get());
    }
    return addresses;
}

// A file that only fills a piece up says so in its attributes.
bool is_padding(const CBEObject* file) {
    const CBEDictionary* const facts = as_dictionary(file);
    const CBEString* const attributes = facts != nullptr ? facts->find_string("attr") : nullptr;
    return attributes != nullptr && attributes->data.find('p') != std::string::npos;
}

void take_files(const CBEMetaInfo& meta, const CBEDictionary& info, TorrentContent& content) {
    const CBEList* const list = info.find_list("files");
    const std::vector<CBEMetaInfo::File> files = meta.files();
    for (std::size_t i = 0; i < files.size(); ++i) {
        NamedFile file{files[i].path, static_cast<std::int64_t>(files[i].size)};
        file.padding = content.is_folder && list != nullptr && i < list->items.size() &&
                       is_padding(list->items[i].get());
        if (!content.is_folder) file.path = content.name;
        content.files.push_back(std::move(file));
    }
}

}  // namespace

std::u16string in_one_part(std::u16string name) {
    std::replace_if(
        name.begin(), name.end(), [](char16_t c) { return c == u'/' || c == u'\\'; }, u'_');
    return name;
}

bool is_second_version(const CBEDictionary& document) noexcept {
    const CBEDictionary* const facts = document.find_dictionary("info");
    return facts != nullptr && facts->find("pieces") == nullptr && facts->find("file tree") != nullptr;
}

std::string info_of_document(std::span<const std::byte> document) {
    CBEncode parser;
    if (!parser.load_memory(document) || !parser.parse_document()) return {};
    return std::string(parser.info_copy());
}

std::vector<std::string> web_seeds_of_document(std::span<const std::byte> document) {
    return addresses_of_document(document, "url-list");
}

std::vector<std::string> http_seeds_of_document(std::span<const std::byte> document) {
    return addresses_of_document(document, "httpseeds");
}

DocumentFacts facts_of_document(std::span<const std::byte> document) {
    CBEncode parser;
    const auto tree = parser.load_memory(document) ? parser.parse_document() : nullptr;
    DocumentFacts facts;
    if (!tree) return facts;
    const auto text_of = [&](std::string_view key) {
        const CBEString* text = tree->find_string(std::string(key) + ".utf-8");
        if (text == nullptr) text = tree->find_string(key);
        // Bytes that are no UTF-8, or were cut, are replaced.
        return text != nullptr ? to_utf8(to_utf16(text->data.substr(0, longest_fact))) : std::string();
    };
    facts.comment = text_of("comment");
    facts.created_by = text_of("created by");
    const CBEInteger* const created = tree->find_integer("creation date");
    if (created != nullptr && created->value > 0 && created->value < latest_time)
        facts.created = created->value;
    return facts;
}

Outcome<TorrentContent> read_torrent_content(std::string_view info) {
    CBEncode parser;
    if (!parser.load_memory("d4:info" + std::string(info) + "e"))
        return refusal("There is no memory for the torrent.");
    const auto document = parser.parse_document();
    const CBEDictionary* const facts = document ? document->find_dictionary("info") : nullptr;
    if (facts == nullptr) return refusal("The torrent's description cannot be read.");
    if (is_second_version(*document))
        return refusal("Torrents of version 2 alone (BEP 52) cannot be fetched yet.");
    CBEMetaInfo meta;
    if (!parse_meta_info(parser, *document, {}, meta) || meta.info != info)
        return refusal("The torrent's description cannot be read.");
    const auto total = meta.total_size();
    TorrentContent content;
    content.name = in_one_part(meta.name());
    content.is_folder = meta.is_multi_file;
    content.piece_length = meta.piece_length;
    if (!total || content.piece_length <= 0 || content.piece_length > longest_piece)
        return refusal("The sizes in the torrent cannot be right.");
    content.total = *total;
    if (content.piece_count() > most_pieces) return refusal("The torrent has more than two million pieces.");
    if (static_cast<std::int64_t>(meta.pieces.size()) / 20 != content.piece_count() ||
        meta.pieces.size() % 20 != 0)
        return refusal("The torrent's pieces do not fit its size.");
    content.pieces = std::move(meta.pieces);
    content.info = std::move(meta.info);
    content.info_hash = meta.info_hash;
    const CBEInteger* const is_private = facts->find_integer("private");
    content.is_private = is_private != nullptr && is_private->value == 1;
    take_files(meta, *facts, content);
    return content;
}

}  // namespace vantlow
