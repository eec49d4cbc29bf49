// The messages between peers (BEP 3, BEP 6, BEP 10, BEP 52): bytes to messages and back.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "bt/hash_tree.h"
#include "bt/metainfo.h"

namespace vantlow {

/// A block is asked for in this many bytes; only the last one of a torrent's piece is shorter.
inline constexpr std::uint32_t block_size = 16 * 1024;

/// The first 68 bytes of a peer.
struct PeerHandshake {
    static constexpr std::size_t size = 68;
    static constexpr std::string_view beginning =
        "\x13"
        "BitTorrent protocol";

    InfoHash torrent{};
    std::string peer_id;      ///< 20 bytes
    bool extensions = false;  ///< speaks the extension protocol (BEP 10)
    bool fast = false;        ///< speaks the fast extension (BEP 6)
    bool dht = false;         ///< has a node of the distributed hash table (BEP 5)
    bool second = false;      ///< speaks of the second version of torrents (BEP 52)

    [[nodiscard]] std::string bytes() const;
    /// None where these 68 bytes are not the protocol's.
    static std::optional<PeerHandshake> parse(std::string_view bytes);
};

/// One message. Only the fields of its kind mean something.
struct PeerMessage {
    /// The numbers of the wire; those that are not listed are `unknown`.
    enum class Kind : std::uint8_t {
        choke = 0,
        unchoke = 1,
        interested = 2,
        not_interested = 3,
        have = 4,
        bitfield = 5,
        request = 6,
        piece = 7,
        cancel = 8,
        port = 9,
        suggest = 13,
        have_all = 14,
        have_none = 15,
        reject = 16,
        allowed_fast = 17,
        extended = 20,
        hash_request = 21,
        hashes = 22,
        hash_reject = 23,
        keep_alive = 254,
        unknown = 255,
    };
    Kind kind = Kind::unknown;
    std::uint32_t piece = 0;    ///< have, request, piece, cancel, suggest, reject, allowed_fast
    std::uint32_t begin = 0;    ///< request, piece, cancel, reject: bytes into the piece
    std::uint32_t length = 0;   ///< request, cancel, reject; of `piece` the size of its data
    std::uint16_t port = 0;     ///< port
    std::uint8_t extended = 0;  ///< extended: the number under which it was sent
    HashRange range{};          ///< hash_request, hashes, hash_reject
    /// bitfield, piece, extended, hashes: points into the bytes that were read.
    std::string_view data{};

    [[nodiscard]] std::string bytes() const;
    /// Everything in front of the data, of which so many bytes follow.
    [[nodiscard]] std::string head(std::size_t data_size) const;
};

/// Divides what a peer sends into messages, whatever the pieces are in which it comes. One thread.
class PeerReader {
  public:
    /// The longest block that is taken; and the longest message of any other kind, which a bitfield of eight
    /// million pieces needs.
    static constexpr std::uint32_t longest_block = 128 * 1024;
    static constexpr std::uint32_t longest_message = 1024 * 1024 + 1;

    /// Appends bytes. What was read before must have been taken with next() until `more`.
    void feed(std::string_view bytes);
    enum class Read {
        message,  ///< `message` is filled, and its data stays until the next call of feed()
        more,     ///< more bytes are needed
        bad,      ///< no peer sends this; nothing can be read any more
    };
    Read next(PeerMessage& message);
    /// Bytes that are held back for want of more.
    [[nodiscard]] std::size_t held() const noexcept { return bytes_.size() - at_; }

  private:
    static bool parse(std::string_view body, PeerMessage& message);

    std::string bytes_;
    std::size_t at_ = 0;  ///< where the next message begins
    bool is_bad_ = false;
};

}  // namespace vantlow
