// Names to addresses, off the threads that must be able to stop.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/mutex.h"
#include "platform/socket.h"

namespace vantlow {

/// Asks the system's name functions on threads of its own: those functions cannot be interrupted, waiting for
/// them can. Answers are kept for a minute, so that the connections of a job ask once. Any thread may call.
class Resolver {
  public:
    using Lookup = std::function<NameAnswer(const std::string& host, std::uint16_t port)>;

    explicit Resolver(Lookup lookup = resolve_name, const TimeSource& time = system_time)
        : lookup_(std::move(lookup)), time_(time) {}
    /// Waits for lookups that are under way: call settle() first where that must not take long.
    ~Resolver();
    Resolver(const Resolver&) = delete;
    Resolver& operator=(const Resolver&) = delete;

    /// The addresses in the system's order, IP literals without asking anybody. `not_resolved` when the name
    /// does not exist, `transient` when nobody could tell, `stopped`.
    Outcome<std::vector<SocketAddress>> resolve(const std::string& host, std::uint16_t port,
                                                const StopSource& stop);

    /// Takes no more lookups and waits for those under way; false when one is still stuck in the system.
    bool settle(std::chrono::milliseconds at_most);

  private:
    struct Question {
        bool answered = false;
        NameAnswer answer;
        Clock::time_point time;
    };
    using Key = std::pair<std::string, std::uint16_t>;

    std::shared_ptr<Question> ask(const Key& key) VANTLOW_REQUIRES(mutex_);
    void work();

    Lookup lookup_;
    const TimeSource& time_;
    Mutex mutex_;
    StopCondition changed_;
    std::map<Key, std::shared_ptr<Question>> questions_ VANTLOW_GUARDED_BY(mutex_);  ///< their content too
    std::deque<Key> waiting_ VANTLOW_GUARDED_BY(mutex_);
    std::size_t busy_ VANTLOW_GUARDED_BY(mutex_) = 0;
    bool closing_ VANTLOW_GUARDED_BY(mutex_) = false;
    std::vector<std::thread> threads_ VANTLOW_GUARDED_BY(mutex_);
};

}  // namespace vantlow
