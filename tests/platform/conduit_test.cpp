#include "platform/conduit.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include "base/text.h"
#include "support/content.h"
#include "support/fault_hook.h"
#include "support/temp_folder.h"

namespace vantlow::test {
namespace {

using namespace std::chrono_literals;

/// A connection whose other end sends a content and closes.
class ConduitTest : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(start_sockets());
        if (!conduit.open()) GTEST_SKIP() << "This system has no conduits.";
        auto listener = TcpListener::listen(*SocketAddress::from_literal("127.0.0.1", 0));
        ASSERT_TRUE(listener.ok());
        auto begun = TcpSocket::begin_connect(*listener->address());
        ASSERT_TRUE(begun.ok());
        client = *std::move(begun);
        auto accepted = listener->accept(10s, stop);
        ASSERT_TRUE(accepted.ok());
        sender = std::thread([this, socket = *std::move(accepted)]() mutable {
            auto left = std::as_bytes(std::span(content));
            while (!left.empty() && wait_socket(socket, Interest::write, 10s, stop) == Ready::yes) {
                const IoStep step = socket.write(left.first(std::min<std::size_t>(left.size(), 70'001)));
                if (step.state == IoStep::State::failed) break;  // the test has seen enough
                left = left.subspan(step.bytes);
            }
        });
        ASSERT_TRUE(file.open(path, OpenMode::truncate).ok());
    }
    void TearDown() override {
        client.close();
        if (sender.joinable()) sender.join();
    }
    /// The next bytes; 0 at the end.
    std::size_t receive(std::size_t most) {
        for (;;) {
            const IoStep step = conduit.receive(client, most);
            if (step.state == IoStep::State::moved) return step.bytes;
            if (step.state != IoStep::State::would_block) return 0;
            if (wait_socket(client, Interest::read, 10s, stop) != Ready::yes) return 0;
        }
    }

    const std::string content = make_content(11, 3'000'017);
    TempFolder folder;
    const std::u16string path = folder.path(u"file");
    StopSource stop;
    Conduit conduit;
    TcpSocket client;
    std::thread sender;
    File file;
};

// Some bytes go to the file, and those behind them into memory, as where a segment is cut.
TEST_F(ConduitTest, WhatASocketReceivesIsWrittenOrTakenInItsOrder) {
    std::string seen(content.size(), '\0');
    std::size_t at = 0;
    for (std::size_t got = receive(1'000'000); got > 0; got = receive(at % 7 * 50'000 + 1)) {
        ASSERT_EQ(conduit.filled(), got);
        ASSERT_LE(at + got, content.size());
        const std::size_t written = got - got / 3;
        ASSERT_TRUE(conduit.write_to(file, static_cast<std::int64_t>(at), written).ok());
        std::size_t read = 0;
        ASSERT_TRUE(file.read_at(static_cast<std::int64_t>(at),
                                 std::as_writable_bytes(std::span(seen).subspan(at, written)), read)
                        .ok());
        ASSERT_EQ(read, written);
        ASSERT_TRUE(
            conduit.take(std::as_writable_bytes(std::span(seen).subspan(at + written, got - written))));
        ASSERT_EQ(conduit.filled(), 0U);
        at += got;
    }
    EXPECT_EQ(at, content.size());
    EXPECT_TRUE(seen == content);
    EXPECT_FALSE(conduit.is_useless());
}

TEST_F(ConduitTest, AFullDiskIsToldAndEmptiesIt) {
    ASSERT_GT(receive(200'000), 0U);
    FullDisk disk(1);
    const HookInPlace hook(disk);
    EXPECT_EQ(conduit.write_to(file, 0, conduit.filled()).fault, FileFault::no_space);
    EXPECT_EQ(conduit.filled(), 0U);
    EXPECT_EQ(file.size(), 0);
    ASSERT_TRUE(conduit.open()) << "the next connection of the same segment needs one";
    EXPECT_GT(receive(200'000), 0U);
}

}  // namespace
}  // namespace vantlow::test
