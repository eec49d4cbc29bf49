// What src/net promises, held against the machine's own network and the simulated one.
#include <numeric>
#include <thread>

#include "net/places.h"
#include "platform/file.h"
#include "support/resident_memory.h"

namespace vantlow::test {
namespace {

std::string pattern(std::size_t size) {
    std::string text(size, '\0');
    std::uint32_t state = 12345;
    for (char& c : text) c = static_cast<char>((state = state * 1664525 + 1013904223) >> 24U);
    return text;
}

std::span<const std::byte> bytes_of(std::string_view text) {
    return std::as_bytes(std::span(text));
}

class Conformance : public InPlace {};
INSTANTIATE_TEST_SUITE_P(Places, Conformance,
                         testing::Values("loopback", "loopback_kept", "loopback_ipv6", "simulated"),
                         [](const auto& one) { return std::string(one.param); });

TEST_P(Conformance, EchoesMoreThanFitsAndEachSideEndsAlone) {
    Pair pair = connect();
    const std::string text = pattern(std::size_t{8} << 20U);
    pair.server->echo();
    pair.client->receive();
    pair.client->send(text, true);
    EXPECT_GT(pair.client->unsent(), 0U) << "8 MiB fit at once";
    ASSERT_TRUE(place->run_until([&] { return pair.client->ended() || pair.client->error() != 0; }));
    EXPECT_EQ(pair.client->error(), 0);
    EXPECT_EQ(pair.client->received(), text);
    EXPECT_GT(pair.client->refusals(), 0);
    EXPECT_EQ(pair.client->stream().peer_address()->host(), place->server_address().host());
    EXPECT_EQ(pair.server->stream().peer_address(), pair.client->stream().local_address());
}

TEST_P(Conformance, SendsWhatItTookAlthoughItIsClosed) {
    Pair pair = connect();
    std::string text = pattern(std::size_t{16} << 20U);
    std::size_t taken = 0;
    for (;;) {
        const net::Step step =
            pair.client->stream().write(bytes_of(text).subspan(taken), place->client().now());
        if (step.state != net::Step::State::moved) break;
        taken += step.bytes;
    }
    pair.client.reset();
    pair.server->receive();
    ASSERT_TRUE(place->run_until([&] { return pair.server->ended() || pair.server->error() != 0; }));
    EXPECT_EQ(pair.server->error(), 0);
    EXPECT_EQ(pair.server->received(), text.substr(0, taken));
}

TEST_P(Conformance, AReaderThatDoesNotReadHoldsTheWriterBack) {
    Pair pair = connect();
    const std::size_t size = std::size_t{32} << 20U;
    pair.client->send(pattern(size), true);
    place->run_for(100ms);
    EXPECT_GT(pair.client->unsent(), size / 2);
    pair.server->receive(size / 2);
    ASSERT_TRUE(place->run_until([&] { return pair.server->received().size() == size / 2; }));
    EXPECT_FALSE(pair.server->ended());
    EXPECT_GT(pair.client->unsent(), 0U);
    pair.server->receive();
    ASSERT_TRUE(place->run_until([&] { return pair.server->ended(); }));
    EXPECT_EQ(pair.server->received().size(), size);
}

TEST_P(Conformance, AResetIsTold) {
    Pair pair = connect();
    pair.client->receive();
    place->run_for(30ms);
    pair.server->stream().reset();
    // Wine tells an end before it tells the reset.
    const bool may_end = path_separator() == u'\\';
    ASSERT_TRUE(
        place->run_until([&] { return pair.client->error() != 0 || (may_end && pair.client->ended()); }));
    if (pair.client->error() != 0) {
        EXPECT_EQ(socket_fault(pair.client->error()), SocketFault::reset);
    }
    net::Step step = pair.client->stream().write(bytes_of("x"), place->client().now());
    for (int i = 0; i < 100 && pair.client->error() == 0 && step.state != net::Step::State::failed; ++i) {
        place->run_for(10ms);
        step = pair.client->stream().write(bytes_of("x"), place->client().now());
    }
    ASSERT_EQ(step.state, net::Step::State::failed);
    EXPECT_FALSE(step.result().message().empty());
}

TEST_P(Conformance, NobodyListensThere) {
    auto listener = listen();
    const SocketAddress was = *listener->address();
    listener.reset();
    Result result;
    bool told = false;
    auto stream = place->client().connect(was, [&](const Result& r) {
        result = r;
        told = true;
    });
    bool readable = false;
    stream->when_readable([&] { readable = true; });
    EXPECT_EQ(stream->write(bytes_of("x"), {}).state, net::Step::State::again);
    ASSERT_TRUE(place->run_until([&] { return told && readable; }));
    EXPECT_EQ(result.code, Code::transient);
    EXPECT_EQ(socket_fault(result.system_error), SocketFault::refused);
    std::byte room[1];
    EXPECT_EQ(stream->read(room, {}).state, net::Step::State::failed);
}

TEST_P(Conformance, NoAddressNoConnection) {
    bool told = false;
    auto stream = place->client().connect(SocketAddress(), [&](const Result& result) {
        told = true;
        EXPECT_EQ(socket_fault(result.system_error), SocketFault::unreachable);
    });
    EXPECT_FALSE(told);
    EXPECT_TRUE(place->run_until([&] { return told; }));
}

// In each state: what was asked for before a close is never answered after it.
TEST_P(Conformance, AfterCloseNoCallbackComes) {
    int calls = 0;
    const auto count = [&] { ++calls; };
    auto listener = listen();
    listener->accept([&](auto) { ++calls; });
    auto connecting = place->client().connect(*listener->address(), [&](const Result&) { ++calls; });
    connecting->when_readable(count);
    connecting->when_writable(count);
    listener->close();
    connecting->close();
    EXPECT_FALSE(listener->address().has_value());

    Pair idle = connect();
    idle.client->stream().when_readable(count);
    idle.client->stream().when_writable(count);
    idle.client->stream().close();

    Pair full = connect();
    full.client->send(pattern(std::size_t{32} << 20U));
    full.client->stream().when_writable(count);
    full.client->stream().reset();

    auto datagrams = *place->client().bind(place->client_address());
    datagrams->when_readable(count);
    datagrams->when_writable(count);
    datagrams->close();
    place->run_for(100ms);
    EXPECT_EQ(calls, 0);
}

TEST_P(Conformance, ACallbackMayEndWhoAskedForIt) {
    Pair pair = connect();
    bool called = false;
    StreamPump* client = pair.client.get();
    client->stream().when_readable([&] {
        pair.client.reset();
        called = true;
    });
    pair.server->send("x");
    EXPECT_TRUE(place->run_until([&] { return called; }));

    net::Timer* timer = new net::Timer(place->client().timers());
    timer->start(place->client().now(), [&] { delete std::exchange(timer, nullptr); });
    EXPECT_TRUE(place->run_until([&] { return timer == nullptr; }));
}

TEST_P(Conformance, TimersComeInOrder) {
    net::TimerQueue& queue = place->client().timers();
    const auto start = place->client().now();
    std::string order;
    std::vector<std::unique_ptr<net::Timer>> timers;
    const auto add = [&](std::chrono::milliseconds at, char name) {
        timers.push_back(std::make_unique<net::Timer>(queue));
        timers.back()->start(start + at, [&order, name] { order += name; });
    };
    add(30ms, 'd');
    add(10ms, 'a');
    add(20ms, 'b');
    add(20ms, 'c');
    add(15ms, 'x');
    add(25ms, 'y');
    net::Timer canceller(queue);
    canceller.start(start + 5ms, [&] { timers[4]->cancel(); });
    timers[5]->start(start + 40ms, [&] { order += 'e'; });
    timers[3]->start(start + 20ms, [&] {
        order += 'c';
        EXPECT_GE(place->client().now(), start + 20ms);
    });
    ASSERT_TRUE(place->run_until([&] { return order.size() >= 5; }));
    place->run_for(20ms);
    EXPECT_EQ(order, "abcde");
}

TEST_P(Conformance, PostedWorkComesInOrderFromEveryThread) {
    constexpr int threads = 4;
    constexpr int works = 2000;
    std::vector<std::vector<int>> done(threads);
    {
        std::vector<std::jthread> posting;
        for (int t = 0; t < threads; ++t) {
            posting.emplace_back([&, t] {
                for (int i = 0; i < works; ++i) {
                    EXPECT_TRUE(place->client().post(
                        [&done, t, i] { done[static_cast<std::size_t>(t)].push_back(i); }));
                }
            });
        }
    }
    ASSERT_TRUE(place->run_until([&] {
        return std::all_of(done.begin(), done.end(), [](const auto& list) { return list.size() == works; });
    }));
    for (const auto& list : done) EXPECT_TRUE(std::is_sorted(list.begin(), list.end()));

    std::size_t taken = 0;
    while (place->client().post([] {})) ASSERT_LE(++taken, net::most_posted);
    EXPECT_EQ(taken, net::most_posted);
}

// On one thread, both ends of them; in memory that 40 MiB hold.
TEST_P(Conformance, AThousandConnectionsAtOnce) {
    constexpr std::size_t count = 1000;
    const auto begin = Clock::now();
    const std::int64_t memory_before = resident_memory();
    ASSERT_GT(memory_before, 0);
    auto listener = listen(1024);
    std::vector<std::unique_ptr<StreamPump>> servers;
    std::vector<std::unique_ptr<StreamPump>> clients(count);
    std::size_t failures = 0;
    std::function<void()> accept = [&] {
        listener->accept([&](auto taken) {
            if (!taken.ok()) return;
            servers.push_back(std::make_unique<StreamPump>(place->server(), *std::move(taken)));
            servers.back()->echo();
            accept();
        });
    };
    accept();
    for (std::size_t i = 0; i < count; ++i) {
        auto stream = place->client().connect(*listener->address(), [&, i](const Result& result) {
            if (!result.ok()) {
                ++failures;
                return;
            }
            clients[i]->receive();
            clients[i]->send("number " + std::to_string(i), true);
        });
        clients[i] = std::make_unique<StreamPump>(place->client(), std::move(stream));
    }
    place->run_until([&] {
        return std::all_of(clients.begin(), clients.end(), [](const auto& c) { return c->ended(); });
    });
    EXPECT_EQ(failures, 0U);
    EXPECT_EQ(servers.size(), count);
    for (std::size_t i = 0; i < count; ++i) EXPECT_EQ(clients[i]->received(), "number " + std::to_string(i));
    if (is_plain_build()) {
        EXPECT_LT(resident_memory() - memory_before, 40 * 1024 * 1024);
        if (std::string_view(GetParam()) == "simulated") {
            EXPECT_LT(Clock::now() - begin, 1s);
        }
    }
}

TEST_P(Conformance, WhoDoesNotAcceptGetsNoMore) {
    auto listener = listen(4);
    std::vector<std::unique_ptr<net::Stream>> taken;
    const auto take = [&](auto stream) {
        ASSERT_TRUE(stream.ok());
        taken.push_back(*std::move(stream));
    };
    listener->accept(take);
    std::vector<std::unique_ptr<net::Stream>> clients;
    for (int i = 0; i < 3; ++i) {
        clients.push_back(place->client().connect(*listener->address(), [](const Result&) {}));
    }
    ASSERT_TRUE(place->run_until([&] { return !taken.empty(); }));
    place->run_for(50ms);
    EXPECT_EQ(taken.size(), 1U);
    listener->accept(take);
    EXPECT_TRUE(place->run_until([&] { return taken.size() == 2; }));
}

TEST_P(Conformance, WithoutDescriptorsItGoesOnSlowly) {
    auto listener = listen();
    place->exhaust_server(2);
    int failures = 0;
    std::unique_ptr<net::Stream> accepted;
    std::function<void()> accept = [&] {
        listener->accept([&](auto taken) {
            if (taken.ok()) {
                accepted = *std::move(taken);
                return;
            }
            ++failures;
            EXPECT_EQ(socket_fault(taken.failure().system_error), SocketFault::no_descriptors);
            EXPECT_FALSE(taken.failure().message().empty());
            if (failures == 2) place->recover_server();
            accept();
        });
    };
    const auto start = place->client().now();
    accept();
    std::vector<std::unique_ptr<net::Stream>> clients;
    for (int i = 0; i < 3; ++i) {
        clients.push_back(place->client().connect(*listener->address(), [](const Result&) {}));
    }
    ASSERT_TRUE(place->run_until([&] { return accepted != nullptr; }));
    EXPECT_EQ(failures, 2);
    EXPECT_GE(place->client().now() - start, 2 * net::accept_rest);

    place->exhaust_client();
    Result result;
    const auto one_more = place->client().connect(*listener->address(), [&](const Result& r) { result = r; });
    EXPECT_TRUE(result.ok());
    EXPECT_TRUE(place->run_until([&] { return !result.ok(); }));
    EXPECT_EQ(socket_fault(result.system_error), SocketFault::no_descriptors);
}

TEST_P(Conformance, DatagramsKeepTheirBordersAndSenders) {
    auto server = *place->server().bind(place->server_address());
    auto client = *place->client().bind(place->client_address());
    const std::vector<std::size_t> sizes{1, 0, 1400, 9000, 20};
    std::vector<std::string> received;
    std::function<void()> answer = [&] {
        std::byte room[5000];
        SocketAddress from;
        for (;;) {
            const net::Step step = server->receive(room, from);
            if (step.state != net::Step::State::moved) break;
            EXPECT_EQ(from, client->address());
            EXPECT_EQ(server->send(std::span(room).first(step.bytes), from).state, net::Step::State::moved);
        }
        server->when_readable(answer);
    };
    answer();
    std::function<void()> collect = [&] {
        std::byte room[65536];
        SocketAddress from;
        for (;;) {
            const net::Step step = client->receive(room, from);
            if (step.state != net::Step::State::moved) break;
            EXPECT_EQ(from, server->address());
            received.emplace_back(reinterpret_cast<const char*>(room), step.bytes);
        }
        client->when_readable(collect);
    };
    collect();
    const std::string text = pattern(9000);
    for (const std::size_t size : sizes) {
        ASSERT_EQ(client->send(bytes_of(text).first(size), *server->address()).state,
                  net::Step::State::moved);
    }
    ASSERT_TRUE(place->run_until([&] { return received.size() == sizes.size(); }));
    for (std::size_t i = 0; i < sizes.size(); ++i) {
        EXPECT_EQ(received[i], text.substr(0, std::min<std::size_t>(sizes[i], 5000)));
    }
    // To where nobody is: the socket is of use afterwards.
    const SocketAddress gone = *server->address();
    server.reset();
    EXPECT_EQ(client->send(bytes_of("lost"), gone).state, net::Step::State::moved);
    place->run_for(30ms);
    server = *place->server().bind(gone);
    answer();
    EXPECT_EQ(client->send(bytes_of("found"), gone).state, net::Step::State::moved);
    ASSERT_TRUE(place->run_until([&] { return received.size() > sizes.size(); }));
    EXPECT_EQ(received.back(), "found");
    EXPECT_NE(client->send(bytes_of(pattern(70000)), gone).state, net::Step::State::moved);
}

}  // namespace
}  // namespace vantlow::test
