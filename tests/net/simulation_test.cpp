// That the simulated network behaves as networks do, so that what is tried on it means something.
#include <gtest/gtest.h>

#include "net/paced_stage.h"
#include "net/places.h"

namespace vantlow::test {
namespace {

class Simulation : public testing::Test {
  protected:
    struct Link {
        std::unique_ptr<StreamPump> client;
        std::unique_ptr<StreamPump> server;
    };
    Link connect(SimulatedHost& from, SimulatedHost& to) {
        Link link;
        auto listener = *to.listen(to.address(), 8);
        std::unique_ptr<net::Stream> accepted;
        listener->accept([&](auto taken) { accepted = *std::move(taken); });
        bool connected = false;
        auto stream =
            from.connect(*listener->address(), [&](const Result& result) { connected = result.ok(); });
        EXPECT_TRUE(internet.run_until([&] { return accepted != nullptr && connected; }, 10s));
        link.client = std::make_unique<StreamPump>(from, std::move(stream));
        link.server = std::make_unique<StreamPump>(to, std::move(accepted));
        return link;
    }
    /// How a connection attempt ends, within ten minutes.
    SocketFault attempt(SimulatedHost& from, const SocketAddress& to) {
        std::optional<SocketFault> fault;
        const auto stream =
            from.connect(to, [&](const Result& result) { fault = socket_fault(result.system_error); });
        EXPECT_TRUE(internet.run_until([&] { return fault.has_value(); }, 600s));
        return fault.value_or(SocketFault::other);
    }
    double seconds_since(Clock::time_point start) const {
        return std::chrono::duration<double>(internet.now() - start).count();
    }

