#include "bt/peer/peer_wire.h"

#include "bt/wire.h"

namespace vantlow {
namespace {

using MessageKind = PeerMessage::Kind;

constexpr std::size_t reserved_at = 20;
constexpr std::size_t torrent_at = 28;
constexpr std::size_t peer_id_at = 48;
// A part of metadata has 16 KiB, and other programs' lists of peers a few. Trees of dictionaries take many
// times their bytes.
constexpr std::uint32_t longest_extended = 64 * 1024;
// The digests that are asked for at once, and those that lead to the root of any tree.
constexpr std::uint32_t longest_hashes = 49 + (HashRange::most + 64) * 32;

/// A bit among the eight reserved bytes.
struct Flag {
    std::size_t byte;
    unsigned char bit;

    [[nodiscard]] bool is_in(std::string_view bytes) const {
        return (static_cast<unsigned char>(bytes[reserved_at + byte]) & bit) != 0;
    }
    void put(std::string& bytes) const {
        char& at = bytes[reserved_at + byte];
        at = static_cast<char>(static_cast<unsigned char>(at) | bit);
    }
};
constexpr Flag extension_flag{5, 0x10};
constexpr Flag dht_flag{7, 0x01};
constexpr Flag fast_flag{7, 0x04};
constexpr Flag second_flag{7, 0x10};

/// How the body behind a message's number is laid out.
enum class Layout { nothing, piece, range, block, port, data, extended, hashes, unknown };

Layout layout_of(MessageKind kind) {
    switch (kind) {
        case MessageKind::choke:
        case MessageKind::unchoke:
        case MessageKind::interested:
        case MessageKind::not_interested:
        case MessageKind::have_all:
        case MessageKind::have_none:
            return Layout::nothing;
        case MessageKind::have:
        case MessageKind::suggest:
        case MessageKind::allowed_fast:
            return Layout::piece;
        case MessageKind::request:
        case MessageKind::cancel:
        case MessageKind::reject:
            return Layout::range;
        case MessageKind::piece:
            return Layout::block;
        case MessageKind::port:
            return Layout::port;
        case MessageKind::bitfield:
            return Layout::data;
        case MessageKind::extended:
            return Layout::extended;
        case MessageKind::hash_request:
        case MessageKind::hashes:
        case MessageKind::hash_reject:
            return Layout::hashes;
        case MessageKind::keep_alive:
        case MessageKind::unknown:
            break;
    }
    return Layout::unknown;
}

// A body's size where it is fixed; where not, at least that.
struct Size {
    std::size_t least;
    bool is_exact;
};

Size size_of(Layout layout) {
    switch (layout) {
        case Layout::nothing:
            return {0, true};
        case Layout::piece:
            return {4, true};
        case Layout::range:
            return {12, true};
        case Layout::block:
            return {8, false};
        case Layout::port:
            return {2, true};
        case Layout::extended:
            return {1, false};
        case Layout::hashes:
            return {48, false};
        case Layout::data:
        case Layout::unknown:
            break;
    }
    return {0, false};
}

void put_range(std::string& out, const HashRange& range) {
    out += node_bytes(range.root);
    for (const std::uint32_t number : {range.level, range.index, range.length, range.proof})
        put_number(out, number);
}

HashRange get_range(std::string_view body) {
    HashRange range;
    range.root = node_of(body);
    range.level = get_number<std::uint32_t>(body, 32);
    range.index = get_number<std::uint32_t>(body, 36);
    range.length = get_number<std::uint32_t>(body, 40);
    range.proof = get_number<std::uint32_t>(body, 44);
    return range;
}

}  // namespace

std::string PeerHandshake::bytes() const {
    std::string out(beginning);
    out.append(8, '\0');
    if (extensions) extension_flag.put(out);
    if (fast) fast_flag.put(out);
    if (dht) dht_flag.put(out);
    if (second) second_flag.put(out);
    out.append(reinterpret_cast<const char*>(torrent.data()), torrent.size());
    return out.append(peer_id);
}

std::optional<PeerHandshake> PeerHandshake::parse(std::string_view bytes) {
    if (bytes.size() != size || !bytes.starts_with(beginning)) return std::nullopt;
    PeerHandshake handshake;
    handshake.extensions = extension_flag.is_in(bytes);
    handshake.fast = fast_flag.is_in(bytes);
    handshake.dht = dht_flag.is_in(bytes);
    handshake.second = second_flag.is_in(bytes);
    for (std::size_t i = 0; i < handshake.torrent.size(); ++i)
        handshake.torrent[i] = static_cast<std::byte>(bytes[torrent_at + i]);
    handshake.peer_id = bytes.substr(peer_id_at);
    return handshake;
}

std::string PeerMessage::bytes() const {
    return head(data.size()).append(data);
}

std::string PeerMessage::head(std::size_t data_size) const {
    std::string out;
    if (kind == MessageKind::keep_alive) {
        put_number(out, std::uint32_t{0});
        return out;
    }
    const Layout layout = layout_of(kind);
    put_number(out, static_cast<std::uint32_t>(1 + size_of(layout).least + data_size));
    put_number(out, static_cast<std::uint8_t>(kind));
    if (layout == Layout::piece || layout == Layout::range || layout == Layout::block) put_number(out, piece);
    if (layout == Layout::range || layout == Layout::block) put_number(out, begin);
    if (layout == Layout::range) put_number(out, length);
    if (layout == Layout::port) put_number(out, port);
    if (layout == Layout::extended) put_number(out, extended);
    if (layout == Layout::hashes) put_range(out, range);
    return out;
}

void PeerReader::feed(std::string_view bytes) {
    bytes_.erase(0, at_);
    at_ = 0;
    if (!is_bad_) bytes_ += bytes;
}

PeerReader::Read PeerReader::next(PeerMessage& message) {
    if (is_bad_) return Read::bad;
    const std::string_view rest = std::string_view(bytes_).substr(at_);
    if (rest.size() < 4) return Read::more;
    const auto size = get_number<std::uint32_t>(rest, 0);
    if (size > longest_message) {
        is_bad_ = true;
        return Read::bad;
    }
    // A message that is too long for its kind is refused before memory is taken for it.
    const auto kind = rest.size() > 4 ? static_cast<MessageKind>(rest[4]) : MessageKind::unknown;
    const bool is_too_long = (kind == MessageKind::piece && size > longest_block + 9) ||
                             (kind == MessageKind::extended && size > longest_extended) ||
                             (layout_of(kind) == Layout::hashes && size > longest_hashes);
    if (is_too_long) {
        is_bad_ = true;
        return Read::bad;
    }
    if (rest.size() - 4 < size) return Read::more;
    at_ += 4 + size;
    message = {};
    if (size == 0) {
        message.kind = MessageKind::keep_alive;
        return Read::message;
    }
    if (parse(rest.substr(4, size), message)) return Read::message;
    is_bad_ = true;
    return Read::bad;
}

bool PeerReader::parse(std::string_view body, PeerMessage& message) {
    const auto kind = static_cast<MessageKind>(body.front());
    body.remove_prefix(1);
    const Layout layout = layout_of(kind);
    if (layout == Layout::unknown) return true;  // of an extension that this side does not speak
    const Size size = size_of(layout);
    if (size.is_exact ? body.size() != size.least : body.size() < size.least) return false;
    message.kind = kind;
    switch (layout) {
        case Layout::range:
            message.length = get_number<std::uint32_t>(body, 8);
            [[fallthrough]];
        case Layout::block:
            message.begin = get_number<std::uint32_t>(body, 4);
            [[fallthrough]];
        case Layout::piece:
            message.piece = get_number<std::uint32_t>(body, 0);
            break;
        case Layout::port:
            message.port = get_number<std::uint16_t>(body, 0);
            break;
        case Layout::extended:
            message.extended = get_number<std::uint8_t>(body, 0);
            break;
        case Layout::hashes:
            if (kind != MessageKind::hashes && body.size() != size.least) return false;
            message.range = get_range(body);
            break;
        case Layout::nothing:
        case Layout::data:
        case Layout::unknown:
            break;
    }
    message.data = body.substr(layout == Layout::data ? 0 : size.least);
    if (layout == Layout::block) message.length = static_cast<std::uint32_t>(message.data.size());
    return true;
}

}  // namespace vantlow
