#include "bt/peer_exchange.h"

#include <algorithm>
#include <set>

#include "bt/bencode.h"
#include "bt/extension.h"
#include "bt/peer_store.h"
#include "bt/wire.h"

namespace vantlow {
namespace {

using namespace std::chrono_literals;

constexpr Clock::duration between_sent = 60s;
// A message may have taken less time on its way than the one before.
constexpr Clock::duration between_taken = 55s;

constexpr std::size_t compact_ipv4 = 6;
constexpr std::size_t compact_ipv6 = 18;

std::string compact(const SocketAddress& address) {
    std::string bytes = address_bytes(address);
    put_number(bytes, address.port());
    return bytes;
}

/// The lists of one kind of addresses.
struct Lists {
    std::string added, flags, dropped;
};

void read(const CBEDictionary& dictionary, const std::string& suffix, std::size_t size,
          std::set<std::string>& hosts, std::vector<ExchangedPeer>& peers) {
    const CBEString* const list = dictionary.find_string("added" + suffix);
    const CBEString* const flags = dictionary.find_string("added" + suffix + ".f");
    if (list == nullptr) return;
    const std::string_view bytes = list->data;
    for (std::size_t i = 0; (i + 1) * size <= bytes.size(); ++i) {
        if (i >= ExchangedPeers::most_taken || peers.size() >= ExchangedPeers::most_taken) return;
        const std::string_view one = bytes.substr(i * size, size);
        if (!hosts.emplace(one.substr(0, size - 2)).second) continue;
        ExchangedPeer peer{size == compact_ipv4 ? ipv4_peer(one) : ipv6_peer(one)};
        if (flags != nullptr && i < flags->data.size())
            peer.flags = static_cast<std::uint8_t>(flags->data[i]);
        peers.push_back(peer);
    }
}

}  // namespace

std::string build_exchange_message(std::uint8_t peer_number, const ExchangedPeers& peers) {
    Lists four;
    Lists six;
    for (const ExchangedPeer& peer : peers.added) {
        Lists& lists = peer.address.is_ipv6() ? six : four;
        lists.added += compact(peer.address);
        lists.flags += static_cast<char>(peer.flags);
    }
    for (const SocketAddress& address : peers.dropped)
        (address.is_ipv6() ? six : four).dropped += compact(address);
    CBEDictionary dictionary;  // its keys are sorted
    dictionary.add("added", four.added);
    dictionary.add("added.f", four.flags);
    dictionary.add("added6", six.added);
    dictionary.add("added6.f", six.flags);
    dictionary.add("dropped", four.dropped);
    dictionary.add("dropped6", six.dropped);
    CBEncode writer;
    writer.write(&dictionary);
    return build_extended_message(peer_number, writer.output());
}

std::optional<ExchangedPeers> parse_exchange_message(std::string_view payload) {
    CBEncode parser;
    parser.load_memory(payload);
    const auto dictionary = parser.parse_document();
    if (!dictionary) return std::nullopt;
    ExchangedPeers peers;
    std::set<std::string> hosts;
    read(*dictionary, "", compact_ipv4, hosts, peers.added);
    read(*dictionary, "6", compact_ipv6, hosts, peers.added);
    return peers;
}

bool PeerExchange::is_due(Clock::time_point now) const noexcept {
    return !sent_ || now - *sent_ >= between_sent;
}

bool PeerExchange::may_take(Clock::time_point now) noexcept {
    if (taken_ && now - *taken_ < between_taken) return false;
    taken_ = now;
    return true;
}

std::optional<ExchangedPeers> PeerExchange::news(std::span<const ExchangedPeer> current,
                                                 Clock::time_point now) {
    ExchangedPeers news;
    std::set<std::string> present;
    for (const ExchangedPeer& peer : current) {
        const std::string key = peer_text(peer.address);
        present.insert(key);
        if (told_.contains(key) || news.added.size() >= ExchangedPeers::most_sent) continue;
        news.added.push_back(peer);
        told_.emplace(key, peer.address);
    }
    for (auto at = told_.begin(); at != told_.end() && news.dropped.size() < ExchangedPeers::most_sent;) {
        if (present.contains(at->first)) {
            ++at;
            continue;
        }
        news.dropped.push_back(at->second);
        at = told_.erase(at);
    }
    if (news.added.empty() && news.dropped.empty()) return std::nullopt;
    sent_ = now;
    return news;
}

}  // namespace vantlow
