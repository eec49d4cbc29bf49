// One connection out of several addresses.
#pragma once

#include <string>
#include <vector>

#include "base/log.h"
#include "platform/network_way.h"

namespace vantlow {

/// The order in which addresses are tried: as the system gave them, the two families taking turns from the
/// first one's on (RFC 8305, section 4).
std::vector<SocketAddress> alternate_families(const std::vector<SocketAddress>& addresses);

/// Who is connected to, for the log.
struct ConnectWords {
    std::string host;       ///< as the address named it
    bool is_proxy = false;  ///< "Connecting proxy to" in place of "Connecting to"
};

/// Tries the addresses in turn: the next one starts when one fails, or after 250 ms without an answer while
/// the earlier ones go on (RFC 8305, section 5); the first that stands wins. `transient` with the last error
/// when none does or the time is over; `stopped`.
Outcome<TcpSocket> connect_any(const std::vector<SocketAddress>& addresses, const ConnectWords& words,
                               std::chrono::milliseconds at_most, const StopSource& stop, LogSink& log,
                               const NetworkWay& way = NetworkWay());

}  // namespace vantlow
