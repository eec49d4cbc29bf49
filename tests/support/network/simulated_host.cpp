#include <algorithm>

#include "support/fault_hook.h"
#include "support/network/simulated_link.h"

namespace vantlow::test {
namespace {

using namespace std::chrono_literals;
using net::Step;
using net::Wants;

constexpr std::size_t largest_datagram = 65507;
constexpr std::size_t most_waiting_bytes = 262144;
// A line that is behind by so much drops datagrams.
constexpr auto longest_queue = 1s;

Result failure(SocketFault fault) {
    const int number = error_number(fault);
    return {Code::transient, socket_error_text(number), number};
}

class SimulatedStream final : public net::Stream {
  public:
    SimulatedStream(std::shared_ptr<SimulatedLink> link, int end) : link_(std::move(link)), end_(end) {}
    ~SimulatedStream() override { link_->close(end_); }

    Step read(std::span<std::byte> into, Clock::time_point) override { return link_->read(end_, into); }
    Step write(std::span<const std::byte> from, Clock::time_point) override {
        return link_->write(end_, from);
    }
    void when_readable(net::Callback call) override { link_->when_readable(end_, std::move(call)); }
    void when_writable(net::Callback call) override { link_->when_writable(end_, std::move(call)); }
    Result shut_down_sending() override { return link_->shut_down_sending(end_); }
    void close() noexcept override { link_->close(end_); }
    void reset() noexcept override { link_->reset(end_); }
    [[nodiscard]] std::optional<SocketAddress> local_address() const override {
        return end().connected && !end().closed ? std::optional(end().local) : std::nullopt;
    }
    [[nodiscard]] std::optional<SocketAddress> peer_address() const override {
        return end().connected && end().local.size() != 0 ? std::optional(end().peer) : std::nullopt;
    }

  private:
    [[nodiscard]] const SimulatedLink::End& end() const {
        return link_->ends[static_cast<std::size_t>(end_)];
    }
    std::shared_ptr<SimulatedLink> link_;
    int end_;
};

class SimulatedListener final : public net::Listener {
  public:
    explicit SimulatedListener(std::shared_ptr<SimulatedBacklog> backlog) : backlog_(std::move(backlog)) {}
    ~SimulatedListener() override { backlog_->close(); }

    void accept(Accepted call) override {
        backlog_->call = std::move(call);
        backlog_->notify();
    }
    void close() noexcept override { backlog_->close(); }
    [[nodiscard]] std::optional<SocketAddress> address() const override {
        return backlog_->closed ? std::nullopt : std::optional(backlog_->address);
    }

  private:
    std::shared_ptr<SimulatedBacklog> backlog_;
};

class SimulatedDatagrams final : public net::Datagrams {
  public:
    explicit SimulatedDatagrams(std::shared_ptr<SimulatedPort> port) : port_(std::move(port)) {}
    ~SimulatedDatagrams() override { port_->close(); }

    Step receive(std::span<std::byte> into, SocketAddress& from) override {
        return port_->receive(into, from);
    }
    Step send(std::span<const std::byte> datagram, const SocketAddress& to) override {
        return port_->send(datagram, to);
    }
    void when_readable(net::Callback call) override { port_->when_readable(std::move(call)); }
    void when_writable(net::Callback call) override {
        port_->writable = std::move(call);
        port_->notify();
    }
    void close() noexcept override { port_->close(); }
    [[nodiscard]] std::optional<SocketAddress> address() const override {
        return port_->closed ? std::nullopt : std::optional(port_->address);
    }

