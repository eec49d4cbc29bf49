// How many connections one server gets from the whole program, and how close together they come.
#pragma once

#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <utility>

#include "platform/stop.h"
#include "transfer/connection/stream.h"

namespace vantlow {

/// The bounds that hold when a connection is asked for.
struct ServerLimits {
    std::int64_t most = 0;                  ///< connections to one server at once; 0: no bound
    std::chrono::milliseconds interval{0};  ///< between the beginnings of two connections
};

/// Counts the connections of every server ("host:port"). Any thread may call.
class ServerSlots {
  public:
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

    /// While it lives somebody waits at this server for a place that an idle connection may hold.
    class Queued {
      public:
        Queued(ServerSlots& owner, std::string server);
        ~Queued();
        Queued(const Queued&) = delete;
        Queued& operator=(const Queued&) = delete;

      private:
        ServerSlots& owner_;
        const std::string server_;
    };
    [[nodiscard]] bool is_awaited(const std::string& server);

    /// Waits for a place; `stopped` when the stop comes first.
    Outcome<Slot> acquire(const std::string& server, const ServerLimits& limits, const StopSource& stop);
    [[nodiscard]] std::size_t used(const std::string& server);

  private:
    struct Server {
        std::int64_t used = 0;
        std::int64_t waiting = 0;
        std::int64_t queued = 0;
        Clock::time_point next_start{};
    };
    void give_back(const std::string& server) noexcept;
    void forget_if_idle(const std::string& server);

    std::mutex mutex_;
    std::condition_variable_any freed_;
    std::map<std::string, Server> servers_;  ///< guarded by mutex_
};

}  // namespace vantlow
