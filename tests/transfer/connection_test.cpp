// One connection's parts: limits, reuse, several addresses, the pace.
#include <gtest/gtest.h>

#include <future>

#include "support/recording_log.h"
#include "support/scripted_server.h"
#include "transfer/connection/base_socket.h"
#include "transfer/connection/connector.h"

namespace vantlow::test {
namespace {

using std::chrono::milliseconds;

SocketAddress address(const char* literal, std::uint16_t port) {
    return *SocketAddress::from_literal(literal, port);
}

/// A time that stands still until the test moves it.
class MovedTime : public TimeSource {
  public:
    [[nodiscard]] Clock::time_point now() const noexcept override { return now_; }
    void pass(std::chrono::seconds time) { now_ += time; }

  private:
    Clock::time_point now_ = Clock::now();
};

TEST(AddressOrder, FamiliesTakeTurnsFromTheFirstOn) {
    const auto order = alternate_families({address("::1", 1), address("::2", 1), address("127.0.0.1", 1),
                                           address("::3", 1), address("127.0.0.2", 1)});
    std::vector<std::string> hosts;
    for (const auto& one : order) hosts.push_back(one.host());
    EXPECT_EQ(hosts, (std::vector<std::string>{"::1", "127.0.0.1", "::2", "127.0.0.2", "::3"}));
}

TEST(Connecting, TheNextAddressIsTriedWhenOneFails) {
    start_sockets();
    ScriptedServer server([](Exchange& exchange) { exchange.answer(200, "OK"); });
    RecordingLog log;
    StopSource stop;
    // Nobody listens at 127.0.0.2 and 127.0.0.3 on the server's port.
    const std::vector<SocketAddress> all{address("127.0.0.2", server.port()),
                                         address("127.0.0.3", server.port()),
                                         address("127.0.0.1", server.port())};
    const auto begun = Clock::now();
    auto socket = connect_any(all, {"many.example", false}, milliseconds(5000), stop, log);
    EXPECT_TRUE(socket.ok()) << log.all();
    EXPECT_LT(Clock::now() - begun, milliseconds(3000));
    EXPECT_TRUE(log.has("Connecting to 127.0.0.1:" + std::to_string(server.port())));
    EXPECT_TRUE(log.has("Socket error = "));
    EXPECT_TRUE(log.has("Connected."));

    auto none = connect_any({all[0], all[1]}, {"dead.example", false}, milliseconds(5000), stop, log);
    EXPECT_EQ(none.failure().code, Code::transient);
}

TEST(Slots, BoundAndSpaceTheConnectionsToOneServer) {
    ServerSlots slots;
    StopSource stop;
    const ServerLimits limits{2, milliseconds(0)};
    auto one = slots.acquire("a:80", limits, stop);
    auto two = slots.acquire("a:80", limits, stop);
    ASSERT_TRUE(one.ok() && two.ok());
    EXPECT_TRUE(slots.acquire("b:80", limits, stop).ok()) << "another server has its own places";
    auto third = std::async(std::launch::async, [&] { return slots.acquire("a:80", limits, stop).ok(); });
    EXPECT_EQ(third.wait_for(milliseconds(50)), std::future_status::timeout);
    one->release();
    EXPECT_TRUE(third.get());

    const ServerLimits spaced{0, milliseconds(60)};
    const auto begun = Clock::now();
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(slots.acquire("c:80", spaced, stop).ok());
    EXPECT_GE(Clock::now() - begun, milliseconds(119));
}

TEST(Slots, TheSpaceBetweenConnectionsIsOverOnceItsTimeHasPassed) {
    MovedTime time;
    ServerSlots slots(time);
    StopSource stop;
    const ServerLimits spaced{0, std::chrono::hours(1)};
    ASSERT_TRUE(slots.acquire("a:80", spaced, stop).ok());
    time.pass(std::chrono::hours(1));
    ASSERT_TRUE(slots.acquire("a:80", spaced, stop).ok());
    auto early = std::async(std::launch::async, [&] { return slots.acquire("a:80", spaced, stop).ok(); });
    EXPECT_EQ(early.wait_for(milliseconds(50)), std::future_status::timeout);
    stop.request();
    EXPECT_FALSE(early.get());
}

TEST(Names, AreAskedForAgainAfterAMinuteAndFailuresAtOnce) {
    MovedTime time;
    int asked = 0;
    NameAnswer answer;
    answer.addresses = {address("127.0.0.1", 80)};
    Resolver resolver(
        [&](const std::string&, std::uint16_t) {
            ++asked;
            return answer;
        },
        time);
    StopSource stop;
    const auto resolve = [&] { return resolver.resolve("host.example", 80, stop).ok(); };
    EXPECT_TRUE(resolve() && resolve());
    time.pass(std::chrono::seconds(59));
    EXPECT_TRUE(resolve());
    EXPECT_EQ(asked, 1);
    time.pass(std::chrono::seconds(2));
    EXPECT_TRUE(resolve());
    EXPECT_EQ(asked, 2);
    time.pass(std::chrono::seconds(61));
    answer = {};
    answer.error = 1;
    EXPECT_FALSE(resolve() || resolve());
    EXPECT_EQ(asked, 4) << "nobody knows what the next question would bring";
}

TEST(Slots, GiveAPlaceToThoseWhoHaveNoneFirst) {
    ServerSlots slots;
    StopSource stop;
    std::atomic<int> awaited{0};
    const ServerLimits limits{1, milliseconds(0), false, &awaited};
    const ServerLimits further{1, milliseconds(0), true, &awaited};
    auto held = slots.acquire("a:80", limits, stop);
    EXPECT_EQ(awaited, 0) << "there was no wait";
    std::mutex mutex;
    std::vector<std::string> order;
    const auto begin = [&](const char* name, const ServerLimits& asked) {
        const int before = awaited;
        auto done = std::async(std::launch::async, [&, name] {
            auto slot = slots.acquire("a:80", asked, stop);
            const std::lock_guard guard(mutex);
            order.emplace_back(name);
        });
        const auto until = Clock::now() + std::chrono::seconds(10);
        while (awaited == before && Clock::now() < until) std::this_thread::yield();
        return done;
    };
    auto second = begin("further", further);
    auto first = begin("first", limits);
    held->release();
    second.wait();
    first.wait();
    EXPECT_EQ(order, (std::vector<std::string>{"first", "further"}));
    EXPECT_EQ(awaited, 0);
}

ConnectPlan plan_for(const ScriptedServer& server) {
    ConnectPlan plan;
    plan.scheme = "http";
    plan.host = server.host();
    plan.port = server.port();
    return plan;
}

TEST(Reuse, KeepsWholeConversationsOnly) {
    start_sockets();
    ScriptedServer server([](Exchange& exchange) {
        if (exchange.request().target == "/speaks") {
            exchange.answer(200, "OK", "abc");
            exchange.send_raw("unasked");
        } else {
            exchange.answer(200, "OK", "abc");
        }
    });
    MovedTime time;
    ConnectionServices services(nullptr, time);
    RecordingLog log;
    StopSource stop;
    ConnectPlan plan = plan_for(server);
    const auto talk = [&](const char* path, std::size_t answer_bytes) {
        CBaseSocket socket(services, log, stop);
        EXPECT_TRUE(socket.open(plan).ok());
        const std::string request = std::string("GET ") + path + " HTTP/1.1\r\n\r\n";
        EXPECT_TRUE(socket.send_all(std::as_bytes(std::span(request))).ok());
        std::vector<std::byte> answer(answer_bytes);
        EXPECT_TRUE(socket.receive_exactly(answer).ok());
        const bool reused = socket.is_reused();
        socket.close(true);
        return reused;
    };
    const std::size_t head = std::string("HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\nabc").size();
    EXPECT_FALSE(talk("/a", head));
    EXPECT_TRUE(talk("/b", head));
    plan.scheme = "https";
    EXPECT_FALSE(talk("/c", head)) << "another scheme is another connection";
    plan.scheme = "http";
    EXPECT_TRUE(talk("/speaks", head));
    std::this_thread::sleep_for(milliseconds(30));
    EXPECT_FALSE(talk("/d", head)) << "a connection that spoke unasked was used again";
    time.pass(std::chrono::seconds(16));
    EXPECT_FALSE(talk("/e", head)) << "a connection that was idle for long was used again";
}

TEST(Reuse, AKeptConnectionMakesRoomForOneThatWaits) {
    start_sockets();
    ScriptedServer server([](Exchange& exchange) { exchange.answer(200, "OK"); });
    ConnectionServices services;
    RecordingLog log;
    StopSource stop;
    ConnectPlan plan = plan_for(server);
    plan.limits.most = 1;
    CBaseSocket first(services, log, stop);
    ASSERT_TRUE(first.open(plan).ok());
    auto second = std::async(std::launch::async, [&] {
        CBaseSocket socket(services, log, stop);
        return socket.open(plan).ok();
    });
    EXPECT_EQ(second.wait_for(milliseconds(50)), std::future_status::timeout);
    first.close(true);
    EXPECT_EQ(second.wait_for(milliseconds(2000)), std::future_status::ready);
    stop.request();
    EXPECT_TRUE(second.get());
}

}  // namespace
}  // namespace vantlow::test
