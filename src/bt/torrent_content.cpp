#include "bt/torrent_content.h"

#include <algorithm>
#include <bit>
#include <limits>
#include <map>
#include <utility>

#include "base/text.h"

namespace vantlow {
namespace {

// More than any known torrent has; what a swarm remembers of each is a few bytes.
constexpr std::int64_t most_pieces = std::int64_t{2} * 1024 * 1024;
constexpr std::int64_t longest_piece = std::int64_t{1} << 31U;
constexpr std::int64_t shortest_piece = 16 * 1024;  // of the second version: one block
constexpr std::int64_t largest_total = std::int64_t{1} << 62U;
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

Result check_sizes(const TorrentContent& content) {
    if (content.piece_length <= 0 || content.piece_length > longest_piece)
        return refusal("The sizes in the torrent cannot be right.");
    if (content.piece_count() > most_pieces) return refusal("The torrent has more than two million pieces.");
    return {};
}

Result read_first_version(const CBEncode& parser, const CBEDictionary& document, TorrentContent& content) {
    CBEMetaInfo meta;
    if (!parse_meta_info(parser, document, {}, meta))
        return refusal("The torrent's description cannot be read.");
    const auto total = meta.total_size();
    content.name = in_one_part(meta.name());
    content.is_folder = meta.is_multi_file;
    content.piece_length = meta.piece_length;
    if (!total) return refusal("The sizes in the torrent cannot be right.");
    content.total = *total;
    if (Result result = check_sizes(content); !result.ok()) return result;
    if (static_cast<std::int64_t>(meta.pieces.size()) / 20 != content.piece_count() ||
        meta.pieces.size() % 20 != 0)
        return refusal("The torrent's pieces do not fit its size.");
    content.pieces = std::move(meta.pieces);
    content.info_hash = meta.info_hash;
    take_files(meta, *document.find_dictionary("info"), content);
    return {};
}

// One root for files of two lengths would be a lie about one of them.
bool are_roots_at_odds(const std::vector<TreeOfFile>& trees) {
    std::map<MerkleRoot, std::int64_t> lengths;
    return std::ranges::any_of(trees, [&](const TreeOfFile& tree) {
        return lengths.emplace(tree.root, tree.length).first->second != tree.length;
    });
}

Result read_second_version(const CBEDictionary& info, TorrentContent& content) {
    const auto files = read_file_tree(info);
    const CBEInteger* const piece_length = info.find_integer("piece length");
    const CBEString* name = info.find_string("name.utf-8");
    if (name == nullptr) name = info.find_string("name");
    if (!files || piece_length == nullptr || name == nullptr)
        return refusal("The torrent's description cannot be read.");
    content.is_second_version = true;
    content.name = in_one_part(to_utf16(name->data));
    content.is_folder = !is_single_file(info);
    content.piece_length = piece_length->value;
    content.info_hash = short_hash_of(*content.second_hash);
    const bool is_power = content.piece_length >= shortest_piece &&
                          std::has_single_bit(static_cast<std::uint64_t>(content.piece_length));
    if (!is_power) return refusal("The sizes in the torrent cannot be right.");
    for (const TreeFile& file : *files) {
        const std::int64_t gap =
            (content.piece_length - content.total % content.piece_length) % content.piece_length;
        if (file.length > largest_total - content.total - gap)
            return refusal("The sizes in the torrent cannot be right.");
        if (file.length > 0) {
            if (gap > 0) content.files.push_back({.path = u"padding", .length = gap, .padding = true});
            content.total += gap;
            content.trees.push_back({file.root, content.total / content.piece_length, file.length});
        }
        content.files.push_back({content.is_folder ? to_utf16(file.path) : content.name, file.length});
        content.total += file.length;
    }
    if (are_roots_at_odds(content.trees)) return refusal("Hashes in the torrent contradict each other.");
    return check_sizes(content);
}

}  // namespace

std::u16string in_one_part(std::u16string name) {
    std::replace_if(
        name.begin(), name.end(), [](char16_t c) { return c == u'/' || c == u'\\'; }, u'_');
    return name;
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

std::vector<ShorterPiece> TorrentContent::shorter_pieces() const {
    std::vector<ShorterPiece> shorter;
    for (const TreeOfFile& tree : trees) {
        const std::int64_t rest = tree.length % piece_length;
        if (rest == 0) continue;
        shorter.push_back({static_cast<std::uint32_t>(tree.first_piece + tree.length / piece_length),
                           static_cast<std::uint32_t>(rest)});
    }
    return shorter;
}

Outcome<TorrentContent> read_torrent_content(std::string_view info, const std::optional<InfoHash>& known_by) {
    CBEncode parser;
    if (!parser.load_memory("d4:info" + std::string(info) + "e"))
        return refusal("There is no memory for the torrent.");
    const auto document = parser.parse_document();
    const CBEDictionary* const facts = document ? document->find_dictionary("info") : nullptr;
    if (facts == nullptr || parser.info_copy() != info)
        return refusal("The torrent's description cannot be read.");
    TorrentContent content;
    content.info = info;
    if (has_second_version(*facts)) content.second_hash = long_hash_of(info);
    const bool is_second =
        is_second_version_alone(*facts) || (known_by && is_of_second(*known_by, content.second_hash));
    const CBEInteger* const is_private = facts->find_integer("private");
    content.is_private = is_private != nullptr && is_private->value == 1;
    const Result result =
        is_second ? read_second_version(*facts, content) : read_first_version(parser, *document, content);
    if (!result.ok()) return result;
    return content;
}

}  // namespace vantlow
