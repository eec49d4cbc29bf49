#include "bt/tracker_answer.h"

#include <algorithm>
#include <limits>

#include "base/text.h"
#include "bt/announce.h"
#include "bt/wire.h"

namespace vantlow {
namespace {

constexpr std::size_t ipv4_entry = 6;
constexpr std::size_t ipv6_entry = 18;
constexpr std::size_t udp_head = 8;  // action and transaction
constexpr const char* short_answer = "The tracker's answer is too short.";

void read_compact(std::string_view bytes, bool ipv6, CBETrackerRespond& respond) {
    const std::size_t size = ipv6 ? ipv6_entry : ipv4_entry;
    for (; bytes.size() >= size; bytes.remove_prefix(size)) {
        (ipv6 ? respond.ipv6 : respond.ipv4).push_back(ipv6 ? ipv6_peer(bytes) : ipv4_peer(bytes));
    }
}

bool read_list(const CBEList& list, CBETrackerRespond& respond) {
    for (const auto& item : list.items) {
        const CBEDictionary* const peer = as_dictionary(item.get());
        const CBEInteger* const port = peer != nullptr ? peer->find_integer("port") : nullptr;
        const CBEString* const ip = peer != nullptr ? peer->find_string("ip") : nullptr;
        if (port == nullptr || ip == nullptr) return false;
        if (port->value < 1 || port->value > std::numeric_limits<std::uint16_t>::max()) continue;
        const auto number = static_cast<std::uint16_t>(port->value);
        const auto address = SocketAddress::from_literal(ip->data, number);
        if (!address) {
            respond.named.push_back({ip->data, number});
        } else {
            (address->is_ipv6() ? respond.ipv6 : respond.ipv4).push_back(*address);
        }
    }
    return true;
}

// None where one of the two numbers that matter is missing.
std::optional<SwarmCounts> read_counts(const CBEDictionary& dictionary) {
    const CBEInteger* const seeders = dictionary.find_integer("complete");
    const CBEInteger* const leechers = dictionary.find_integer("incomplete");
    if (seeders == nullptr || leechers == nullptr) return std::nullopt;
    SwarmCounts counts{std::max<std::int64_t>(seeders->value, 0), std::max<std::int64_t>(leechers->value, 0)};
    if (const CBEInteger* const completed = dictionary.find_integer("downloaded"))
        counts.completed = std::max<std::int64_t>(completed->value, -1);
    return counts;
}

void read_own_address(const CBEDictionary& answer, CBETrackerRespond& respond) {
    const CBEString* const own = answer.find_string("external ip");
    if (own == nullptr) return;
    if (own->data.size() == 4) respond.own = ipv4_peer(own->data + std::string(2, '\0'));
    if (own->data.size() == 16) respond.own = ipv6_peer(own->data + std::string(2, '\0'));
}

}  // namespace

std::string one_line(std::string_view text) {
    constexpr std::size_t longest = 500;
    std::string line(text.substr(0, longest));
    for (char& c : line) {
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = ' ';
    }
    return line;
}

std::vector<SocketAddress> CBETrackerRespond::peers() const {
    std::vector<SocketAddress> all = ipv4;
    all.insert(all.end(), ipv6.begin(), ipv6.end());
    return all;
}

std::optional<CBETrackerRespond> read_tracker_answer(const CBEDictionary& answer, bool ipv6_compact) {
    CBETrackerRespond respond;
    for (const char* key : {"failure reason", "warning message"}) {
        const CBEObject* const value = answer.find(key);
        if (value == nullptr) continue;
        const CBEString* const text = as_string(value);
        if (text == nullptr) return std::nullopt;
        respond.text = text->data;
        respond.is_failure = key[0] == 'f';
        if (respond.is_failure) return respond;
    }
    const CBEInteger* const interval = answer.find_integer("interval");
    const CBEObject* const peers = answer.find("peers");
    if (interval == nullptr || peers == nullptr) return std::nullopt;
    constexpr std::int64_t longest = std::numeric_limits<std::int32_t>::max();
    respond.interval = std::clamp<std::int64_t>(interval->value, 0, longest);
    if (const CBEString* const compact = as_string(peers)) {
        read_compact(compact->data, ipv6_compact, respond);
    } else if (const CBEList* const list = as_list(peers); list == nullptr || !read_list(*list, respond)) {
        return std::nullopt;
    }
    if (const CBEString* const more = answer.find_string("peers6")) read_compact(more->data, true, respond);
    respond.counts = read_counts(answer);
    read_own_address(answer, respond);
    return respond;
}

Outcome<SwarmCounts> read_scrape_answer(const CBEDictionary& answer, const InfoHash& torrent) {
    if (const CBEString* const reason = answer.find_string("failure reason"))
        return Result(Code::server_error, one_line(reason->data));
    const CBEDictionary* const files = answer.find_dictionary("files");
    const std::string_view key(reinterpret_cast<const char*>(torrent.data()), torrent.size());
    const CBEDictionary* const file = files != nullptr ? files->find_dictionary(key) : nullptr;
    const auto counts = file != nullptr ? read_counts(*file) : std::nullopt;
    if (!counts) return Result(Code::server_error, "The tracker does not know this torrent.");
    return *counts;
}

Result check_udp_answer(std::string_view answer, std::uint32_t action, std::uint32_t transaction) {
    if (answer.size() < udp_head) return {Code::server_error, short_answer};
    const auto got = get_number<std::uint32_t>(answer, 0);
    if (got == udp_tracker::error) {
        const std::string text = one_line(answer.substr(udp_head));
        const std::string_view reason = trim(text);
        return {Code::server_error,
                reason.empty() ? "The tracker refused without a reason." : std::string(reason)};
    }
    if (got != action) return {Code::server_error, "The tracker's answer belongs to another request."};
    if (get_number<std::uint32_t>(answer, 4) != transaction)
        return {Code::server_error, "Got a message with incorrect transaction id."};
    return {};
}

Outcome<CBETrackerRespond> read_udp_announce(std::string_view answer, std::uint32_t transaction, bool ipv6) {
    if (Result result = check_udp_answer(answer, udp_tracker::announce, transaction); !result.ok())
        return result;
    if (answer.size() < udp_tracker::announce_answer_size) return Result(Code::server_error, short_answer);
    CBETrackerRespond respond;
    respond.interval = std::min<std::uint32_t>(get_number<std::uint32_t>(answer, udp_head), 0x7FFFFFFF);
    respond.counts =
        SwarmCounts{get_number<std::uint32_t>(answer, 16), get_number<std::uint32_t>(answer, 12)};
    read_compact(answer.substr(udp_tracker::announce_answer_size), ipv6, respond);
    // 0.0.0.0 is no peer.
    std::erase_if(respond.ipv4,
                  [](const SocketAddress& peer) { return peer.ipv4() == SocketAddress().ipv4(); });
    return respond;
}

Outcome<SwarmCounts> read_udp_scrape(std::string_view answer, std::uint32_t transaction) {
    if (Result result = check_udp_answer(answer, udp_tracker::scrape, transaction); !result.ok())
        return result;
    if (answer.size() < udp_tracker::scrape_answer_size) return Result(Code::server_error, short_answer);
    return SwarmCounts{get_number<std::uint32_t>(answer, udp_head), get_number<std::uint32_t>(answer, 16),
                       get_number<std::uint32_t>(answer, 12)};
}

}  // namespace vantlow
