// Connections that are kept for the next request to the same server.
#pragma once

#include <any>
#include <list>
#include <memory>
#include <string>

#include "base/mutex.h"
#include "transfer/connection/server_slots.h"
#include "transfer/connection/socket_stream.h"
#include "transfer/connection/tls_stage.h"

namespace vantlow {

/// A record of a connection kept for reuse: the connection with its place at the server.
class CReuseNode {
  public:
    virtual ~CReuseNode() = default;

    /// The stage that the protocol speaks to.
    [[nodiscard]] ByteStream& top() noexcept {
        if (tls) return *tls;
        return *stream;
    }
    /// Whose stop ends the waits from now on, and who hears of trouble; null: waits fail at once.
    void attach(const StopSource* stop, LogSink* log) noexcept {
        stream->attach(stop);
        if (tls) tls->attach(stop, log);
    }
    /// True when the peer neither closed nor sent anything. Needs a stop.
    [[nodiscard]] bool is_quiet() { return tls ? tls->is_quiet() : stream->socket().is_quiet(); }

    std::string key;     ///< what the connection may be reused for: scheme, host, port, proxy, trust
    std::string server;  ///< whose slot it holds
    std::unique_ptr<SocketStream> stream;
    std::unique_ptr<TlsStream> tls;  ///< over the stream; null: none
    ServerSlots::Slot slot;
    Clock::time_point since{};
    std::any notes;  ///< what its protocol remembers of it
};

/// The kept connections, bounded in number and age. Any thread may call.
class ReusePool {
  public:
    /// `time` outlives the object.
    explicit ReusePool(const TimeSource& time = system_time) : time_(time) {}

    /// The newest connection of that key that the server has neither closed nor spoken on; null when none is
    /// left. Its waits end on that stop.
    std::unique_ptr<CReuseNode> take(const std::string& key, const StopSource& stop);
    void keep(std::unique_ptr<CReuseNode> node);
    /// Closes the oldest idle connection that holds a slot of this server; false when there is none. For a
    /// connection of another key that finds no slot free.
    bool drop_one(const std::string& server);
    void clear();

  private:
    std::unique_ptr<CReuseNode> take_newest(const std::string& key);

    const TimeSource& time_;
    Mutex mutex_;
    std::list<std::unique_ptr<CReuseNode>> idle_ VANTLOW_GUARDED_BY(mutex_);  ///< oldest first
};

}  // namespace vantlow