    SimulatedInternet internet{7};
};

TEST_F(Simulation, LinesHaveLatencyAndBandwidth) {
    auto& near = internet.add_host("192.0.2.1", {.latency = 50ms, .up = 1e6});
    auto& far = internet.add_host("192.0.2.2", {.latency = 50ms});
    Link link = connect(near, far);
    auto start = internet.now();
    link.server->echo();
    link.client->send("x");
    link.client->receive(1);
    ASSERT_TRUE(internet.run_until([&] { return link.client->received() == "x"; }, 10s));
    EXPECT_NEAR(seconds_since(start), 0.2, 0.001);
    start = internet.now();
    link.server->receive();
    link.client->send(std::string(5'000'000, 'y'), true);
    ASSERT_TRUE(internet.run_until([&] { return link.server->ended(); }, 100s));
    EXPECT_NEAR(seconds_since(start), 5.1, 0.1);
    // A window that is smaller than what the line holds is what limits.
    near.traits.up = 0;
    far.traits.window = 20'000;
    Link narrow = connect(near, far);
    start = internet.now();
    narrow.server->receive();
    narrow.client->send(std::string(1'000'000, 'z'), true);
    ASSERT_TRUE(internet.run_until([&] { return narrow.server->ended(); }, 100s));
    EXPECT_NEAR(seconds_since(start), 1'000'000 / 20'000 * 0.2, 0.3);
}

TEST_F(Simulation, DatagramsGetLostAndOvertakeAndTheSeedRepeatsIt) {
    const auto run = [](std::uint64_t seed) {
        SimulatedInternet world(seed);
        auto& a = world.add_host("2001:db8::1", {.jitter = 5ms, .loss = 0.1, .late = 0.1});
        auto& b = world.add_host("2001:db8::2");
        auto from = *a.bind(a.address());
        auto to = *b.bind(b.address());
        std::vector<int> numbers;
        std::function<void()> receive = [&] {
            int number = 0;
            SocketAddress sender;
            while (to->receive(std::as_writable_bytes(std::span(&number, 1)), sender).state ==
                   net::Step::State::moved)
                numbers.push_back(number);
            to->when_readable(receive);
        };
        receive();
        for (int i = 0; i < 1000; ++i) {
            EXPECT_EQ(from->send(std::as_bytes(std::span(&i, 1)), *to->address()).state,
                      net::Step::State::moved);
            world.run_for(1ms);
        }
        world.run_for(1s);
        return numbers;
    };
    const std::vector<int> numbers = run(1);
    EXPECT_NEAR(static_cast<double>(numbers.size()), 900, 60);
    EXPECT_FALSE(std::is_sorted(numbers.begin(), numbers.end()));
    EXPECT_EQ(numbers, run(1));
    EXPECT_NE(numbers, run(2));
}

TEST_F(Simulation, AStreamOverALossyLineIsSlowAndWhole) {
    auto& a = internet.add_host("192.0.2.1", {.loss = 0.02});
    auto& b = internet.add_host("192.0.2.2");
    Link link = connect(a, b);
    const auto start = internet.now();
    std::string text;
    for (int i = 0; i < 200'000; ++i) text += std::to_string(i);
    link.server->receive();
    link.client->send(text, true);
    ASSERT_TRUE(internet.run_until([&] { return link.server->ended(); }, 600s));
    EXPECT_EQ(link.server->received(), text);
    EXPECT_GT(seconds_since(start), 1);
}

TEST_F(Simulation, AHostThatVanishesLeavesAHalfOpenConnection) {
    auto& a = internet.add_host("192.0.2.1");
    auto& b = internet.add_host("192.0.2.2");
    Link idle = connect(a, b);
    Link talking = connect(a, b);
    Link paused = connect(a, b);
    idle.client->receive();
    paused.server->receive();
    b.cut();
    talking.client->send("are you there?");
    internet.run_for(30s);
    EXPECT_EQ(talking.client->error(), 0);
    internet.run_for(60s);
    EXPECT_FALSE(idle.client->ended());
    EXPECT_EQ(idle.client->error(), 0);
    talking.client->receive();
    EXPECT_EQ(socket_fault(talking.client->error()), SocketFault::timed_out);
    paused.client->send("late");
    internet.run_for(5s);
    b.mend();
    internet.run_for(5s);
    EXPECT_EQ(paused.server->received(), "late");
    b.cut();
    SocketAddress somewhere = b.address();
    somewhere.set_port(1);
    EXPECT_EQ(attempt(a, somewhere), SocketFault::timed_out);
    EXPECT_EQ(attempt(a, *SocketAddress::from_literal("203.0.113.9", 1)), SocketFault::unreachable);
}

TEST_F(Simulation, BehindATranslatorIsReachedOnlyWhatWasOpened) {
    for (const NatFilter filter :
         {NatFilter::anybody, NatFilter::same_address, NatFilter::same_address_and_port}) {
        SimulatedInternet world(1);
        auto& nat = world.add_nat("198.51.100.1", {filter, 30s});
        auto& inside = world.add_host("10.0.0.2", {}, &nat);
        auto& neighbour = world.add_host("10.0.0.3", {}, &nat);
        auto& peer = world.add_host("192.0.2.1");
        auto& stranger = world.add_host("192.0.2.2");
        auto own = *inside.bind(inside.address());
        auto beside = *neighbour.bind(neighbour.address());
        auto theirs = *peer.bind(peer.address());
        auto second = *peer.bind(peer.address());
        auto unknown = *stranger.bind(stranger.address());
        SocketAddress seen;
        std::byte room[8];
        const auto send = [&](net::Datagrams& from, const SocketAddress& to) {
            EXPECT_EQ(from.send(room, to).state, net::Step::State::moved);
            world.run_for(50ms);
        };
        const auto arrived = [&](net::Datagrams& at) {
            return at.receive(room, seen).state == net::Step::State::moved;
        };
        send(*theirs, *own->address());
        EXPECT_FALSE(arrived(*own)) << "an inner address was reached from outside";
        send(*own, *theirs->address());
        ASSERT_TRUE(arrived(*theirs));
        const SocketAddress outer = seen;
        EXPECT_EQ(outer.host(), "198.51.100.1");
        send(*theirs, outer);
        EXPECT_TRUE(arrived(*own));
        send(*second, outer);
        EXPECT_EQ(arrived(*own), filter != NatFilter::same_address_and_port);
        send(*unknown, outer);
        EXPECT_EQ(arrived(*own), filter == NatFilter::anybody);
        send(*beside, *own->address());
        EXPECT_TRUE(arrived(*own));
        EXPECT_EQ(seen, beside->address());
        world.run_for(31s);
        send(*theirs, outer);
        EXPECT_FALSE(arrived(*own)) << "the port is open for ever";
    }
    auto& nat = internet.add_nat("198.51.100.1");
    auto& inside = internet.add_host("10.0.0.2", {}, &nat);
    auto& outside = internet.add_host("192.0.2.1");
    Link link = connect(inside, outside);
    EXPECT_EQ(link.server->stream().peer_address()->host(), "198.51.100.1");
    auto listener = *inside.listen(inside.address(), 8);
    SocketAddress outer = *SocketAddress::from_literal("198.51.100.1", listener->address()->port());
    EXPECT_EQ(attempt(outside, outer), SocketFault::timed_out);
}

// Both ends on one clock, and the limits on the same: pacing as a protocol machine meets it.
TEST_F(Simulation, APacedConnectionKeepsToItsLimit) {
    auto& a = internet.add_host("192.0.2.1");
    auto& b = internet.add_host("192.0.2.2");
    net::SharedTokens down(internet.now());
    net::SharedTokens up(internet.now());
    down.set_limit(net::TokenTree::everything, 200'000, internet.now());
    net::TokenUser down_user(down, net::TokenTree::everything);
    net::TokenUser up_user(up, net::TokenTree::everything);
    Link link = connect(a, b);
    link.server->send(std::string(5'000'000, 'x'), true);
    net::PacedStage paced(link.client->stream(), down_user, up_user);
    net::Timer timer(internet.timers());
    std::size_t received = 0;
    net::Step last;
    std::function<void()> read = [&] {
        std::byte room[16384];
        while ((last = paced.read(room, internet.now())).state == net::Step::State::moved)
            received += last.bytes;
        if (last.state == net::Step::State::again) net::wait_for(last, link.client->stream(), timer, read);
    };
    read();
    internet.run_for(5s);
    EXPECT_NEAR(static_cast<double>(received), 1'000'000, 30'000);
    EXPECT_EQ(paced.write(std::as_bytes(std::span("up")), internet.now()).bytes, 3U);
    down.set_limit(net::TokenTree::everything, 0, internet.now());
    ASSERT_TRUE(internet.run_until([&] { return last.state == net::Step::State::closed; }, 10s));
    EXPECT_EQ(received, 5'000'000U);
}

// As much as comes for everybody, and a limit that is short for everybody.
TEST_F(Simulation, FiveHundredConnectionsShareALimitEvenly) {
    constexpr std::size_t count = 500;
    constexpr std::int64_t limit = 1024 * 1024;
    struct Reader {
        Reader(net::Stream& its_stream, net::TokenUser& up, SimulatedInternet& its_internet,
               net::SharedTokens& tokens)
            : stream(its_stream),
              internet(its_internet),
              user(tokens, net::TokenTree::everything),
              paced(stream, user, up) {}
        void read() {
            std::byte room[16384];
            net::Step step;
            while ((step = paced.read(room, internet.now())).state == net::Step::State::moved)
                received += static_cast<double>(step.bytes);
            if (step.state == net::Step::State::again) net::wait_for(step, stream, timer, [this] { read(); });
        }
        net::Stream& stream;
        SimulatedInternet& internet;
        net::TokenUser user;
        net::PacedStage paced;
        net::Timer timer{internet.timers()};
        double received = 0;
    };
    auto& a = internet.add_host("192.0.2.1");
    auto& b = internet.add_host("192.0.2.2");
    net::SharedTokens down(internet.now());
    net::SharedTokens up(internet.now());
    down.set_limit(net::TokenTree::everything, limit, internet.now());
    net::TokenUser up_user(up, net::TokenTree::everything);
    std::vector<Link> links;
    std::vector<std::unique_ptr<Reader>> readers;
    for (std::size_t i = 0; i < count; ++i) {
        links.push_back(connect(a, b));
        links.back().server->send(std::string(120'000, 'x'));  // more than the first one may take at once
        readers.push_back(std::make_unique<Reader>(links.back().client->stream(), up_user, internet, down));
    }
    for (const auto& reader : readers) reader->read();
    internet.run_for(1s);
    for (const auto& reader : readers) reader->received = 0;
    internet.run_for(5s);
    double all = 0;
    for (const auto& reader : readers) {
        all += reader->received;
        EXPECT_NEAR(reader->received, 5.0 * limit / count, 0.5 * limit / count);
    }
    EXPECT_NEAR(all, 5.0 * limit, 0.15 * limit);
}

}  // namespace
}  // namespace vantlow::test
