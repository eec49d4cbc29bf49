#include "support/network/simulated_link.h"

#include <algorithm>
#include <cmath>

#include "support/fault_hook.h"

namespace vantlow::test {
namespace {

using namespace std::chrono_literals;
using net::Step;
using net::Wants;

// A host sends again for so long, then it gives up.
constexpr auto gives_up_after = 60s;
constexpr auto sends_again_after = 200ms;
constexpr std::size_t largest_write = 65536;

}  // namespace

void SimulatedLink::begin(SimulatedHost& host, const SocketAddress& to, net::Network::Connected done) {
    End& end = ends[0];
    end.host = &host;
    end.peer = to;
    end.done = std::move(done);
    internet.at(internet.now(), [self = shared_from_this()] {
        End& own = self->ends[0];
        if (own.closed) return;
        if (!own.host->take_descriptor()) {
            self->finish_connect(error_number(SocketFault::no_descriptors));
            return;
        }
        own.connected = false;
        own.local = own.host->address();
        own.local.set_port(own.host->next_port_++);
        self->knock(self->internet.now(), 1000ms);
    });
}

// The first packet of a connection, again and again until somebody answers.
void SimulatedLink::knock(Clock::time_point since, std::chrono::milliseconds pause) {
    End& own = ends[0];
    if (own.closed) return;
    if (internet.now() - since > gives_up_after) {
        finish_connect(error_number(SocketFault::timed_out));
        return;
    }
    const SocketAddress source = internet.seen_as(*own.host, own.local, own.peer);
    const SimulatedInternet::Target target = internet.find(*own.host, source, own.peer);
    const bool lost =
        target.host != nullptr && internet.happens(own.host->traits.loss + target.host->traits.loss);
    if (target.way == SimulatedInternet::Way::silent || lost) {
        internet.at(internet.now() + pause,
                    [self = shared_from_this(), since, pause] { self->knock(since, pause * 2); });
        return;
    }
    if (target.way == SimulatedInternet::Way::nobody) {
        const auto answer = internet.now() + 2 * own.host->traits.latency;
        internet.at(answer, [self = shared_from_this()] {
            self->finish_connect(error_number(SocketFault::unreachable));
        });
        return;
    }
    ends[1].host = target.host;
    ends[1].peer = source;
    internet.at(internet.arrival(*own.host, *target.host, 40), [self = shared_from_this(),
                                                                inner = target.inner, since, pause] {
        SimulatedHost& host = *self->ends[1].host;
        const auto found = host.listeners_.find(inner.port());
        const auto back = self->internet.arrival(host, *self->ends[0].host, 40);
        if (found == host.listeners_.end()) {
            self->internet.at(back, [self] { self->finish_connect(error_number(SocketFault::refused)); });
        } else if (found->second->waiting.size() >= found->second->most) {
            self->internet.at(self->internet.now() + pause,
                              [self, since, pause] { self->knock(since, pause * 2); });
        } else {
            self->open_at(host, inner, *found->second);
            self->internet.at(back, [self] { self->finish_connect(0); });
        }
    });
}

void SimulatedLink::open_at(SimulatedHost&, const SocketAddress& inner, SimulatedBacklog& backlog) {
    End& end = ends[1];
    end.local = inner;
    end.connected = true;
    backlog.waiting.push_back(shared_from_this());
    backlog.notify();
}

void SimulatedLink::finish_connect(int error) {
    End& own = ends[0];
    if (own.closed) return;
    if (error != 0) {
        if (own.local.size() != 0) --own.host->open_;
        own.local = {};
        own.error = error;
    }
    own.connected = true;
    const auto call = std::exchange(own.done, nullptr);
    const auto self = shared_from_this();
    if (call) call(error == 0 ? Result() : Result(Code::transient, socket_error_text(error), error));
    notify(0);
}

bool SimulatedLink::is_cut() const noexcept {
    return ends[0].host->is_cut_ || ends[1].host->is_cut_;
}

bool SimulatedLink::is_readable(const End& end) const noexcept {
    return end.connected && (!end.inbox.empty() || end.ended || end.error != 0);
}

bool SimulatedLink::is_writable(const End& end) const noexcept {
    const End& other = &end == ends.data() ? ends[1] : ends[0];
    return end.connected && (end.error != 0 || end.sent_end || end.unread < other.host->traits.window);
}

void SimulatedLink::notify(int number) {
    const End& end = ends[static_cast<std::size_t>(number)];
    if (end.closed || ((!end.readable || !is_readable(end)) && (!end.writable || !is_writable(end)))) return;
    internet.at(internet.now(), [self = shared_from_this(), number] {
        End& own = self->ends[static_cast<std::size_t>(number)];
        if (!own.closed && own.readable && self->is_readable(own)) std::exchange(own.readable, nullptr)();
        if (!own.closed && own.writable && self->is_writable(own)) std::exchange(own.writable, nullptr)();
    });
}

void SimulatedLink::when_readable(int number, net::Callback call) {
    ends[static_cast<std::size_t>(number)].readable = std::move(call);
    notify(number);
}

void SimulatedLink::when_writable(int number, net::Callback call) {
    ends[static_cast<std::size_t>(number)].writable = std::move(call);
    notify(number);
}

Step SimulatedLink::read(int number, std::span<std::byte> into) {
    End& end = ends[static_cast<std::size_t>(number)];
    if (!end.connected) return Step::again(Wants::readable);
    if (end.inbox.empty()) {
        if (end.error != 0) return Step::failed(end.error);
        return end.ended ? Step::closed() : Step::again(Wants::readable);
    }
    const std::size_t count = std::min(into.size(), end.inbox.size());
    std::copy_n(std::as_bytes(std::span(end.inbox)).begin(), count, into.begin());
    end.inbox.erase(0, count);
    acknowledge(number, count, internet.now());
    return Step::moved(count);
}

void SimulatedLink::acknowledge(int reader, std::size_t bytes, Clock::time_point since) {
    const auto way = ends[0].host->traits.latency + ends[1].host->traits.latency;
    internet.at(internet.now() + way, [self = shared_from_this(), reader, bytes, since] {
        if (self->is_cut()) {
            if (self->internet.now() - since < gives_up_after) self->acknowledge(reader, bytes, since);
            return;
        }
        self->ends[static_cast<std::size_t>(1 - reader)].unread -= bytes;
        self->notify(1 - reader);
    });
}

Step SimulatedLink::write(int number, std::span<const std::byte> from) {
    End& end = ends[static_cast<std::size_t>(number)];
    if (!end.connected) return Step::again(Wants::writable);
    if (end.error != 0) return Step::failed(end.error);
    if (end.sent_end) return Step::failed(error_number(SocketFault::reset));
    const std::size_t window = ends[static_cast<std::size_t>(1 - number)].host->traits.window;
    const std::size_t room = window - std::min(window, end.unread);
    const std::size_t count = std::min({from.size(), room, largest_write});
    if (count == 0) return Step::again(Wants::writable);
    end.unread += count;
    send(number, {reinterpret_cast<const char*>(from.data()), count});
    return Step::moved(count);
}

// No bytes: the end of them.
void SimulatedLink::send(int from, std::string bytes) {
    SimulatedHost& host = *ends[static_cast<std::size_t>(from)].host;
    End& other = ends[static_cast<std::size_t>(1 - from)];
    auto arrives = internet.arrival(host, *other.host, bytes.size() + 40);
    const double packets = std::ceil(static_cast<double>(bytes.size() + 1) / simulated_packet_bytes);
    const double loss = std::min(host.traits.loss + other.host->traits.loss, 0.9);
    while (internet.happens(1 - std::pow(1 - loss, packets))) {
        arrives += sends_again_after + 2 * (host.traits.latency + other.host->traits.latency);
        if (loss <= 0) break;
    }
    if (!other.on_the_way.empty()) arrives = std::max(arrives, other.on_the_way.back().arrives);
    other.on_the_way.push_back({arrives, internet.now(), std::move(bytes)});
    internet.at(arrives, [self = shared_from_this(), from] { self->deliver(1 - from); });
}

void SimulatedLink::deliver(int to) {
    End& end = ends[static_cast<std::size_t>(to)];
    while (!end.on_the_way.empty() && end.on_the_way.front().arrives <= internet.now()) {
        if (is_cut()) {
            if (internet.now() - end.on_the_way.front().sent > gives_up_after) {
                end.on_the_way.clear();
                fail(1 - to, error_number(SocketFault::timed_out));
            } else {
                internet.at(internet.now() + sends_again_after,
                            [self = shared_from_this(), to] { self->deliver(to); });
            }
            return;
        }
        const std::string bytes = std::move(end.on_the_way.front().bytes);
        end.on_the_way.pop_front();
        if (bytes.empty())
            end.ended = true;
        else if (end.closed)
            send_reset(to);
        else
            end.inbox += bytes;
    }
    notify(to);
}

void SimulatedLink::fail(int number, int error) {
    End& end = ends[static_cast<std::size_t>(number)];
    if (end.error == 0) end.error = error;
    notify(number);
}

void SimulatedLink::send_reset(int from) {
    const auto way = ends[0].host->traits.latency + ends[1].host->traits.latency;
    internet.at(internet.now() + way, [self = shared_from_this(), from] {
        if (!self->is_cut()) self->fail(1 - from, error_number(SocketFault::reset));
    });
}

Result SimulatedLink::shut_down_sending(int number) {
    End& end = ends[static_cast<std::size_t>(number)];
    if (end.error != 0) return {Code::transient, socket_error_text(end.error), end.error};
    if (!end.connected || end.sent_end) return Code::transient;
    end.sent_end = true;
    send(number, {});
    return {};
}

void SimulatedLink::close(int number) {
    End& end = ends[static_cast<std::size_t>(number)];
    if (end.closed) return;
    end.closed = true;
    const auto done = std::exchange(end.done, nullptr);  // they may own whoever owns this
    const auto readable = std::exchange(end.readable, nullptr);
    const auto writable = std::exchange(end.writable, nullptr);
    if (end.local.size() != 0) --end.host->open_;
    const bool other_knows = ends[1].connected;
    if (!other_knows || end.error != 0) return;
    if (!end.connected || !end.inbox.empty())
        send_reset(number);
    else if (!end.sent_end)
        send(number, {});
    end.sent_end = true;
    end.inbox.clear();
}

void SimulatedLink::reset(int number) {
    End& end = ends[static_cast<std::size_t>(number)];
    if (end.closed) return;
    const bool other_knows = ends[1].connected && end.error == 0;
    if (other_knows) {
        ends[static_cast<std::size_t>(1 - number)].on_the_way.clear();
        end.error = error_number(SocketFault::reset);
        send_reset(number);
    }
    close(number);
}

}  // namespace vantlow::test
