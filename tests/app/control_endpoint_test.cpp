// The endpoint of the control API and those who do not go on: each of them is ended when its time is over.
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "app/rpc/endpoint.h"
#include "platform/socket.h"
#include "platform/stop.h"

namespace vantlow {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr std::size_t large = std::size_t{64} * 1024 * 1024;  // more than a socket's buffers hold
constexpr std::string_view head = "POST /jsonrpc HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Length: ";

class ControlEndpoint : public testing::Test {
  protected:
    /// Every request is answered with this many bytes; with none of them it waits in kept_.
    void open(EndpointPatience patience, std::size_t answer = 1) {
        ASSERT_TRUE(start_sockets());
        ControlConfig config;
        config.enabled = true;
        config.addresses = {"127.0.0.1"};
        config.largest_request = std::size_t{1024} * 1024;
        auto opened = Endpoint::open(
            config,
            [this, answer](rpc::Run run, const Endpoint::Answered& answered) {
                if (answer == 0) return keep(answered);
                run.answers.emplace_back(rpc::Json(std::string(answer, 'x')));
                answered(std::move(run));
            },
            patience);
        ASSERT_TRUE(opened.ok()) << opened.failure().message();
        endpoint_ = *std::move(opened);
        const std::string& place = endpoint_->places().front();
        const auto port = static_cast<std::uint16_t>(std::stoi(place.substr(place.rfind(':') + 1)));
        auto begun = TcpSocket::begin_connect(*SocketAddress::from_literal("127.0.0.1", port));
        ASSERT_TRUE(begun.ok());
        client_ = *std::move(begun);
        ASSERT_EQ(wait_socket(client_, Interest::write, 10s, stop_), Ready::yes);
        began_ = Clock::now();
    }

    void keep(const Endpoint::Answered& answered) {
        const std::lock_guard guard(kept_mutex_);
        kept_.push_back(answered);
    }
    std::size_t kept() {
        const std::lock_guard guard(kept_mutex_);
        return kept_.size();
    }
    bool send(std::string_view text) {
        const IoStep step = client_.write(std::as_bytes(std::span(text)));
        return step.state == IoStep::State::moved && step.bytes == text.size();
    }
    /// Reads until this text comes; false where the end comes first, or ten seconds are over.
    bool read_until(std::string_view text) {
        while (seen_.find(text) == std::string::npos) {
            if (!read_some(10s)) return false;
        }
        return true;
    }
    /// The time from the beginning until the endpoint ends the connection; ten seconds where it does not.
    Clock::duration ended_after() {
        while (Clock::now() - began_ < 10s && read_some(10s)) {
        }
        return Clock::now() - began_;
    }
    bool read_some(std::chrono::milliseconds at_most) {
        std::array<std::byte, 65536> bytes{};
        if (wait_socket(client_, Interest::read, at_most, stop_) != Ready::yes) return false;
        const IoStep step = client_.read(bytes);
        if (step.state == IoStep::State::would_block) return true;
        if (step.state != IoStep::State::moved) return false;
        seen_.append(reinterpret_cast<const char*>(bytes.data()), step.bytes);
        return true;
    }
    void open_websocket() {
        ASSERT_TRUE(
            send("GET /jsonrpc HTTP/1.1\r\nHost: 127.0.0.1\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
                 "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n\r\n"));
        ASSERT_TRUE(read_until("\r\n\r\n"));
        ASSERT_NE(seen_.find(" 101 "), std::string::npos);
        seen_.clear();
        began_ = Clock::now();
    }

    // A WebSocket is quite open a moment after its opening answer: until then nothing is for it.
    void hear_notification() {
        for (int i = 0; i < 500 && seen_.empty(); ++i) {
            endpoint_->notify("first");
            static_cast<void>(read_some(20ms));
        }
    }

