// The messages of peers (BEP 3), read part by part: the handshake, then messages.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/result.h"
#include "bt/extension.h"
#include "bt/metainfo.h"

namespace vantlow {

/// The facts that a peer stated about itself.
struct PeerWords {
    bool ok = false;       ///< its handshake arrived and names the right torrent
    std::string peer_id;   ///< 20 bytes, as sent
    std::string reserved;  ///< 8 bytes, in hexadecimal digits
    std::optional<ExtensionHandshake> extension;
    std::vector<std::string> messages;  ///< names of the messages that followed, in their order
};

/// The handshake of the peer wire protocol, 68 bytes, with the extension protocol's bit (BEP 10).
std::string build_peer_handshake(const InfoHash& torrent, std::string_view peer_id);

/// Takes a peer's bytes up to its extension handshake, or to the 100th message where none comes.
class PeerListener {
  public:
    explicit PeerListener(const InfoHash& torrent) noexcept : torrent_(torrent) {}

    /// Bytes of the next part, at most 1 MiB; 0: reading is over.
    [[nodiscard]] std::size_t wanted() const noexcept { return wanted_; }
    /// Takes a part of wanted() bytes; `unsupported` where no peer would send it, and no part follows.
    Result take(std::string_view part);
    [[nodiscard]] const PeerWords& words() const noexcept { return words_; }

  private:
    enum class Part { handshake, length, message };

    Result take_handshake(std::string_view part);
    Result take_length(std::string_view part);
    void take_message(std::string_view part);
    void want_length() noexcept;

    InfoHash torrent_;
    Part part_ = Part::handshake;
    std::size_t wanted_ = handshake_size;
    int lengths_ = 0;  ///< read or wanted
    PeerWords words_;
    static constexpr std::size_t handshake_size = 68;
};

}  // namespace vantlow
