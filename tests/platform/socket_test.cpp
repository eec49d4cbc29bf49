#include "platform/socket.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <thread>

#include "platform/library.h"
#include "platform/process.h"

namespace vantlow {
namespace {

using namespace std::chrono_literals;

constexpr std::chrono::milliseconds patience = 10s;
constexpr std::chrono::milliseconds stop_budget = 200ms;

std::span<const std::byte> bytes_of(std::string_view text) {
    return std::as_bytes(std::span(text));
}

SocketAddress loopback(std::uint16_t port = 0) {
    return *SocketAddress::from_literal("127.0.0.1", port);
}

template <class Call>
std::chrono::milliseconds time_of(Call call) {
    const auto before = Clock::now();
    call();
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - before);
}

// Wine sends an end in front of every reset, and the peer may see that first.
bool sends_end_before_reset() {
    Library system;
    const std::u16string folder = environment("SystemRoot").value_or(u"");
    return system.load(folder + u"\\System32\\ntdll.dll") && system.find("wine_get_version") != nullptr;
}

class Sockets : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(start_sockets());
        auto made = TcpListener::listen(loopback());
        ASSERT_TRUE(made.ok()) << made.failure().message();
        listener = *std::move(made);
        port = listener.address()->port();
    }

    void connect() {
        auto begun = TcpSocket::begin_connect(loopback(port));
        ASSERT_TRUE(begun.ok()) << begun.failure().message();
        client = *std::move(begun);
        ASSERT_EQ(wait_socket(client, Interest::write, patience, stop), Ready::yes);
        ASSERT_EQ(client.connect_error(), 0);
        auto accepted = listener.accept(patience, stop);
        ASSERT_TRUE(accepted.ok()) << accepted.failure().message();
        server = *std::move(accepted);
    }

    Ready wait_read(std::chrono::milliseconds at_most = patience) {
        return wait_socket(client, Interest::read, at_most, stop);
    }

    /// Waits and reads until so many bytes are there, or nothing more comes.
    std::string receive(std::size_t count) {
        std::string text;
        std::array<std::byte, 4096> space{};
        while (text.size() < count && wait_read() == Ready::yes) {
            const IoStep step =
                client.read(std::span(space).first(std::min(space.size(), count - text.size())));
            if (step.state == IoStep::State::would_block) continue;
            if (step.state != IoStep::State::moved) break;
            text.append(reinterpret_cast<const char*>(space.data()), step.bytes);
        }
        return text;
    }

    /// Sends until the system takes no more; how many bytes it took.
    std::size_t fill(TcpSocket& socket) {
        const std::vector<std::byte> block(65536);
        std::size_t sent = 0;
        int refusals = 0;
        while (refusals < 3) {
            const IoStep step = socket.write(block);
            EXPECT_NE(step.state, IoStep::State::failed);
            if (step.state == IoStep::State::failed) break;
            sent += step.bytes;
            // What is on the way to the peer's buffer may still make room.
            if (step.state == IoStep::State::would_block) {
                refusals = wait_socket(socket, Interest::write, 50ms, stop) == Ready::yes ? 0 : refusals + 1;
            }
        }
        return sent;
    }

    StopSource stop;
    TcpListener listener;
    std::uint16_t port = 0;
    TcpSocket client;
    TcpSocket server;
};

TEST_F(Sockets, BytesGoBothWaysAndTheEndIsSeen) {
    connect();
    EXPECT_EQ(client.peer_address(), loopback(port));
    EXPECT_EQ(client.local_address(), server.peer_address());
    ASSERT_EQ(client.write(bytes_of("ping")).bytes, 4U);
    std::array<std::byte, 8> space{};
    ASSERT_EQ(wait_socket(server, Interest::read, patience, stop), Ready::yes);
    EXPECT_EQ(server.read(space).bytes, 4U);
    EXPECT_EQ(std::memcmp(space.data(), "ping", 4), 0);
    EXPECT_EQ(server.read(space).state, IoStep::State::would_block);
    ASSERT_EQ(server.write(bytes_of("pong")).bytes, 4U);
    server.close();
    EXPECT_EQ(receive(100), "pong");
    EXPECT_EQ(client.read(space).state, IoStep::State::closed);
}

