#include "transfer/connection/socket_stream.h"

#include <gtest/gtest.h>

#include <thread>

#include "net/paced_stage.h"

namespace vantlow {
namespace {

using namespace std::chrono_literals;

/// A connection of a thread that waits, with the stages of the loop: socket, pacing.
class StagesOfAThread : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(start_sockets());
        auto listener = TcpListener::listen(*SocketAddress::from_literal("127.0.0.1", 0));
        ASSERT_TRUE(listener.ok());
        auto begun = TcpSocket::begin_connect(*listener->address());
        ASSERT_TRUE(begun.ok());
        socket = *std::move(begun);
        auto accepted = listener->accept(10s, stop);
        ASSERT_TRUE(accepted.ok());
        peer = *std::move(accepted);
        ASSERT_EQ(wait_socket(socket, Interest::write, 10s, stop), Ready::yes);
        stream.attach(&stop);
    }
    static Clock::time_point in(std::chrono::milliseconds time) { return from_now(time); }

    StopSource stop;
    TcpSocket socket;
    TcpSocket peer;
    net::SharedTokens down{Clock::now()};
    net::SharedTokens up{Clock::now()};
    net::TokenUser down_user{down, net::TokenTree::everything};
    net::TokenUser up_user{up, net::TokenTree::everything};
    SocketStage lowest{socket};
    net::PacedStage paced{lowest, down_user, up_user};
    StageStream stream{paced, socket};
    std::vector<std::byte> room = std::vector<std::byte>(65536);
};

TEST_F(StagesOfAThread, WaitForBytesUntilTheirTimeOrTheEnd) {
    EXPECT_EQ(stream.read(room, in(20ms)).state, Moved::State::quiet);
    std::jthread sender([this] {
        std::this_thread::sleep_for(30ms);
        EXPECT_EQ(peer.write(std::as_bytes(std::span("hello"))).bytes, 6U);
        std::this_thread::sleep_for(30ms);
        peer.close();
    });
    const Moved moved = stream.read(room, in(10s));
    EXPECT_EQ(moved.state, Moved::State::data);
    EXPECT_EQ(moved.bytes, 6U);
    EXPECT_EQ(stream.read(room, in(10s)).state, Moved::State::closed);
}

TEST_F(StagesOfAThread, WaitForTheLimitAndForRoom) {
    down.set_limit(net::TokenTree::everything, 400'000, Clock::now());
    const std::vector<std::byte> text(200'000);
    std::jthread sender([&] {
        for (std::span<const std::byte> rest = text; !rest.empty();) {
            rest = rest.subspan(peer.write(rest).bytes);
            ASSERT_EQ(wait_socket(peer, Interest::write, 10s, stop), Ready::yes);
        }
    });
    const auto start = Clock::now();
    for (std::size_t received = 0; received < text.size();) {
        const Moved moved = stream.read(room, in(10s));
        ASSERT_EQ(moved.state, Moved::State::data);
        received += moved.bytes;
    }
    EXPECT_GE(Clock::now() - start, 400ms);
    sender.join();
    // Nobody reads: the write waits for room until its time is over.
    const std::vector<std::byte> much(std::size_t{64} << 20U);
    EXPECT_EQ(stream.write(much, in(100ms)).code, Code::transient);
}

TEST_F(StagesOfAThread, AStopEndsEveryWait) {
    for (const bool limited : {false, true}) {
        if (limited) {
            down.set_limit(net::TokenTree::everything, 1, Clock::now());
            ASSERT_EQ(peer.write(room).state, IoStep::State::moved);
        }
        StopSource own;
        stream.attach(&own);
        std::jthread stopper([&] {
            std::this_thread::sleep_for(30ms);
            own.request();
        });
        const auto start = Clock::now();
        Moved moved;
        do {
            moved = stream.read(room, in(10s));
        } while (moved.state == Moved::State::data);
        EXPECT_EQ(moved.code, Code::stopped);
        EXPECT_LT(Clock::now() - start, 230ms);
        EXPECT_EQ(stream.write(room, in(10s)).code, Code::stopped);
    }
}

}  // namespace
}  // namespace vantlow
