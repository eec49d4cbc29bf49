// Ports of this machine that the router in front of it passes calls on to.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "base/clock.h"
#include "base/mutex.h"
#include "platform/stop.h"
#include "runtime/tables.h"

namespace vantlow {

/// Has the router let calls in for the ports that somebody holds, again in time, and not any more when nobody
/// holds them: calls over IPv4, which it passes on (UPnP, NAT-PMP), or over IPv6, for which its firewall has
/// to be opened (UPnP IGD:2). From the first port on a thread of its own talks to the router, which takes
/// seconds; nobody else waits for it but the destructor, a few seconds at most. Any thread may call.
class PortMapper {
  public:
    enum class Transport : int { tcp = VANTLOW_PORT_TCP, udp = VANTLOW_PORT_UDP };
    using Port = std::pair<Transport, std::uint16_t>;
    enum class Calls { ipv4, ipv6 };

    /// How often something is done. Other times are for tests.
    struct Times {
        std::chrono::seconds lease{3600};  ///< asked for; renewed when half of it is over
        std::chrono::seconds again{900};   ///< until what failed is tried again
        std::chrono::seconds goodbye{4};   ///< for all ports together, from end() on
    };

    /// The library outlives the object.
    PortMapper(const PortmapTable& library, Calls calls) : PortMapper(library, calls, Times()) {}
    PortMapper(const PortmapTable& library, Calls calls, Times times)
        : library_(library), calls_(calls), times_(times) {}
    /// As end(), and waits until the router has the ports back or the time for it is over.
    ~PortMapper();
    PortMapper(const PortMapper&) = delete;
    PortMapper& operator=(const PortMapper&) = delete;

    /// Each call counts: as many let_go() end it.
    void hold(const Port& port);
    void let_go(const Port& port);
    /// Begins to give back the ports that are still passed on, whoever holds them; none is passed on any
    /// more. Does not wait: several objects end in the time of one.
    void end();

    /// The state of a port, as far as it is known.
    struct State {
        bool is_open = false;  ///< the router lets calls in
        std::string text;      ///< a sentence, UTF-8; empty while nothing is known
        bool operator==(const State&) const = default;
    };
    [[nodiscard]] State state(const Port& port) const;

  private:
    struct Entry {
        int holders = 0;
        State state;
        Clock::time_point due{};  ///< when to ask the router again
    };
    // On the thread.
    void run();
    void find_router();
    void open(const Port& port);
    void close(const Port& port);
    void lose_router();
    [[nodiscard]] bool has_library() const noexcept {
        return calls_ == Calls::ipv4 ? library_.PortMap_Find != nullptr
                                     : library_.PortMap_FindFirewall != nullptr;
    }
    /// The next port to do something about; none: nothing is due. `wait`: until something is.
    bool next_order(Port& port, bool& opens, Clock::duration& wait);
    void note(const Port& port, State state, Clock::duration due);

    const PortmapTable& library_;
    const Calls calls_;
    const Times times_;
    StopSource stop_;

    mutable Mutex mutex_;
    Condition changed_;
    std::map<Port, Entry> ports_ VANTLOW_GUARDED_BY(mutex_);
    bool is_changed_ VANTLOW_GUARDED_BY(mutex_) = false;
    bool runs_ VANTLOW_GUARDED_BY(mutex_) = false;
    std::optional<Clock::time_point> end_ VANTLOW_GUARDED_BY(mutex_);  ///< of the goodbye

    // The thread's.
    VantlowRouter* router_ = nullptr;
    std::string router_name_;
    bool has_address_ = true;   ///< over which calls could come
    bool is_in_doubt_ = false;  ///< it refused a port: the next one to be opened looks for a router again

    std::thread thread_;  ///< last
};

/// Holds a port as long as it lives. Movable.
class HeldPort {
  public:
    HeldPort() = default;
    /// The mapper outlives the object.
    HeldPort(PortMapper& mapper, PortMapper::Port port) : mapper_(&mapper), port_(port) { mapper.hold(port); }
    HeldPort(HeldPort&& other) noexcept
        : mapper_(std::exchange(other.mapper_, nullptr)), port_(other.port_) {}
    HeldPort& operator=(HeldPort&& other) noexcept {
        std::swap(mapper_, other.mapper_);
        std::swap(port_, other.port_);
        return *this;
    }
    ~HeldPort() {
        if (mapper_ != nullptr) mapper_->let_go(port_);
    }

    [[nodiscard]] PortMapper::State state() const {
        return mapper_ != nullptr ? mapper_->state(port_) : PortMapper::State();
    }

  private:
    PortMapper* mapper_ = nullptr;
    PortMapper::Port port_{};
};

}  // namespace vantlow