TEST_F(Sockets, AWaitAnswersForAsLongAsSomethingIsUnread) {
    connect();
    std::array<std::byte, 4> space{};
    server.write(bytes_of("abcdefgh"));
    ASSERT_EQ(wait_read(), Ready::yes);
    EXPECT_EQ(wait_read(), Ready::yes) << "nothing was read in between";
    ASSERT_EQ(client.read(space).bytes, 4U);
    EXPECT_EQ(wait_read(), Ready::yes) << "half of it is left";
    ASSERT_EQ(client.read(space).bytes, 4U);
    EXPECT_EQ(wait_read(0ms), Ready::timeout);
    server.write(bytes_of("x"));
    ASSERT_EQ(wait_read(), Ready::yes) << "new bytes after a wait that found none";
    ASSERT_EQ(client.read(space).bytes, 1U);
    server.close();
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(wait_read(), Ready::yes) << "the end is told every time";
        EXPECT_EQ(client.read(space).state, IoStep::State::closed);
    }
}

TEST_F(Sockets, AWaitForRoomEndsWhenThePeerReads) {
    connect();
    const std::size_t sent = fill(server);
    ASSERT_GT(sent, 0U);
    EXPECT_EQ(wait_socket(server, Interest::write, 50ms, stop), Ready::timeout);
    std::thread reader([&] { EXPECT_EQ(receive(sent).size(), sent); });
    EXPECT_EQ(wait_socket(server, Interest::write, patience, stop), Ready::yes);
    EXPECT_EQ(wait_socket(server, Interest::write, patience, stop), Ready::yes);
    reader.join();
}

TEST_F(Sockets, AWaitEndsInTime) {
    connect();
    Ready ready = Ready::failed;
    const auto time = time_of([&] { ready = wait_read(60ms); });
    EXPECT_EQ(ready, Ready::timeout);
    EXPECT_GE(time, 60ms);
    EXPECT_LT(time, 2s);
}

TEST_F(Sockets, AStopEndsEveryWaitAtOnce) {
    connect();
    fill(client);
    const auto stopped_after = [](auto wait) {
        StopSource application;
        StopSource job(application);
        Clock::time_point requested;
        std::thread stopper([&] {
            std::this_thread::sleep_for(30ms);
            requested = Clock::now();
            application.request();
        });
        EXPECT_TRUE(wait(job));
        const auto ended = Clock::now();
        stopper.join();
        EXPECT_EQ(job.reason(), Code::stopped);
        return ended - requested;
    };
    const auto waits_for = [&](Interest interest) {
        return [this, interest](const StopSource& job) {
            return wait_socket(client, interest, std::chrono::milliseconds(-1), job) == Ready::stopped;
        };
    };
    EXPECT_LT(stopped_after(waits_for(Interest::read)), stop_budget);
    EXPECT_LT(stopped_after(waits_for(Interest::write)), stop_budget);
    EXPECT_LT(stopped_after([](const StopSource& job) { return job.wait_for(patience); }), stop_budget);
    EXPECT_LT(stopped_after([this](const StopSource& job) {
                  return listener.accept(patience, job).failure().code == Code::stopped;
              }),
              stop_budget);
}

TEST_F(Sockets, AStopWinsOverAReadySocketAndStays) {
    connect();
    server.write(bytes_of("x"));
    ASSERT_EQ(wait_read(), Ready::yes);
    stop.request(Code::handed_over);
    stop.request(Code::stopped);
    EXPECT_EQ(stop.reason(), Code::handed_over) << "the first reason stays";
    for (int i = 0; i < 2; ++i) EXPECT_EQ(wait_read(), Ready::stopped);
    const StopSource late(stop);
    EXPECT_EQ(wait_socket(client, Interest::read, patience, late), Ready::stopped)
        << "made after the request";
    EXPECT_EQ(late.reason(), Code::handed_over);
}

TEST_F(Sockets, ARefusedConnectionSaysSo) {
    listener.close();
    auto begun = TcpSocket::begin_connect(loopback(port));
    int error = begun.failure().system_error;
    if (begun.ok()) {
        ASSERT_EQ(wait_socket(*begun, Interest::write, patience, stop), Ready::yes);
        error = begun->connect_error();
    }
    EXPECT_EQ(socket_fault(error), SocketFault::refused) << error << ": " << socket_error_text(error);
    EXPECT_FALSE(socket_error_text(error).empty());
}

