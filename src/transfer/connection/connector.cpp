#include "transfer/connection/connector.h"

#include <algorithm>

#include "base/string_table.h"
#include "base/text.h"
#include "transfer/connection/stream.h"

namespace vantlow {
namespace {

constexpr std::chrono::milliseconds attempt_delay{250};
constexpr std::size_t most_attempts_at_once = 8;

// The race of several connects: who is under way, who comes next, what the last failure was.
class Race {
  public:
    Race(std::vector<SocketAddress> addresses, const ConnectWords& words, const StopSource& stop,
         LogSink& log, const NetworkWay& way)
        : addresses_(std::move(addresses)), words_(words), stop_(stop), log_(log), way_(way) {}

    Outcome<TcpSocket> run(Clock::time_point until);

  private:
    void start_next();
    void log_attempt(const SocketAddress& address);
    void fail(int error);
    std::optional<TcpSocket> collect(std::span<SocketWait> waits);

    std::vector<SocketAddress> addresses_;
    const ConnectWords& words_;
    const StopSource& stop_;
    LogSink& log_;
    const NetworkWay& way_;
    std::size_t next_ = 0;
    std::vector<TcpSocket> running_;
    Result last_{Code::transient, std::string(message_text(Message::timeout))};
};

void Race::log_attempt(const SocketAddress& address) {
    const std::string prefix = words_.is_proxy ? "Connecting proxy to " : "Connecting to ";
    log_.line(Direction::note, prefix + (address.is_ipv6() ? "[" + address.host() + "]" : address.host()) +
                                   ":" + std::to_string(address.port()));
}

void Race::fail(int error) {
    last_ = Result(Code::transient, socket_error_text(error), error);
    log_.line(Direction::error, message(Message::socket_error, {error}));
}

void Race::start_next() {
    while (next_ < addresses_.size() && running_.size() < most_attempts_at_once) {
        const SocketAddress& address = addresses_[next_++];
        log_attempt(address);
        Outcome<TcpSocket> begun = TcpSocket::begin_connect(address, way_);
        if (begun.ok()) {
            running_.push_back(*std::move(begun));
            return;
        }
        fail(begun.failure().system_error);
    }
}

// Picks the winner among the ready ones; the losers are closed.
std::optional<TcpSocket> Race::collect(std::span<SocketWait> waits) {
    std::vector<TcpSocket> still;
    std::optional<TcpSocket> winner;
    for (std::size_t i = 0; i < waits.size(); ++i) {
        if (!waits[i].ready) {
            still.push_back(std::move(running_[i]));
        } else if (const int error = running_[i].connect_error(); error != 0) {
            fail(error);
        } else if (!winner) {
            winner = std::move(running_[i]);
        }
    }
    running_ = std::move(still);
    return winner;
}

Outcome<TcpSocket> Race::run(Clock::time_point until) {
    start_next();
    auto next_start = Clock::now() + attempt_delay;
    while (!running_.empty()) {
        const bool more = next_ < addresses_.size() && running_.size() < most_attempts_at_once;
        const auto deadline = more ? std::min(until, next_start) : until;
        std::vector<SocketWait> waits;
        for (TcpSocket& socket : running_) waits.push_back({&socket, Interest::write, false});
        const Ready ready = wait_sockets(waits, time_left(deadline), stop_);
        if (ready == Ready::stopped) return stop_.reason();
        if (ready == Ready::failed) return last_;
        if (ready == Ready::timeout && Clock::now() >= until) {
            log_.line(Direction::error, message_text(Message::timeout));
            return Result(Code::transient, "Connecting to " + words_.host + " took too long.");
        }
        const std::size_t before = running_.size();
        if (auto winner = collect(waits)) return *std::move(winner);
        const bool one_failed = running_.size() < before;
        if (one_failed || Clock::now() >= next_start) {
            start_next();
            next_start = Clock::now() + attempt_delay;
        }
    }
    return last_;
}

}  // namespace

std::vector<SocketAddress> alternate_families(const std::vector<SocketAddress>& addresses) {
    std::vector<SocketAddress> first;
    std::vector<SocketAddress> second;
    for (const SocketAddress& address : addresses) {
        (address.is_ipv6() == addresses.front().is_ipv6() ? first : second).push_back(address);
    }
    std::vector<SocketAddress> order;
    for (std::size_t i = 0; i < std::max(first.size(), second.size()); ++i) {
        if (i < first.size()) order.push_back(first[i]);
        if (i < second.size()) order.push_back(second[i]);
    }
    return order;
}

Outcome<TcpSocket> connect_any(const std::vector<SocketAddress>& addresses, const ConnectWords& words,
                               std::chrono::milliseconds at_most, const StopSource& stop, LogSink& log,
                               const NetworkWay& way) {
    Race race(alternate_families(addresses), words, stop, log, way);
    Outcome<TcpSocket> result = race.run(from_now(at_most));
    if (result.ok()) log.line(Direction::note, message_text(Message::connected));
    return result;
}

}  // namespace vantlow
