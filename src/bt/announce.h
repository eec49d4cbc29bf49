// One announce: the facts about a torrent job, and their form for each kind of tracker.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/guid.h"
#include "bt/metainfo.h"
#include "bt/peer_store.h"
#include "transfer/connection/base_socket.h"

namespace vantlow {

enum class AnnounceEvent : std::uint32_t { none = 0, completed = 1, started = 2, stopped = 3 };  // BEP 15

/// "started" and its kin; empty for none.
std::string_view event_name(AnnounceEvent event) noexcept;

/// "-VL2950-" and twelve hexadecimal digits of the last six bytes of the GUID.
std::string make_peer_id(const Guid& guid);

/// A torrent job as its trackers and peers know it. Outlives its announce threads; the counters may change
/// while they run.
struct TorrentIdentity {
    InfoHash info_hash{};
    std::string peer_id;     ///< 20 characters
    std::uint16_t port = 0;  ///< that peers may connect to; 0: none
    ProxyPlan proxy;
    NetworkWay way;                         ///< that all packets are held to
    std::atomic<std::int64_t> uploaded{0};  ///< bytes
    std::atomic<std::int64_t> downloaded{0};
    std::atomic<std::int64_t> left{0};
    PeerStore peers;
};

/// Normalises a tracker's URL: blanks at the ends go, backslashes become slashes, and a URL without a path
/// gets one.
std::string normalise_tracker(std::string_view url);

/// True for the URL of a tracker that can be asked: over HTTP or UDP, of one line and no monstrous length.
bool can_be_announced_to(std::string_view url) noexcept;

/// The trackers of a list as they are announced to: normalised, each once.
std::vector<std::string> distinct_trackers(const std::vector<std::string>& trackers);

/// The URL for logs: anything that looks like a key to a private tracker is masked.
std::string without_keys(std::string_view url);

/// The address that an HTTP tracker is asked at.
std::string http_announce_url(std::string_view tracker, const TorrentIdentity& job, AnnounceEvent event,
                              std::uint32_t numwant);

/// The address at which an HTTP tracker tells the counts alone (BEP 48); empty where it has none.
std::string http_scrape_url(std::string_view tracker, const InfoHash& torrent);

/// The datagrams of BEP 15.
namespace udp_tracker {
inline constexpr std::size_t connect_answer_size = 16;
inline constexpr std::size_t announce_answer_size = 20;
inline constexpr std::size_t scrape_answer_size = 20;
enum Action : std::uint32_t { connect = 0, announce = 1, scrape = 2, error = 3 };

std::string connect_request(std::uint32_t transaction);
std::string announce_request(std::string_view connection, std::uint32_t transaction,
                             const TorrentIdentity& job, AnnounceEvent event, std::uint32_t numwant);
std::string scrape_request(std::string_view connection, std::uint32_t transaction, const InfoHash& torrent);
}  // namespace udp_tracker

}  // namespace vantlow