TEST_F(Sockets, AnIdleConnectionIsQuietUntilSomethingComes) {
    connect();
    EXPECT_TRUE(client.is_quiet());
    server.write(bytes_of("x"));
    ASSERT_EQ(wait_read(), Ready::yes);
    EXPECT_FALSE(client.is_quiet());
    EXPECT_EQ(receive(1), "x") << "looking takes nothing away";
    EXPECT_TRUE(client.is_quiet());
    server.close();
    ASSERT_EQ(wait_read(), Ready::yes);
    EXPECT_FALSE(client.is_quiet());
}

TEST_F(Sockets, AResetReachesThePeerInsteadOfAnEnd) {
    connect();
    client.write(bytes_of("unread"));
    server.close_with_reset();
    EXPECT_FALSE(server.is_open());
    ASSERT_EQ(wait_read(), Ready::yes);
    std::array<std::byte, 8> space{};
    const IoStep step = client.read(space);
    if (step.state != IoStep::State::closed || !sends_end_before_reset()) {
        ASSERT_EQ(step.state, IoStep::State::failed);
        EXPECT_EQ(socket_fault(step.system_error), SocketFault::reset);
    }
    EXPECT_EQ(client.write(bytes_of("x")).state, IoStep::State::failed) << "and no signal";
}

TEST_F(Sockets, OfSeveralSocketsTheReadyOnesAreMarked) {
    connect();
    TcpSocket quiet = std::move(client);
    const TcpSocket other_end = std::move(server);
    connect();
    TcpSocket closed;
    server.write(bytes_of("x"));
    std::array<SocketWait, 2> waits{SocketWait{&quiet, Interest::read, true},
                                    SocketWait{&client, Interest::read, false}};
    ASSERT_EQ(wait_sockets(waits, patience, stop), Ready::yes);
    EXPECT_FALSE(waits[0].ready);
    EXPECT_TRUE(waits[1].ready);
    receive(1);
    EXPECT_EQ(wait_sockets(waits, 20ms, stop), Ready::timeout);
    waits[0].interest = Interest::write;
    ASSERT_EQ(wait_sockets(waits, patience, stop), Ready::yes);
    EXPECT_TRUE(waits[0].ready);
    EXPECT_FALSE(waits[1].ready);
    waits[0].socket = &closed;
    EXPECT_EQ(wait_sockets(waits, patience, stop), Ready::yes)
        << "a socket that is not open must not wait for ever";
}

TEST_F(Sockets, AnAcceptEndsWithoutAConnection) {
    EXPECT_EQ(listener.accept(30ms, stop).failure().code, Code::transient);
}

TEST(SocketAddresses, AreReadFromLiteralsOnly) {
    const auto v4 = SocketAddress::from_literal("192.0.2.7", 8080);
    ASSERT_TRUE(v4);
    EXPECT_FALSE(v4->is_ipv6());
    EXPECT_EQ(v4->port(), 8080);
    EXPECT_EQ(v4->host(), "192.0.2.7");
    EXPECT_EQ(v4->ipv4(), (std::array<std::uint8_t, 4>{192, 0, 2, 7}));
    auto v6 = SocketAddress::from_literal("2001:DB8::0:1", 443);
    ASSERT_TRUE(v6);
    EXPECT_TRUE(v6->is_ipv6());
    EXPECT_EQ(v6->host(), "2001:db8::1");
    EXPECT_EQ(v6->ipv4(), (std::array<std::uint8_t, 4>{}));
    EXPECT_EQ(*v6, *SocketAddress::from_literal("2001:db8:0::1", 443));
    v6->set_port(80);
    EXPECT_EQ(v6->port(), 80);
    EXPECT_NE(*v6, *SocketAddress::from_literal("2001:db8::1", 443));
    for (const char* text :
         {"", "localhost", "127.1", "1.2.3.4.5", "256.1.1.1", "[::1]", "1.2.3.4 ", ":::", "0x7f000001"}) {
        EXPECT_FALSE(SocketAddress::from_literal(text, 1)) << text;
    }
}

}  // namespace
}  // namespace vantlow
