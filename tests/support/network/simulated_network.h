// A network that exists in memory, with a clock that the test moves: hosts, lines, address translators,
// mishaps.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "net/network.h"

namespace vantlow::test {

class SimulatedInternet;
class SimulatedHost;
struct SimulatedLink;
struct SimulatedBacklog;
struct SimulatedPort;

/// A host and its line. Between two hosts the latencies of both add up.
struct HostTraits {
    std::chrono::milliseconds latency{5};  ///< one way
    std::chrono::milliseconds jitter{0};   ///< up to so much more, of datagrams in any order
    double up = 0;                         ///< bytes a second; 0: no limit
    double down = 0;
    double loss = 0;              ///< share of packets; a stream's are sent again, and so come later
    double late = 0;              ///< share of datagrams that come up to 100 ms later than others
    std::size_t window = 262144;  ///< bytes of a stream that may be on their way or unread
    std::size_t descriptors = 4096;
};

/// Who may send to a host behind a translator through an opened port.
enum class NatFilter { anybody, same_address, same_address_and_port };

struct NatTraits {
    NatFilter filter = NatFilter::same_address_and_port;
    std::chrono::seconds forgets{60};  ///< a port that nobody sent from for so long
};

/// Gives the hosts behind it ports of its own address. A host behind it is reached only on what it opened.
class SimulatedNat {
  public:
    SimulatedNat(const SocketAddress& outer, const NatTraits& traits) : outer_(outer), traits_(traits) {}

    /// The address that `inner` is seen under by `remote`, which may answer from now on.
    SocketAddress outward(const SocketAddress& inner, const SocketAddress& remote, Clock::time_point now);
    /// The address inside that a packet to this port goes to, if it may.
    std::optional<SocketAddress> inward(std::uint16_t port, const SocketAddress& remote,
                                        Clock::time_point now);

  private:
    struct Opened {
        SocketAddress inner;
        Clock::time_point last{};
        std::set<std::string> remotes;
    };
    SocketAddress outer_;
    NatTraits traits_;
    std::map<std::uint16_t, Opened> opened_;
    std::uint16_t next_port_ = 40000;
};

/// What a program on one host sees. All hosts of an internet belong to the thread that moves its clock.
class SimulatedHost final : public net::Network {
  public:
    SimulatedHost(SimulatedInternet& internet, const SocketAddress& address, const HostTraits& traits,
                  SimulatedNat* nat);
    ~SimulatedHost() override;

    [[nodiscard]] Clock::time_point now() const override;
    net::TimerQueue& timers() override;
    std::unique_ptr<net::Stream> connect(const SocketAddress& to, Connected done) override;
    Outcome<std::unique_ptr<net::Listener>> listen(const SocketAddress& at, int backlog) override;
    Outcome<std::unique_ptr<net::Datagrams>> bind(const SocketAddress& at) override;
    bool post(net::Callback work) override;

    /// Port 0.
    [[nodiscard]] const SocketAddress& address() const noexcept { return address_; }
    [[nodiscard]] std::size_t open_descriptors() const noexcept { return open_; }
    /// From now on nothing comes or goes, and nobody is told: connections are half open.
    void cut() noexcept { is_cut_ = true; }
    void mend() noexcept { is_cut_ = false; }

    HostTraits traits;  ///< may be changed while it runs

  private:
    friend class SimulatedInternet;
    friend struct SimulatedLink;
    friend struct SimulatedBacklog;
    friend struct SimulatedPort;

    Outcome<SocketAddress> take_port(const SocketAddress& at, bool of_streams);
    bool take_descriptor() noexcept;

    SimulatedInternet& internet_;
    SocketAddress address_;
    SimulatedNat* nat_;
    bool is_cut_ = false;
    std::size_t open_ = 0;
    std::uint16_t next_port_ = 50000;
    Clock::time_point up_free_{};  ///< the line has sent everything by then
    Clock::time_point down_free_{};
    std::map<std::uint16_t, std::shared_ptr<SimulatedBacklog>> listeners_;
    std::map<std::uint16_t, std::shared_ptr<SimulatedPort>> ports_;
};

/// All hosts, and their clock. The same seed and the same calls give the same run.
class SimulatedInternet {
  public:
    explicit SimulatedInternet(std::uint64_t seed) : random_(seed) {}
    ~SimulatedInternet();

    /// The addresses are literals.
    SimulatedHost& add_host(std::string_view address, const HostTraits& traits = {},
                            SimulatedNat* nat = nullptr);
    SimulatedNat& add_nat(std::string_view address, const NatTraits& traits = {});

    [[nodiscard]] Clock::time_point now() const noexcept { return now_; }
    void run_for(std::chrono::milliseconds time);
    /// False: it was not so within the time.
    bool run_until(const std::function<bool()>& done, std::chrono::milliseconds at_most);

    // For the parts of the simulation.
    net::TimerQueue& timers() noexcept { return timers_; }
    void at(Clock::time_point time, net::Callback call) { timers_.add(time, std::move(call)); }
    /// True in this share of cases.
    bool happens(double share);
    /// When a packet that is sent now arrives.
    Clock::time_point arrival(SimulatedHost& from, SimulatedHost& to, std::size_t bytes);
    enum class Way { open, nobody, silent };
    struct Target {
        Way way = Way::nobody;
        SimulatedHost* host = nullptr;
        SocketAddress inner;
    };
    Target find(const SimulatedHost& from, const SocketAddress& source, const SocketAddress& to);
    /// The address that the other side sees.
    SocketAddress seen_as(const SimulatedHost& from, const SocketAddress& source, const SocketAddress& to);
    bool post(net::Callback work);

  private:
    bool run_next(Clock::time_point end);

    std::mt19937_64 random_;
    Clock::time_point now_ = Clock::time_point(std::chrono::hours(1));
    std::map<std::string, std::unique_ptr<SimulatedHost>> hosts_;
    std::map<std::string, std::unique_ptr<SimulatedNat>> nats_;
    net::TimerQueue timers_;
    std::mutex mutex_;
    std::vector<net::Callback> posted_;  ///< guarded by mutex_
};

}  // namespace vantlow::test
