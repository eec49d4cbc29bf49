// One conversation with a peer: the handshakes, and what the peer says of itself.
#pragma once

#include <string>

#include "bt/announce.h"
#include "bt/announce_thread.h"
#include "bt/peer_messages.h"

namespace vantlow {

/// How a peer is spoken to first.
enum class ProbeMode { plain, encrypted };

/// What a peer said, and how.
struct ProbeReport : PeerWords {
    std::string encryption;  ///< "none", "plaintext" (behind an encrypted handshake) or "RC4"
    std::string failure;     ///< UTF-8: what went wrong
};

/// Connects to the peer, through the job's proxy, says both handshakes and listens until the peer's extension
/// handshake is there, for 10 s at most. With ProbeMode::encrypted the "Crypto" setting says what is offered.
ProbeReport probe_peer(const AnnounceServices& services, const TorrentIdentity& job, const std::string& host,
                       std::uint16_t port, ProbeMode mode, LogSink& log, const StopSource& stop);

}  // namespace vantlow
