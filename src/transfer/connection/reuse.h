// Connections that are kept for the next request to the same server.
#pragma once

#include <list>
#include <memory>
#include <mutex>
#include <string>

#include "transfer/connection/server_slots.h"
#include "transfer/connection/socket_stream.h"

namespace vantlow {

/// A record of a connection kept for reuse: the connection with its place at the server.
class CReuseNode {
  public:
    virtual ~CReuseNode() = default;

    std::string key;     ///< what the connection may be reused for: scheme, host, port, proxy
    std::string server;  ///< whose slot it holds
    std::unique_ptr<SocketStream> stream;
    ServerSlots::Slot slot;
    Clock::time_point since{};
};

/// The kept connections, bounded in number and age. Any thread may call.
class ReusePool {
  public:
    /// The newest connection of that key that the server has neither closed nor spoken on; null when none is
    /// left.
    std::unique_ptr<CReuseNode> take(const std::string& key);
    void keep(std::unique_ptr<CReuseNode> node);
    /// Closes the oldest idle connection that holds a slot of this server; false when there is none. For a
    /// connection of another key that finds no slot free.
    bool drop_one(const std::string& server);
    void clear();

  private:
    std::mutex mutex_;
    std::list<std::unique_ptr<CReuseNode>> idle_;  ///< oldest first; guarded by mutex_
};

}  // namespace vantlow
