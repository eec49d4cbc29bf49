#include "bt/magnet.h"

#include <algorithm>

#include "base/codes.h"
#include "base/text.h"

namespace vantlow {
namespace {

constexpr std::size_t most_decoded = 64;
// More numbered trackers than these are left out.
constexpr int most_trackers = 1000;
constexpr std::size_t most_peers = 200;
// Each is a question to the system.
constexpr std::size_t most_named = 20;
constexpr std::size_t longest_name = 253;
constexpr std::size_t most_web_seeds = 50;
constexpr std::string_view second_key = "xt=urn:btmh:";
constexpr std::string_view sha256_mark = "1220";

// The text behind the first `key`, up to the next "&"; none when the key does not occur.
std::optional<std::string_view> value_of(std::string_view text, std::string_view key) {
    const std::size_t at = text.find(key);
    if (at == std::string_view::npos) return std::nullopt;
    const std::string_view rest = text.substr(at + key.size());
    return rest.substr(0, rest.find('&'));
}

// An address or a name, and a port: "1.2.3.4:5", "[::1]:5", "host.example:5", escaped or not.
void read_peer(std::string_view escaped, Magnet& magnet) {
    const std::string text = percent_decode(escaped);
    const std::size_t colon = text.rfind(':');
    if (colon == std::string::npos) return;
    const auto port = parse_decimal(std::string_view(text).substr(colon + 1));
    if (!port || *port < 1 || *port > 65535) return;
    std::string_view host = std::string_view(text).substr(0, colon);
    if (host.starts_with('[') && host.ends_with(']')) host = host.substr(1, host.size() - 2);
    if (const auto peer = SocketAddress::from_literal(host, static_cast<std::uint16_t>(*port))) {
        magnet.peers.push_back(*peer);
        return;
    }
    const bool is_name = !host.empty() && host.size() <= longest_name &&
                         std::all_of(host.begin(), host.end(), [](unsigned char c) {
                             return c > ' ' && c != ':' && c != '/' && c != '\x7F';
                         });
    if (is_name && magnet.named_peers.size() < most_named)
        magnet.named_peers.push_back({std::string(host), static_cast<std::uint16_t>(*port)});
}

// Peers and servers that have the files.
void read_givers(std::string_view text, Magnet& magnet) {
    constexpr std::string_view peer_key = "x.pe=";
    constexpr std::string_view seed_key = "ws=";
    if (const std::size_t query = text.find('?'); query != std::string_view::npos)
        text.remove_prefix(query + 1);
    for (std::string_view part : split(text, '&')) {
        if (part.starts_with(peer_key) && magnet.peers.size() < most_peers) {
            read_peer(part.substr(peer_key.size()), magnet);
        } else if (part.starts_with(seed_key) && magnet.web_seeds.size() < most_web_seeds) {
            magnet.web_seeds.push_back(percent_decode(part.substr(seed_key.size())));
        }
    }
}

// Decodes base32, the last byte filled up with zeroes; none for any character outside the alphabet.
std::optional<std::vector<std::byte>> from_base32(std::string_view text) {
    const std::size_t size = (text.size() * 5 + 7) / 8;
    if (size > most_decoded) return std::nullopt;
    std::vector<std::byte> bytes(size);
    std::size_t bit = 0;
    for (const char raw : text) {
        const char c = ascii_lower(raw);
        unsigned value = 0;
        if (c >= 'a' && c <= 'z') {
            value = static_cast<unsigned>(c - 'a');
        } else if (c >= '2' && c <= '7') {
            value = static_cast<unsigned>(c - '2') + 26;
        } else {
            return std::nullopt;
        }
        for (unsigned mask = 0x10; mask != 0; mask >>= 1U, ++bit) {
            if ((value & mask) != 0) bytes[bit / 8] |= std::byte{0x80} >> (bit % 8);
        }
    }
    return bytes;
}

std::optional<InfoHash> read_hash(std::string_view text) {
    auto bytes = from_base32(text);
    InfoHash hash{};
    if (!bytes || bytes->size() != hash.size()) {
        if (text.size() != 2 * hash.size()) return std::nullopt;
        bytes = from_hex(text);
        if (!bytes) return std::nullopt;
    }
    std::copy(bytes->begin(), bytes->end(), hash.begin());
    return hash;
}

// A multihash: the number of SHA-256, its length, and the digest, all in hexadecimal digits.
std::optional<MerkleRoot> read_second_hash(std::string_view text) {
    if (!text.starts_with(sha256_mark)) return std::nullopt;
    const auto bytes = from_hex(text.substr(sha256_mark.size()));
    MerkleRoot hash{};
    if (!bytes || bytes->size() != hash.size()) return std::nullopt;
    std::copy(bytes->begin(), bytes->end(), hash.begin());
    return hash;
}

std::string percent_encode(std::string_view text) {
    std::string out;
    for (const char c : text) {
        const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                           c == '-' || c == '_' || c == '.' || c == '~';
        out +=
            plain ? std::string(1, c) : print("%%%02X", static_cast<unsigned>(static_cast<unsigned char>(c)));
    }
    return out;
}

void add_trackers(std::string& link, const std::vector<std::string>& trackers) {
    int number = 0;
    for (const std::string& tracker : trackers) {
        if (!tracker.empty()) link += "&tr." + std::to_string(number++) + "=" + percent_encode(tracker);
    }
}

}  // namespace

std::optional<Magnet> parse_magnet(std::string_view text, const std::vector<std::string>& default_trackers) {
    const auto hash_text = value_of(text, "xt=urn:btih:");
    const auto hash = hash_text ? read_hash(*hash_text) : std::nullopt;
    if (hash_text && !hash) return std::nullopt;
    Magnet magnet;
    if (const auto second = value_of(text, second_key)) magnet.second_hash = read_second_hash(*second);
    if (!hash && !magnet.second_hash) return std::nullopt;
    magnet.info_hash = hash ? *hash : short_hash_of(*magnet.second_hash);
    magnet.name = value_of(text, "dn=").value_or("");
    read_givers(text, magnet);
    if (const auto tracker = value_of(text, "tr=")) magnet.trackers.emplace_back(*tracker);
    int number = 0;
    for (; number < most_trackers; ++number) {
        const auto tracker = value_of(text, "tr." + std::to_string(number) + "=");
        if (!tracker) break;
        magnet.trackers.emplace_back(*tracker);
    }
    if (number == 0) {
        magnet.trackers.insert(magnet.trackers.end(), default_trackers.begin(), default_trackers.end());
    }
    return magnet;
}

bool is_magnet(std::string_view text) noexcept {
    return istarts_with(text, "magnet:?");
}

std::string tracker_from_magnet(std::string_view text) {
    // A URL that is not escaped as a whole may hold escapes of its own.
    return text.find("://") == std::string_view::npos ? percent_decode(text) : std::string(text);
}

std::string make_magnet(const InfoHash& hash, std::string_view name,
                        const std::vector<std::string>& trackers) {
    Magnet hashes;
    hashes.info_hash = hash;
    return make_magnet(hashes, name, trackers);
}

std::string make_magnet(const Magnet& hashes, std::string_view name,
                        const std::vector<std::string>& trackers) {
    std::string link = "magnet:?";
    const bool has_first = !is_of_second(hashes.info_hash, hashes.second_hash);
    if (has_first) link += "xt=urn:btih:" + to_hex(hashes.info_hash);
    if (has_first && hashes.second_hash) link += '&';
    if (hashes.second_hash) link.append(second_key).append(sha256_mark) += to_hex(*hashes.second_hash);
    if (!name.empty()) link += "&dn=" + percent_encode(name);
    add_trackers(link, trackers);
    return link;
}

Magnet hashes_of(const CBEMetaInfo& meta) {
    Magnet hashes;
    hashes.info_hash = meta.info_hash;
    if (is_of_second(meta.info_hash, meta.second_hash)) hashes.second_hash = meta.second_hash;
    return hashes;
}

std::string with_trackers(std::string_view link, const std::vector<std::string>& trackers) {
    const std::size_t mark = link.find('?');
    const std::size_t query = mark == std::string_view::npos ? 0 : mark + 1;
    std::string changed(link.substr(0, query));
    for (const std::string_view part : split(link.substr(query), '&')) {
        if (part.empty() || part.starts_with("tr=") || part.starts_with("tr.")) continue;
        if (changed.size() > query) changed += '&';
        changed += part;
    }
    add_trackers(changed, trackers);
    if (trackers.empty()) changed += "&tr.0=";
    return changed;
}

}  // namespace vantlow
