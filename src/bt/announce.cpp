#include "bt/announce.h"

#include <algorithm>

#include "base/codes.h"
#include "base/text.h"
#include "bt/wire.h"

namespace vantlow {
namespace {

constexpr std::uint64_t protocol_constant = 0x41727101980;

bool is_key_character(char c) noexcept {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '-' || c == '_';
}

std::string escape_every_byte(const InfoHash& hash) {
    std::string text;
    for (const std::byte byte : hash) text += print("%%%02X", std::to_integer<unsigned>(byte));
    return text;
}

}  // namespace

std::string_view event_name(AnnounceEvent event) noexcept {
    switch (event) {
        case AnnounceEvent::none:
            break;
        case AnnounceEvent::completed:
            return "completed";
        case AnnounceEvent::started:
            return "started";
        case AnnounceEvent::stopped:
            return "stopped";
    }
    return {};
}

std::string make_peer_id(const Guid& guid) {
    return "-VL2950-" + to_hex(std::as_bytes(std::span(guid.bytes)).last(6));
}

std::string normalise_tracker(std::string_view url) {
    const auto first = url.find_first_not_of(' ');
    if (first == std::string_view::npos) return {};
    std::string text(url.substr(first, url.find_last_not_of(' ') - first + 1));
    std::replace(text.begin(), text.end(), '\\', '/');
    const auto host = text.find("://");
    if (host != std::string::npos && text.find('/', host + 3) == std::string::npos) text += '/';
    return text;
}

bool can_be_announced_to(std::string_view url) noexcept {
    constexpr std::size_t longest = 2000;
    const auto has_host = [url](std::string_view scheme) {
        return istarts_with(url, scheme) && url.size() > scheme.size() && url[scheme.size()] != '/';
    };
    const bool is_plain = std::ranges::none_of(url, [](char c) { return c >= 0 && c <= ' '; });
    return is_plain && url.size() <= longest &&
           (has_host("http://") || has_host("https://") || has_host("udp://"));
}

std::vector<std::string> distinct_trackers(const std::vector<std::string>& trackers) {
    std::vector<std::string> distinct;
    for (const std::string& tracker : trackers) {
        std::string url = normalise_tracker(tracker);
        const bool is_known = std::find(distinct.begin(), distinct.end(), url) != distinct.end();
        if (!url.empty() && !is_known) distinct.push_back(std::move(url));
    }
    return distinct;
}

std::string without_keys(std::string_view url) {
    constexpr std::size_t shortest_key = 16;
    const auto host = url.find("://");
    auto path = host == std::string_view::npos ? 0 : url.find_first_of("/?#", host + 3);
    if (path == std::string_view::npos) path = url.size();
    std::string text(url.substr(0, path));
    // The text in front of "@" is credentials.
    if (const auto at = text.rfind('@'); at != std::string::npos && host != std::string_view::npos)
        text.replace(host + 3, at - (host + 3), "********");
    for (std::size_t i = path; i < url.size();) {
        std::size_t end = i;
        while (end < url.size() && is_key_character(url[end])) ++end;
        text += end - i >= shortest_key ? "********" : std::string(url.substr(i, end - i));
        if (end < url.size()) text += url[end];
        i = end + 1;
    }
    return text;
}

std::string http_announce_url(std::string_view tracker, const TorrentIdentity& job, AnnounceEvent event,
                              std::uint32_t numwant) {
    const auto number = [](std::int64_t value) { return std::to_string(value); };
    std::string url(tracker);
    url += "?info_hash=" + escape_every_byte(job.info_hash) + "&peer_id=" + job.peer_id;
    url += "&port=" + number(job.port) + "&uploaded=" + number(job.uploaded);
    url += "&downloaded=" + number(job.downloaded) + "&left=" + number(job.left);
    url += "&numwant=" + number(numwant);
    if (event != AnnounceEvent::none) url += "&event=" + std::string(event_name(event));
    return url + "&compact=1&no_peer_id=1&supportcrypto=1";
}

// Where the last part of its path begins with "announce", that word is replaced.
std::string http_scrape_url(std::string_view tracker, const InfoHash& torrent) {
    constexpr std::string_view announce = "announce";
    const auto query = std::min(tracker.find('?'), tracker.size());
    const auto slash = tracker.substr(0, query).rfind('/');
    if (slash == std::string_view::npos || !tracker.substr(slash + 1).starts_with(announce)) return {};
    std::string url(tracker.substr(0, slash + 1));
    url.append("scrape").append(tracker.substr(slash + 1 + announce.size()));
    return url + (query < tracker.size() ? "&" : "?") + "info_hash=" + escape_every_byte(torrent);
}

namespace udp_tracker {

std::string connect_request(std::uint32_t transaction) {
    std::string bytes;
    put_number(bytes, protocol_constant);
    put_number(bytes, std::uint32_t{connect});
    put_number(bytes, transaction);
    return bytes;
}

std::string announce_request(std::string_view connection, std::uint32_t transaction,
                             const TorrentIdentity& job, AnnounceEvent event, std::uint32_t numwant) {
    std::string bytes(connection);
    put_number(bytes, std::uint32_t{announce});
    put_number(bytes, transaction);
    bytes.append(reinterpret_cast<const char*>(job.info_hash.data()), job.info_hash.size());
    bytes += job.peer_id;
    put_number(bytes, static_cast<std::uint64_t>(job.downloaded.load()));
    put_number(bytes, static_cast<std::uint64_t>(job.left.load()));
    put_number(bytes, static_cast<std::uint64_t>(job.uploaded.load()));
    put_number(bytes, static_cast<std::uint32_t>(event));
    put_number(bytes, std::uint32_t{0});  // the address that the datagram comes from
    put_number(bytes, transaction);       // also as the key
    put_number(bytes, numwant);
    put_number(bytes, job.port);
    put_number(bytes, std::uint16_t{0});
    return bytes;
}

std::string scrape_request(std::string_view connection, std::uint32_t transaction, const InfoHash& torrent) {
    std::string bytes(connection);
    put_number(bytes, std::uint32_t{scrape});
    put_number(bytes, transaction);
    return bytes.append(reinterpret_cast<const char*>(torrent.data()), torrent.size());
}

}  // namespace udp_tracker

}  // namespace vantlow