  private:
    std::shared_ptr<SimulatedPort> port_;
};

}  // namespace

void SimulatedBacklog::notify() {
    if (closed || !call || waiting.empty()) return;
    SimulatedInternet& internet = host.internet_;
    internet.at(std::max(internet.now(), rests_until), [self = shared_from_this()] {
        if (self->closed || !self->call || self->waiting.empty()) return;
        if (self->host.now() < self->rests_until) return;  // another visit is set for then
        const auto now = std::exchange(self->call, nullptr);
        if (!self->host.take_descriptor()) {
            self->rests_until = self->host.now() + net::accept_rest;
            now(failure(SocketFault::no_descriptors));
            return;
        }
        auto stream = std::make_unique<SimulatedStream>(std::move(self->waiting.front()), 1);
        self->waiting.pop_front();
        now(std::unique_ptr<net::Stream>(std::move(stream)));
    });
}

void SimulatedBacklog::close() {
    if (std::exchange(closed, true)) return;
    const auto owner = std::exchange(call, nullptr);
    for (const auto& link : waiting) {
        ++host.open_;  // never taken, so never counted
        link->reset(1);
    }
    waiting.clear();
    host.listeners_.erase(address.port());
    --host.open_;
}

Step SimulatedPort::receive(std::span<std::byte> into, SocketAddress& from) {
    if (closed) return Step::failed(error_number(SocketFault::other));
    if (inbox.empty()) return Step::again(Wants::readable);
    const Datagram datagram = std::move(inbox.front());
    inbox.pop_front();
    inbox_bytes -= datagram.bytes.size();
    const std::size_t count = std::min(into.size(), datagram.bytes.size());
    std::copy_n(std::as_bytes(std::span(datagram.bytes)).begin(), count, into.begin());
    from = datagram.from;
    return Step::moved(count);
}

Step SimulatedPort::send(std::span<const std::byte> datagram, const SocketAddress& to) {
    if (closed || datagram.size() > largest_datagram) return Step::failed(error_number(SocketFault::other));
    SimulatedInternet& internet = host.internet_;
    const SocketAddress source = internet.seen_as(host, address, to);
    const SimulatedInternet::Target target = internet.find(host, source, to);
    const auto sent = Step::moved(datagram.size());
    if (target.way != SimulatedInternet::Way::open) return sent;
    SimulatedHost& other = *target.host;
    if (internet.happens(host.traits.loss + other.traits.loss)) return sent;
    if (host.up_free_ - internet.now() > longest_queue || other.down_free_ - internet.now() > longest_queue)
        return sent;
    auto arrives = internet.arrival(host, other, datagram.size() + 28);
    if (internet.happens(host.traits.late + other.traits.late)) {
        arrives += internet.happens(0.5) ? 100ms : 30ms;
    }
    internet.at(arrives,
                [&other, source, port = target.inner.port(),
                 bytes = std::string(reinterpret_cast<const char*>(datagram.data()), datagram.size())] {
                    const auto found = other.ports_.find(port);
                    if (other.is_cut_ || found == other.ports_.end()) return;
                    SimulatedPort& there = *found->second;
                    if (there.inbox_bytes + bytes.size() > most_waiting_bytes) return;
                    there.inbox_bytes += bytes.size();
                    there.inbox.push_back({source, bytes});
                    there.notify();
                });
    return sent;
}

void SimulatedPort::when_readable(net::Callback call) {
    readable = std::move(call);
    notify();
}

void SimulatedPort::notify() {
    if ((!readable || inbox.empty()) && !writable) return;
    host.internet_.at(host.now(), [self = shared_from_this()] {
        if (!self->closed && self->readable && !self->inbox.empty()) std::exchange(self->readable, nullptr)();
        if (!self->closed && self->writable) std::exchange(self->writable, nullptr)();
    });
}

void SimulatedPort::close() {
    if (std::exchange(closed, true)) return;
    const auto owners = std::pair(std::exchange(readable, nullptr), std::exchange(writable, nullptr));
    host.ports_.erase(address.port());
    --host.open_;
}

SimulatedHost::SimulatedHost(SimulatedInternet& internet, const SocketAddress& address,
                             const HostTraits& with, SimulatedNat* nat)
    : traits(with), internet_(internet), address_(address), nat_(nat) {}

SimulatedHost::~SimulatedHost() = default;

Clock::time_point SimulatedHost::now() const {
    return internet_.now();
}

net::TimerQueue& SimulatedHost::timers() {
    return internet_.timers();
}

bool SimulatedHost::post(net::Callback work) {
    return internet_.post(std::move(work));
}

bool SimulatedHost::take_descriptor() noexcept {
    if (open_ >= traits.descriptors) return false;
    ++open_;
    return true;
}

Outcome<SocketAddress> SimulatedHost::take_port(const SocketAddress& at, bool of_streams) {
    if (at.is_ipv6() != address_.is_ipv6()) return failure(SocketFault::unreachable);
    SocketAddress taken = address_;
    taken.set_port(at.port() != 0 ? at.port() : next_port_++);
    const bool used = of_streams ? listeners_.contains(taken.port()) : ports_.contains(taken.port());
    if (used) return failure(SocketFault::other);
    if (!take_descriptor()) return failure(SocketFault::no_descriptors);
    return taken;
}

std::unique_ptr<net::Stream> SimulatedHost::connect(const SocketAddress& to, Connected done) {
    auto link = std::make_shared<SimulatedLink>(internet_);
    link->begin(*this, to, std::move(done));
    return std::make_unique<SimulatedStream>(std::move(link), 0);
}

Outcome<std::unique_ptr<net::Listener>> SimulatedHost::listen(const SocketAddress& at, int backlog) {
    auto taken = take_port(at, true);
    if (!taken.ok()) return taken.failure();
    auto made = std::make_shared<SimulatedBacklog>(*this, *taken, backlog);
    listeners_.emplace(taken->port(), made);
    return std::unique_ptr<net::Listener>(std::make_unique<SimulatedListener>(std::move(made)));
}

Outcome<std::unique_ptr<net::Datagrams>> SimulatedHost::bind(const SocketAddress& at) {
    auto taken = take_port(at, false);
    if (!taken.ok()) return taken.failure();
    auto made = std::make_shared<SimulatedPort>(*this, *taken);
    ports_.emplace(taken->port(), made);
    return std::unique_ptr<net::Datagrams>(std::make_unique<SimulatedDatagrams>(std::move(made)));
}

}  // namespace vantlow::test