    StopSource stop_;
    std::mutex kept_mutex_;
    std::vector<Endpoint::Answered> kept_;
    std::unique_ptr<Endpoint> endpoint_;
    TcpSocket client_;
    std::string seen_;
    Clock::time_point began_;
};

TEST_F(ControlEndpoint, a_head_that_never_ends_does_not_get_longer_by_going_on) {
    open({.idle = 300ms});
    ASSERT_TRUE(send("POST /jsonrpc HTTP/1.1\r\nX: "));
    while (Clock::now() - began_ < 10s && !read_some(20ms) && send("x")) {
    }
    EXPECT_GE(Clock::now() - began_, 250ms);
    EXPECT_LT(Clock::now() - began_, 5s);
}

TEST_F(ControlEndpoint, it_ends_while_a_request_waits_for_its_answer) {
    open({}, 0);
    const std::string body = R"({"jsonrpc":"2.0","id":1,"method":"aria2.getVersion","params":[]})";
    ASSERT_TRUE(send(std::string(head) + std::to_string(body.size()) + "\r\n\r\n" + body));
    while (kept() == 0 && Clock::now() - began_ < 10s) std::this_thread::sleep_for(5ms);
    ASSERT_EQ(kept(), 1U);
    endpoint_.reset();
    kept_[0](rpc::Run());  // too late: nobody hears it
    kept_.clear();
}

TEST_F(ControlEndpoint, a_body_that_never_ends_has_its_own_time) {
    open({.idle = 10s, .transfer = 300ms});
    ASSERT_TRUE(send(std::string(head) + "100\r\n\r\n{"));
    const auto after = ended_after();
    EXPECT_GE(after, 250ms);
    EXPECT_LT(after, 5s);
    EXPECT_TRUE(seen_.empty());
}

TEST_F(ControlEndpoint, an_answer_that_is_not_taken_ends_its_connection) {
    open({.transfer = 300ms}, large);
    ASSERT_TRUE(send(std::string(head) + "27\r\n\r\n" + R"({"id":1,"method":"a","b":1})"));
    ASSERT_TRUE(read_until("200 OK"));
    std::this_thread::sleep_for(1s);  // meanwhile nothing is read
    static_cast<void>(ended_after());
    EXPECT_LT(seen_.size(), large);
}

TEST_F(ControlEndpoint, a_connection_that_asks_for_nothing_more_is_ended) {
    open({.idle = 300ms});
    ASSERT_TRUE(send(std::string(head) + "27\r\n\r\n" + R"({"id":1,"method":"a","b":1})"));
    ASSERT_TRUE(read_until("\"result\""));
    EXPECT_LT(ended_after(), 5s);
    EXPECT_NE(seen_.find("200 OK"), std::string::npos);
}

TEST_F(ControlEndpoint, a_websocket_that_gives_no_sign_is_ended) {
    open({.silence = 600ms});
    open_websocket();
    const auto after = ended_after();
    EXPECT_GE(after, 500ms);
    EXPECT_LT(after, 5s);
    EXPECT_EQ(seen_.substr(0, 1), "\x89");  // it was asked for one
}

// A notification that comes while the WebSocket is being opened is not written into that answer.
TEST_F(ControlEndpoint, a_websocket_hears_notifications_once_it_is_open) {
    open({});
    open_websocket();
    hear_notification();
    EXPECT_EQ(seen_.substr(0, 7),
              "\x81\x05"
              "first");
}

// Neither does it hold a mebibyte for somebody who reads nothing, nor wait until the silence is over.
TEST_F(ControlEndpoint, a_websocket_that_reads_no_notification_is_ended) {
    open({});
    open_websocket();
    hear_notification();
    ASSERT_FALSE(seen_.empty());
    began_ = Clock::now();
    const std::string text(std::size_t{512} * 1024, 'x');
    for (int i = 0; i < 40; ++i) endpoint_->notify(text);
    std::this_thread::sleep_for(1s);  // so long nothing is read
    EXPECT_LT(ended_after(), 5s);
    EXPECT_LT(seen_.size(), 40 * text.size());
}

}  // namespace
}  // namespace vantlow
