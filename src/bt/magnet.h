// Magnet links (BEP 9).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "bt/metainfo.h"
#include "platform/socket.h"

namespace vantlow {

/// The contents of a magnet link. Name and trackers are as they stand in the link, escapes included.
struct Magnet {
    InfoHash info_hash{};                   ///< of the first version, where the link has both
    std::optional<MerkleRoot> second_hash;  ///< of the second version (BEP 52)
    std::string name;
    std::vector<std::string> trackers;
    std::vector<SocketAddress> peers;  ///< that it names by their addresses ("x.pe")
    struct NamedPeer {
        std::string host;
        std::uint16_t port = 0;
    };
    std::vector<NamedPeer> named_peers;  ///< and by host names
    std::vector<std::string> web_seeds;  ///< addresses of servers that have the files ("ws"), not escaped
};

/// Reads the text behind "magnet:?" (the whole link is accepted too). None when it has neither an info hash
/// of 20 bytes, in base32 (RFC 4648) or in hexadecimal digits, nor a SHA-256 digest as a multihash (BEP 52).
/// `default_trackers` are appended when the link has no "tr.0=".
std::optional<Magnet> parse_magnet(std::string_view text, const std::vector<std::string>& default_trackers);

/// True when the text begins with "magnet:?", in any letter case.
bool is_magnet(std::string_view text) noexcept;

/// The URL of a tracker in a magnet link, which may be escaped or not.
std::string tracker_from_magnet(std::string_view text);

/// Makes the link of a torrent, with hexadecimal digits and escapes, so that parse_magnet() reads hash, name
/// and all of the trackers again.
std::string make_magnet(const InfoHash& hash, std::string_view name,
                        const std::vector<std::string>& trackers);

/// The same of a torrent of either version, by the hash or the hashes of another link.
std::string make_magnet(const Magnet& hashes, std::string_view name,
                        const std::vector<std::string>& trackers);

/// The hashes of a document as a link has them. Of a hybrid one that is the first version's alone, since that
/// is the one that is fetched.
Magnet hashes_of(const CBEMetaInfo& meta);

/// The link with these trackers in place of its own; with none of them it gets no default ones either.
std::string with_trackers(std::string_view link, const std::vector<std::string>& trackers);

}  // namespace vantlow
