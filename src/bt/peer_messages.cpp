#include "bt/peer_messages.h"

#include "base/codes.h"
#include "bt/wire.h"

namespace vantlow {
namespace {

constexpr std::string_view protocol =
    "\x13"
    "BitTorrent protocol";
constexpr std::size_t reserved_at = 20;
constexpr std::size_t reserved_size = 8;
constexpr std::size_t torrent_at = 28;
constexpr std::size_t peer_id_at = 48;
constexpr std::size_t extension_byte = 5;  // of the reserved ones
constexpr unsigned char extension_bit = 0x10;
// The bitfields of the largest torrents, and metadata pieces, are shorter than this.
constexpr std::uint32_t longest_message = 1024 * 1024;
constexpr int most_messages = 100;

std::string message_name(unsigned number) {
    constexpr std::string_view names[] = {"choke",    "unchoke", "interested", "not interested", "have",
                                          "bitfield", "request", "piece",      "cancel",         "port"};
    if (number < std::size(names)) return std::string(names[number]);
    switch (number) {  // BEP 6, BEP 10
        case 13:
            return "suggest piece";
        case 14:
            return "have all";
        case 15:
            return "have none";
        case 16:
            return "reject request";
        case 17:
            return "allowed fast";
        case extended_message:
            return "extended";
        default:
            return "message " + std::to_string(number);
    }
}

}  // namespace

std::string build_peer_handshake(const InfoHash& torrent, std::string_view peer_id) {
    std::string bytes(protocol);
    bytes.append(reserved_size, '\0');
    bytes[reserved_at + extension_byte] = static_cast<char>(extension_bit);
    bytes.append(reinterpret_cast<const char*>(torrent.data()), torrent.size());
    return bytes.append(peer_id);
}

Result PeerListener::take(std::string_view part) {
    wanted_ = 0;
    switch (part_) {
        case Part::handshake:
            return take_handshake(part);
        case Part::length:
            return take_length(part);
        case Part::message:
            take_message(part);
            break;
    }
    return {};
}

Result PeerListener::take_handshake(std::string_view part) {
    if (!part.starts_with(protocol)) return {Code::unsupported, "This is not a BitTorrent peer."};
    const std::string_view hash(reinterpret_cast<const char*>(torrent_.data()), torrent_.size());
    if (part.substr(torrent_at, hash.size()) != hash)
        return {Code::unsupported, "The peer answered for another torrent."};
    words_.ok = true;
    words_.reserved = to_hex(std::as_bytes(std::span(part)).subspan(reserved_at, reserved_size));
    words_.peer_id = part.substr(peer_id_at);
    const auto flags = static_cast<unsigned char>(part[reserved_at + extension_byte]);
    if ((flags & extension_bit) != 0) want_length();
    return {};
}

Result PeerListener::take_length(std::string_view part) {
    const auto size = get_number<std::uint32_t>(part, 0);
    if (size > longest_message) return {Code::unsupported, "The peer's message is too long."};
    if (size == 0) {  // keeps the connection alive
        want_length();
    } else {
        part_ = Part::message;
        wanted_ = size;
    }
    return {};
}

void PeerListener::take_message(std::string_view part) {
    const auto number = static_cast<unsigned char>(part[0]);
    words_.messages.push_back(message_name(number));
    if (number == extended_message && part.size() > 2 && part[1] == 0)
        words_.extension = parse_extension_handshake(part.substr(2));
    if (!words_.extension) want_length();
}

void PeerListener::want_length() noexcept {
    part_ = Part::length;
    if (lengths_++ < most_messages) wanted_ = sizeof(std::uint32_t);
}

}  // namespace vantlow
