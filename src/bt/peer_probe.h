// One conversation with a peer: the handshakes, and what the peer says of itself.
#pragma once

#include <string>

#include "bt/announce.h"
#include "bt/announce_thread.h"
#include "bt/peer_messages.h"

namespace vantlow {

/// The way in which a probe begins.
enum class ProbeMode {
    plain,      ///< the handshake in the clear
    encrypted,  ///< message stream encryption, and the handshake within it
};

/// The facts that a peer stated, and the encryption that it stated them with.
struct ProbeReport : PeerWords {
    std::string encryption;  ///< "none", "plaintext" (behind an encrypted handshake) or "RC4"
    std::string failure;     ///< a sentence, UTF-8; empty: the probe succeeded
};

/// Connects to the peer, through the job's proxy, sends both handshakes and listens until the peer's
/// extension handshake has arrived, for 10 s at most. `host` is a name or an address. Blocks the calling
/// thread; a stop ends it at once. With ProbeMode::encrypted the "Crypto" setting says which encryption is
/// offered. A probe that fails reports the facts that it learned until then, with the reason in `failure`.
/// The conversation goes to `log`.
ProbeReport probe_peer(const AnnounceServices& services, const TorrentIdentity& job, const std::string& host,
                       std::uint16_t port, ProbeMode mode, LogSink& log, const StopSource& stop);

}  // namespace vantlow
