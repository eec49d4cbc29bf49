// One conversation with a peer: the handshakes, and what the peer says of itself.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "bt/announce.h"
#include "bt/announce_thread.h"
#include "bt/extension.h"

namespace vantlow {

/// How a peer is spoken to first.
enum class ProbeMode { plain, encrypted };

/// What a peer said.
struct ProbeReport {
    bool ok = false;         ///< both handshakes of the peer wire protocol were exchanged
    std::string encryption;  ///< "none", "plaintext" (behind an encrypted handshake) or "RC4"
    std::string peer_id;     ///< 20 bytes, as sent
    std::string reserved;    ///< 8 bytes, in hexadecimal digits
    std::optional<ExtensionHandshake> extension;
    std::vector<std::string> messages;  ///< names of the peer wire messages that followed, in their order
    std::string failure;                ///< UTF-8: what went wrong
};

/// The handshake of the peer wire protocol (BEP 3), 68 bytes, with the extension protocol's bit (BEP 10).
std::string build_peer_handshake(const InfoHash& torrent, std::string_view peer_id);

/// Connects to the peer, through the job's proxy, says both handshakes and listens until the peer's extension
/// handshake is there, for 10 s at most. With ProbeMode::encrypted the "Crypto" setting says what is offered.
ProbeReport probe_peer(const AnnounceServices& services, const TorrentIdentity& job, const std::string& host,
                       std::uint16_t port, ProbeMode mode, LogSink& log, const StopSource& stop);

}  // namespace vantlow
