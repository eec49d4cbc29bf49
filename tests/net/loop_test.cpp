#include "net/loop.h"

#include <gtest/gtest.h>

#include <thread>

#include "net/places.h"
#include "platform/descriptors.h"
#include "platform/file.h"
#include "platform/udp_socket.h"

namespace vantlow::test {
namespace {

class LoopStop : public testing::Test {
  protected:
    void SetUp() override {
        auto made = net::make_loop();
        ASSERT_TRUE(made.ok()) << made.failure().message();
        loop = *std::move(made);
    }

    std::unique_ptr<net::Loop> loop;
    const SocketAddress here = *SocketAddress::from_literal("127.0.0.1", 0);
};

// Another thread stops it: nothing to do, callbacks without end, and everything in the middle of something.
TEST_F(LoopStop, FromAnotherThread) {
    for (const bool busy : {false, true}) {
        SetUp();
        std::atomic<int> calls = 0;
        std::function<void()> again = [&] {
            ++calls;
            loop->post(again);
        };
        if (busy) loop->post(again);
        auto listener = *loop->listen(here, 8);
        std::unique_ptr<net::Stream> accepted;
        listener->accept([&](auto taken) { accepted = *std::move(taken); });
        auto datagrams = *loop->bind(here);
        datagrams->when_readable([] {});
        net::Timer timer(loop->timers());
        timer.start(loop->now() + 1h, [] { ADD_FAILURE(); });
        const auto stream = loop->connect(*listener->address(), [](const Result&) {});
        stream->when_readable([] { ADD_FAILURE(); });
        std::jthread thread([&] { EXPECT_TRUE(loop->run().ok()); });
        std::this_thread::sleep_for(30ms);
        const auto asked = Clock::now();
        loop->stop();
        thread.join();
        EXPECT_LT(Clock::now() - asked, 200ms);
        EXPECT_FALSE(loop->post([] {}));
        EXPECT_EQ(busy, calls > 0);
    }
}

TEST_F(LoopStop, FromACallbackIsTheLastOne) {
    int calls = 0;
    {
        net::Timer first(loop->timers());
        net::Timer second(loop->timers());
        first.start(loop->now(), [&] {
            ++calls;
            loop->stop();
        });
        second.start(loop->now(), [&] { ++calls; });
        EXPECT_TRUE(loop->run().ok());
        EXPECT_EQ(calls, 1);
    }
    SetUp();
    loop->post([&] {
        ++calls;
        loop->stop();
    });
    loop->post([&] { ++calls; });
    EXPECT_TRUE(loop->run().ok());
    EXPECT_EQ(calls, 2);
}

TEST_F(LoopStop, WhatFailsIsSaid) {
    auto taken = *loop->listen(here, 8);
    const auto again = loop->listen(*taken->address(), 8);
    ASSERT_FALSE(again.ok());
    EXPECT_FALSE(again.failure().message().empty());
    // Wine lets a foreign address be bound.
    if (path_separator() == u'/') {
        EXPECT_FALSE(loop->bind(*SocketAddress::from_literal("192.0.2.1", 1)).ok());
    }
    for (const Operation operation : {Operation::make_socket, Operation::listen}) {
        FailWhile hook(operation, SocketFault::no_descriptors);
        const HookInPlace in_place(hook);
        hook.left = 2;
        const auto listener = loop->listen(here, 8);
        ASSERT_FALSE(listener.ok());
        EXPECT_EQ(socket_fault(listener.failure().system_error), SocketFault::no_descriptors);
        EXPECT_FALSE(loop->bind(here).ok());
    }
    FailWhile hook(Operation::make_event, SocketFault::no_descriptors);
    const HookInPlace in_place(hook);
    hook.left = 1;
    EXPECT_FALSE(net::make_loop().ok());
}

// Every socket stands at the one way's address, and nothing works where it is not there.
TEST_F(LoopStop, OfSocketsThatAreHeldToOneWay) {
    const auto any = *SocketAddress::from_literal("0.0.0.0", 0);
    const auto any6 = *SocketAddress::from_literal("::", 0);
    StopSource never;
    auto server = *TcpListener::listen(here);
    const SocketAddress there = *server.address();
    for (const bool is_there : {true, false}) {
        const NetworkWay way(is_there ? "127.0.0.1" : "192.0.2.77");
        EXPECT_EQ(way.look().ok(), is_there);
        auto held = *net::make_loop({.way = way});
        auto listener = held->listen(any, 8);
        auto datagrams = held->bind(any);
        EXPECT_EQ(listener.ok() && datagrams.ok(), is_there);
        EXPECT_FALSE(held->bind(any6).ok()) << "the other kind of addresses has no way";
        if (is_there) {
            EXPECT_EQ((*listener)->address()->host(), "127.0.0.1");
            EXPECT_EQ((*datagrams)->address()->host(), "127.0.0.1");
        }
        std::optional<Result> connected;
        const auto stream = held->connect(there, [&](const Result& result) { connected = result; });
        const auto until = Clock::now() + 30s;
        while (!connected && Clock::now() < until) static_cast<void>(held->run_one(100ms));
        EXPECT_EQ(connected && connected->ok(), is_there);
        auto begun = TcpSocket::begin_connect(there, way);
        EXPECT_EQ(begun.ok() && wait_socket(*begun, Interest::write, 30s, never) == Ready::yes, is_there);
        EXPECT_EQ(UdpSocket::connect(there, way).ok(), is_there);
    }
    EXPECT_FALSE(NetworkWay("no such thing").look().ok());
}

TEST(Descriptors, TheLimitIsNeverLowered) {
    const std::size_t limit = raise_descriptor_limit();
    EXPECT_EQ(raise_descriptor_limit(), limit);
}

}  // namespace
}  // namespace vantlow::test
