// The answers of trackers (BEP 3, BEP 7, BEP 15, BEP 23).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "bt/bencode_value.h"
#include "bt/metainfo.h"
#include "platform/socket.h"

namespace vantlow {

/// A peer that a tracker named by a text that is no address.
struct NamedPeer {
    std::string host;
    std::uint16_t port = 0;
};

/// The sizes of a torrent's swarm as a tracker counts them.
struct SwarmCounts {
    std::int64_t seeders = 0;     ///< peers that have everything
    std::int64_t leechers = 0;    ///< the others
    std::int64_t completed = -1;  ///< how often it was fetched; -1: unsaid
};

/// A parsed answer.
struct CBETrackerRespond {
    std::string text;           ///< of a failure or a warning, as sent
    bool is_failure = false;    ///< the tracker refused
    std::int64_t interval = 0;  ///< seconds until the next announce; 0: none is wanted
    std::vector<SocketAddress> ipv4;
    std::vector<SocketAddress> ipv6;
    std::vector<NamedPeer> named;
    std::optional<SwarmCounts> counts;
    std::optional<SocketAddress> own;  ///< this side's address as the tracker sees it, port 0 (BEP 24)

    [[nodiscard]] std::vector<SocketAddress> peers() const;
};

/// A tracker's words for logs: 500 bytes of them at most, without control characters.
std::string one_line(std::string_view text);

/// Reads the dictionary of an HTTP answer; none for one that must be refused. `ipv6_compact`: the string
/// "peers" holds entries of 18 bytes instead of 6.
std::optional<CBETrackerRespond> read_tracker_answer(const CBEDictionary& answer, bool ipv6_compact);

/// Reads the dictionary of a tracker that was asked for the counts alone (BEP 48); `server_error`, with its
/// reason or another sentence, where it does not tell them.
Outcome<SwarmCounts> read_scrape_answer(const CBEDictionary& answer, const InfoHash& torrent);

/// ok when a datagram answers the request with this action and transaction (BEP 15); else `server_error`,
/// with the tracker's reason or another sentence.
Result check_udp_answer(std::string_view answer, std::uint32_t action, std::uint32_t transaction);
/// Reads the answer to an announce; fails as check_udp_answer() does. `ipv6`: entries have 18 bytes, not 6.
Outcome<CBETrackerRespond> read_udp_announce(std::string_view answer, std::uint32_t transaction, bool ipv6);
/// The same of the answer to a request for the counts alone.
Outcome<SwarmCounts> read_udp_scrape(std::string_view answer, std::uint32_t transaction);

}  // namespace vantlow
