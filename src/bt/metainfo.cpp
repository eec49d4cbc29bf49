#include "bt/metainfo.h"

#include <algorithm>
#include <limits>
#include <span>

#include "base/digest.h"
#include "base/text.h"
#include "bt/file_tree.h"
#include "platform/local_text.h"
#include "platform/socket.h"

namespace vantlow {
namespace {

std::u16string text_of(std::string_view bytes, bool utf8) {
    return utf8 ? to_utf16(bytes) : from_ansi(bytes);
}

void read_trackers(const CBEDictionary& document, std::string_view standard, CBEMetaInfo& meta) {
    const CBEString* const announce = document.find_string("announce");
    meta.trackers.emplace_back(announce != nullptr ? std::string_view(announce->data) : standard);
    if (const CBEList* const tiers = document.find_list("announce-list")) {
        for (const auto& tier : tiers->items) {
            const CBEList* const urls = as_list(tier.get());
            if (urls == nullptr) continue;
            for (const auto& url : urls->items) {
                if (const CBEString* const text = as_string(url.get())) meta.trackers.push_back(text->data);
            }
        }
    }
    // The list replaces the single tracker.
    if (meta.trackers.size() > 1) meta.trackers.erase(meta.trackers.begin());
}

std::optional<DhtNode> read_node(const CBEObject* item) {
    const CBEList* const pair = as_list(item);
    if (pair == nullptr || pair->items.size() < 2) return std::nullopt;
    const CBEString* const host = as_string(pair->items[0].get());
    const CBEInteger* const port = as_integer(pair->items[1].get());
    if (host == nullptr || port == nullptr || port->value < 1 || port->value > 65535) return std::nullopt;
    DhtNode node;
    node.port = static_cast<std::uint16_t>(port->value);
    const auto address = SocketAddress::from_literal(host->data, node.port);
    if (address && !address->is_ipv6()) {
        const auto bytes = address->ipv4();
        std::copy(bytes.begin(), bytes.end(), node.address.begin());
    } else if (host->data.size() == node.address.size()) {
        node.is_ipv6 = true;
        std::copy(host->data.begin(), host->data.end(), node.address.begin());
    } else {
        return std::nullopt;
    }
    return node;
}

void read_nodes(const CBEDictionary& document, CBEMetaInfo& meta) {
    const CBEList* const nodes = document.find_list("nodes");
    if (nodes == nullptr) return;
    for (const auto& item : nodes->items) {
        if (const auto node = read_node(item.get())) meta.nodes.push_back(*node);
    }
}

// The text under "key.utf-8" or "key", and which of the two kinds of text it is.
struct Text {
    std::string bytes;
    bool utf8 = false;
};

std::optional<Text> read_name(const CBEDictionary& info, bool utf8) {
    if (const CBEString* const name = info.find_string("name.utf-8")) return Text{name->data, true};
    const CBEString* const name = info.find_string("name");
    if (name == nullptr) return std::nullopt;
    return Text{name->data, utf8 || is_torrent_utf8(name->data)};
}

std::optional<Text> read_path(const CBEDictionary& file, bool utf8) {
    const CBEList* path = file.find_list("path.utf-8");
    const bool declared = path != nullptr;
    if (!declared) path = file.find_list("path");
    if (path == nullptr) return std::nullopt;
    Text text;
    for (const auto& item : path->items) {
        const CBEString* const component = as_string(item.get());
        if (component == nullptr) return std::nullopt;
        text.bytes += "\\" + component->data;
    }
    text.utf8 = declared || utf8 || is_torrent_utf8(text.bytes);
    return text;
}

void add_path(Text text, CBEMetaInfo& meta) {
    meta.path_is_utf8.push_back(text.utf8);
    (text.utf8 ? meta.paths_utf8 : meta.paths_local).push_back(std::move(text.bytes));
}

bool read_files(const CBEObject& files, bool utf8, CBEMetaInfo& meta) {
    const CBEList* const list = as_list(&files);
    if (list == nullptr) return false;
    meta.is_multi_file = true;
    for (const auto& item : list->items) {
        const CBEDictionary* const file = as_dictionary(item.get());
        const CBEInteger* const length = file != nullptr ? file->find_integer("length") : nullptr;
        if (length == nullptr) return false;
        auto path = read_path(*file, utf8);
        if (!path) return false;
        add_path(*std::move(path), meta);
        meta.sizes.push_back(static_cast<std::uint64_t>(length->value));
    }
    return true;
}

bool read_names(const CBEDictionary& info, bool utf8, CBEMetaInfo& meta) {
    const CBEObject* const files = info.find("files");
    if (files != nullptr && !read_files(*files, utf8, meta)) return false;
    const CBEInteger* const length = files == nullptr ? info.find_integer("length") : nullptr;
    if (files == nullptr && length == nullptr) return false;
    const auto name = read_name(info, utf8);
    if (!name) return false;
    (name->utf8 ? meta.name_utf8 : meta.name_local) = name->bytes;
    if (length != nullptr) {
        add_path(*name, meta);
        meta.sizes.push_back(static_cast<std::uint64_t>(length->value));
    }
    return true;
}

// Names and sizes of a torrent that has none of the first version.
bool read_tree_names(const CBEDictionary& info, CBEMetaInfo& meta) {
    const auto files = read_file_tree(info);
    const auto name = read_name(info, true);
    if (!files || !name) return false;
    meta.name_utf8 = name->bytes;
    meta.is_multi_file = !is_single_file(info);
    for (const TreeFile& file : *files) {
        add_path({meta.is_multi_file ? file.path : name->bytes, true}, meta);
        meta.sizes.push_back(static_cast<std::uint64_t>(file.length));
    }
    return true;
}

// The length of the form that a lead byte begins; 0 when it begins none.
std::size_t form_of(unsigned char lead) noexcept {
    if (lead < 0x80) return 1;
    if ((lead & 0xE0U) == 0xC0) return 2;
    if ((lead & 0xF0U) == 0xE0) return 3;
    if ((lead & 0xF8U) == 0xF0) return 4;
    if ((lead & 0xFCU) == 0xF8) return 5;
    if ((lead & 0xFEU) == 0xFC) return 6;
    return 0;
}

// True when neither the lead nor the upper bits of the next byte hold payload, so that a shorter form would
// do.
bool is_overlong(std::size_t form, unsigned char lead, unsigned char next) noexcept {
    if (form == 2) return lead < 0xC2;
    const unsigned payload = lead & (0x7FU >> form);
    return payload == 0 && (next & 0x3FU) >> (8 - form) == 0;
}

}  // namespace

bool is_torrent_utf8(std::string_view bytes) noexcept {
    for (std::size_t i = 0; i < bytes.size();) {
        const auto at = [&](std::size_t k) { return static_cast<unsigned char>(bytes[k]); };
        const std::size_t form = form_of(at(i));
        if (form == 0 || form > bytes.size() - i) return false;
        for (std::size_t k = 1; k < form; ++k) {
            if ((at(i + k) & 0xC0U) != 0x80) return false;
        }
        if (form > 1 && is_overlong(form, at(i), at(i + 1))) return false;
        i += form;
    }
    return true;
}

InfoHash hash_of(std::string_view bytes) {
    Digest digest(DigestKind::sha1);
    digest.update(std::as_bytes(std::span(bytes)));
    const std::vector<std::byte> result = digest.finish();
    InfoHash hash{};
    std::copy_n(result.begin(), std::min(result.size(), hash.size()), hash.begin());
    return hash;
}

MerkleRoot long_hash_of(std::string_view bytes) {
    return sha256_of(std::as_bytes(std::span(bytes)));
}

InfoHash short_hash_of(const MerkleRoot& hash) noexcept {
    InfoHash beginning{};
    std::copy_n(hash.begin(), beginning.size(), beginning.begin());
    return beginning;
}

bool is_of_second(const InfoHash& hash, const std::optional<MerkleRoot>& second_hash) noexcept {
    return second_hash && short_hash_of(*second_hash) == hash;
}

bool is_known_by(std::string_view info, const InfoHash& hash) {
    return hash_of(info) == hash || short_hash_of(long_hash_of(info)) == hash;
}

bool parse_meta_info(const CBEncode& parser, const CBEDictionary& document, const MetaInfoRules& rules,
                     CBEMetaInfo& meta) {
    meta = {};
    const CBEDictionary* info = &document;
    bool utf8 = rules.utf8;
    if (!rules.metadata_only) {
        read_trackers(document, rules.default_tracker, meta);
        read_nodes(document, meta);
        const CBEString* const encoding = document.find_string("encoding");
        utf8 = encoding != nullptr && (iequals(encoding->data, "utf-8") || iequals(encoding->data, "utf8"));
        info = document.find_dictionary("info");
    }
    if (info == nullptr) return false;
    const CBEInteger* const piece_length = info->find_integer("piece length");
    if (piece_length == nullptr) return false;
    meta.piece_length = piece_length->value;
    const bool is_second_alone = is_second_version_alone(*info);
    if (is_second_alone ? !read_tree_names(*info, meta) : !read_names(*info, utf8, meta)) return false;
    meta.utf8 = utf8 || is_second_alone;
    if (rules.metadata_only) return true;
    const CBEString* const pieces = info->find_string("pieces");
    if (pieces == nullptr && !is_second_alone) return false;
    if (!is_second_alone) meta.pieces = pieces->data;
    meta.info = parser.info_copy();
    if (meta.info.empty()) return true;
    if (has_second_version(*info)) meta.second_hash = long_hash_of(meta.info);
    meta.info_hash = is_second_alone ? short_hash_of(*meta.second_hash) : hash_of(meta.info);
    return true;
}

void add_nodes(const CBEMetaInfo& meta, const BtdhtTable& table) {
    for (const DhtNode& node : meta.nodes) {
        auto* const add = node.is_ipv6 ? table.BTDHT_AddNodeV6 : table.BTDHT_AddNode;
        if (add != nullptr) add(node.address.data(), node.port);
    }
}

std::vector<CBEMetaInfo::File> CBEMetaInfo::files() const {
    std::vector<File> list;
    list.reserve(sizes.size());
    std::size_t local = 0;
    std::size_t wide = 0;
    for (std::size_t i = 0; i < sizes.size(); ++i) {
        const bool is_utf8 = path_is_utf8[i];
        list.push_back({text_of(is_utf8 ? paths_utf8[wide++] : paths_local[local++], is_utf8), sizes[i]});
    }
    return list;
}

std::u16string CBEMetaInfo::name() const {
    return name_utf8.empty() ? text_of(name_local, false) : text_of(name_utf8, true);
}

std::optional<std::int64_t> CBEMetaInfo::total_size() const noexcept {
    constexpr auto largest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    std::uint64_t total = 0;
    for (const std::uint64_t size : sizes) {
        if (size > largest - total) return std::nullopt;
        total += size;
    }
    return static_cast<std::int64_t>(total);
}

}  // namespace vantlow
