#include "meta/metalink.h"

#include <algorithm>
#include <array>
#include <limits>
#include <optional>

#include "base/codes.h"
#include "base/text.h"
#include "meta/xml_simple.h"

namespace vantlow {
namespace {

constexpr std::string_view version_4_namespace = "urn:ietf:params:xml:ns:metalink";

struct HashKind {
    std::int32_t type;
    DigestKind digest;
    std::string_view name;
};
constexpr std::array hash_kinds{
    HashKind{CMetalinkNode::md4, DigestKind::md4, "md4"},
    HashKind{CMetalinkNode::md5, DigestKind::md5, "md5"},
    HashKind{CMetalinkNode::sha1, DigestKind::sha1, "sha1"},
    HashKind{CMetalinkNode::sha256, DigestKind::sha256, "sha256"},
    HashKind{CMetalinkNode::sha384, DigestKind::sha384, "sha384"},
    HashKind{CMetalinkNode::sha512, DigestKind::sha512, "sha512"},
};

// A decimal number, whatever follows it; none when there is not even a digit, or too many.
std::optional<std::int64_t> leading_number(std::string_view text) noexcept {
    const auto end = text.find_first_not_of("0123456789");
    return parse_decimal(text.substr(0, end));
}

// The address of one mirror, before the preference rule.
struct Candidate {
    std::string type;
    std::string url;
    std::int64_t priority = std::numeric_limits<std::int64_t>::max();
};

bool is_plain(const Candidate& candidate) noexcept {
    constexpr std::array<std::string_view, 4> plain{"http", "https", "ftp", "ftps"};
    return std::any_of(plain.begin(), plain.end(),
                       [&](std::string_view type) { return iequals(candidate.type, type); });
}

bool is_peer_to_peer(const Candidate& candidate) noexcept {
    return iequals(candidate.type, "bittorrent") || iequals(candidate.type, "ed2k");
}

// Plain mirrors win over everything else; without one the first peer-to-peer link is taken.
void apply_preference(std::vector<Candidate> candidates, CMetalinkNode& node) {
    node.plain = std::any_of(candidates.begin(), candidates.end(), is_plain);
    for (Candidate& candidate : candidates) {
        if (node.plain ? is_plain(candidate) : is_peer_to_peer(candidate)) {
            node.urls.push_back(std::move(candidate.url));
            if (!node.plain) return;
        }
    }
}

// Where a type is missing, the address says what it is.
std::string scheme_of(std::string_view url) {
    const auto end = url.find("://");
    return end == std::string_view::npos ? std::string() : ascii_lower(url.substr(0, end));
}

void read_name_and_size(const XmlText& file, CMetalinkNode& node) {
    node.name = decode_entities(CXMLSimple::attribute(file, "name").value_or(std::string_view{}));
    if (const auto size = CXMLSimple::find_element(file.inside(), "size")) {
        node.size = leading_number(CXMLSimple::content(size->all)).value_or(-1);
    }
}

std::optional<std::vector<std::byte>> decode_hash(const XmlText& element, DigestKind kind) {
    auto digest = from_hex(CXMLSimple::content(element));
    if (!digest || digest->size() != digest_size(kind)) return std::nullopt;
    return digest;
}

const HashKind* find_kind(std::string_view name, bool is_version_4) noexcept {
    const auto digest = digest_kind(name);
    const auto found = std::find_if(hash_kinds.begin(), hash_kinds.end(),
                                    [&](const HashKind& kind) { return digest && kind.digest == *digest; });
    if (found == hash_kinds.end()) return nullptr;
    // Version 3 names its types without a hyphen, and knows three for pieces.
    if (!is_version_4 && (found->type > CMetalinkNode::sha1 || !iequals(name, found->name))) return nullptr;
    return &*found;
}

// Takes all hashes or none: pieces of which some cannot be checked are of no use.
void read_pieces(const XmlText& pieces, bool is_version_4, CMetalinkNode& node) {
    const HashKind* kind =
        find_kind(CXMLSimple::attribute(pieces, "type").value_or(std::string_view{}), is_version_4);
    if (kind == nullptr) return;
    const auto length = leading_number(CXMLSimple::attribute(pieces, "length").value_or(std::string_view{}));
    std::vector<std::byte> hashes;
    std::int32_t count = 0;
    XmlSiblings elements(pieces.inside(), "hash");
    while (const auto element = elements.next()) {
        const auto number = leading_number(CXMLSimple::attribute(*element, "piece").value_or("-"));
        if (!is_version_4 && number != count) return;
        const auto digest = decode_hash(*element, kind->digest);
        if (!digest) return;
        hashes.insert(hashes.end(), digest->begin(), digest->end());
        ++count;
    }
    if (count == 0) return;
    constexpr std::int64_t longest = std::numeric_limits<std::int32_t>::max();
    node.hash_type = kind->type;
    node.piece_length = static_cast<std::int32_t>(length && *length <= longest ? *length : 0);
    node.piece_count = count;
    node.piece_hashes = std::move(hashes);
}

void read_whole_hashes(const XmlText& within, CMetalinkNode& node) {
    XmlSiblings elements(within, "hash");
    while (const auto element = elements.next()) {
        const auto kind = digest_kind(CXMLSimple::attribute(*element, "type").value_or(std::string_view{}));
        if (!kind || CXMLSimple::attribute(*element, "piece")) continue;
        if (auto digest = decode_hash(*element, *kind)) node.hashes.push_back({*kind, std::move(*digest)});
    }
}

// Piece hashes, and the hashes that stand beside "pieces" for the whole file.
void read_hashes(const XmlText& within, bool is_version_4, CMetalinkNode& node) {
    const auto pieces = CXMLSimple::find_element(within, "pieces");
    if (!pieces) return read_whole_hashes(within, node);
    read_pieces(pieces->all, is_version_4, node);
    read_whole_hashes(within.part(0, pieces->next - pieces->all.text.size()), node);
    read_whole_hashes(within.from(pieces->next), node);
}

CMetalinkNode read_file_3(const XmlText& file) {
    CMetalinkNode node;
    read_name_and_size(file, node);
    std::vector<Candidate> candidates;
    if (const auto resources = CXMLSimple::find_element(file.inside(), "resources")) {
        XmlSiblings urls(resources->all.inside(), "url");
        while (const auto url = urls.next()) {
            Candidate candidate;
            candidate.url = decode_entities(CXMLSimple::content(*url));
            const auto type = CXMLSimple::attribute(*url, "type");
            candidate.type = type ? std::string(*type) : scheme_of(candidate.url);
            if (!candidate.url.empty()) candidates.push_back(std::move(candidate));
        }
    }
    apply_preference(std::move(candidates), node);
    if (const auto verification = CXMLSimple::find_element(file.inside(), "verification")) {
        read_hashes(verification->all.inside(), false, node);
    }
    return node;
}

void read_urls_4(const XmlText& file, std::vector<Candidate>& candidates) {
    XmlSiblings urls(file.inside(), "url");
    while (const auto url = urls.next()) {
        Candidate candidate;
        candidate.url = decode_entities(CXMLSimple::content(*url));
        candidate.type = scheme_of(candidate.url);
        const auto priority = CXMLSimple::attribute(*url, "priority");
        if (priority) candidate.priority = leading_number(*priority).value_or(candidate.priority);
        if (!candidate.url.empty()) candidates.push_back(std::move(candidate));
    }
    // A smaller number is better (RFC 5854, 4.2.16.2); of equal ones the first.
    std::stable_sort(candidates.begin(), candidates.end(),
                     [](const Candidate& a, const Candidate& b) { return a.priority < b.priority; });
}

CMetalinkNode read_file_4(const XmlText& file) {
    CMetalinkNode node;
    read_name_and_size(file, node);
    std::vector<Candidate> candidates;
    read_urls_4(file, candidates);
    XmlSiblings documents(file.inside(), "metaurl");
    while (const auto document = documents.next()) {
        const auto type = CXMLSimple::attribute(*document, "mediatype").value_or(std::string_view{});
        const std::string_view url = CXMLSimple::content(*document);
        if (!iequals(type, "torrent") || url.empty()) continue;
        Candidate candidate;
        candidate.type = "bittorrent";
        candidate.url = decode_entities(url);
        candidates.push_back(std::move(candidate));
    }
    apply_preference(std::move(candidates), node);
    read_hashes(file.inside(), true, node);
    return node;
}

}  // namespace

DigestKind digest_of(std::int32_t hash_type) noexcept {
    for (const HashKind& kind : hash_kinds) {
        if (kind.type == hash_type) return kind.digest;
    }
    return DigestKind::sha1;
}

std::string_view hash_type_name(std::int32_t hash_type) noexcept {
    for (const HashKind& kind : hash_kinds) {
        if (kind.type == hash_type) return kind.name;
    }
    return {};
}

CMetalink::CMetalink(std::span<const std::byte> bytes) {
    const CXMLSimple xml({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    const auto list = CXMLSimple::find_element(xml.document(), "files");
    const bool names_version_4 = xml.document().lower.find(version_4_namespace) != std::string_view::npos;
    const bool is_version_4 = names_version_4 || !list;
    std::optional<XmlElement> root = list;
    if (is_version_4) root = CXMLSimple::find_element(xml.document(), "metalink");
    if (!root) return;
    XmlSiblings files(root->all.inside(), "file");
    while (const auto file = files.next()) {
        files_.push_back(is_version_4 ? read_file_4(*file) : read_file_3(*file));
    }
}

MetalinkPath split_metalink_path(std::u16string_view path) {
    for (const std::u16string_view extension : {u".metalink#", u".meta4#"}) {
        for (std::size_t at = 0; at + extension.size() <= path.size(); ++at) {
            if (!istarts_with(path.substr(at), extension)) continue;
            const std::size_t end = at + extension.size() - 1;
            return {std::u16string(path.substr(0, end)), std::u16string(path.substr(end + 1))};
        }
    }
    return {std::u16string(path), {}};
}

}  // namespace vantlow
