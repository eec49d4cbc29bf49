// How many connections one server gets from the whole program, and how close together they come.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <string>
#include <utility>

#include "base/mutex.h"
#include "platform/stop.h"
#include "transfer/connection/stream.h"

namespace vantlow {

/// The bounds that hold when a connection is asked for.
struct ServerLimits {
    std::int64_t most = 0;                  ///< connections to one server at once; 0: no bound
    std::chrono::milliseconds interval{0};  ///< between the beginnings of two connections
    /// A further connection of a job that is served already: those that have none yet go first.
    bool further = false;
    std::atomic<int>* awaited = nullptr;  ///< counts those who wait for a place just now; may be null
};

/// Counts the connections of every server ("host:port"). Any thread may call.
class ServerSlots {
  public:
    /// `time` outlives the object.
    explicit ServerSlots(const TimeSource& time = system_time) : time_(time) {}

    /// One connection's place; given back when it ends. Outlived by the ServerSlots.
    class Slot {
      public:
        Slot() = default;
        Slot(ServerSlots* owner, std::string server) : owner_(owner), server_(std::move(server)) {}
        Slot(Slot&& other) noexcept
            : owner_(std::exchange(other.owner_, nullptr)), server_(std::move(other.server_)) {}
        Slot& operator=(Slot&& other) noexcept;
        ~Slot() { release(); }
        void release() noexcept;

      private:
        ServerSlots* owner_ = nullptr;
        std::string server_;
    };

    /// Waits for a place; `stopped` when the stop comes first. Where none is free `make_room` is called once,
    /// before the wait and after is_awaited() has become true: it may end a connection that is idle.
    Outcome<Slot> acquire(const std::string& server, const ServerLimits& limits, const StopSource& stop,
                          const std::function<void()>& make_room = {});
    /// Whether somebody waits for a place at this server.
    [[nodiscard]] bool is_awaited(const std::string& server);

  private:
    struct Server {
        std::int64_t used = 0;
        std::int64_t waiting = 0;
        std::int64_t first = 0;  ///< of these, those who are nobody's further connection
        Clock::time_point next_start{};
    };
    void give_back(const std::string& server) noexcept;
    void forget_if_idle(const std::string& server) VANTLOW_REQUIRES(mutex_);

    const TimeSource& time_;
    Mutex mutex_;
    StopCondition freed_;
    std::map<std::string, Server> servers_ VANTLOW_GUARDED_BY(mutex_);
};

}  // namespace vantlow
