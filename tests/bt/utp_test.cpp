// uTP between two ports of this machine: over a path that loses, beside TCP, and from those who mean no good.
#include <gtest/gtest.h>

#include <map>
#include <random>

#include "bt/ip_filter.h"
#include "bt/peer_network.h"
#include "bt/wire.h"
#include "net/loop.h"
#include "platform/file.h"
#include "platform/process.h"
#include "support/content.h"
#include "support/network/stream_pump.h"

namespace vantlow {
namespace {

using namespace std::chrono_literals;
using test::StreamPump;

const LibraryTables& libraries() {
    static const LibraryTables tables = load_libraries(folder_of(program_path()));
    return tables;
}

/// Passes datagrams between whoever sends first to it and one port, each way; loses some.
class Relay {
  public:
    Relay(net::Network& network, const SocketAddress& to, int lost_of_hundred)
        : to_(to),
          lost_(lost_of_hundred),
          outer_(*network.bind(*SocketAddress::from_literal("127.0.0.1", 0))),
          inner_(*network.bind(*SocketAddress::from_literal("127.0.0.1", 0))) {
        pass(*outer_);
        pass(*inner_);
    }
    [[nodiscard]] SocketAddress address() const { return *outer_->address(); }
    int dropped = 0;

  private:
    void pass(net::Datagrams& datagrams) {
        std::array<std::byte, 2048> room;
        SocketAddress from;
        for (auto step = datagrams.receive(room, from); step.state == net::Step::State::moved;
             step = datagrams.receive(room, from)) {
            const bool is_outer = &datagrams == outer_.get();
            if (is_outer) back_ = from;
            if (static_cast<int>(chance_() % 100) < lost_) {
                ++dropped;
                continue;
            }
            static_cast<void>((is_outer ? inner_ : outer_)
                                  ->send(std::span(room).first(step.bytes), is_outer ? to_ : back_));
        }
        datagrams.when_readable([this, &datagrams] { pass(datagrams); });
    }
    const SocketAddress to_;
    SocketAddress back_;
    const int lost_;
    std::minstd_rand chance_{7};
    std::unique_ptr<net::Datagrams> outer_;
    std::unique_ptr<net::Datagrams> inner_;
};

class Utp : public testing::Test {
  protected:
    void SetUp() override {
        if (libraries().btdht.UTP_Srv_Init == nullptr) GTEST_SKIP() << "libBTDHT has no uTP";
        ASSERT_TRUE(here_.open(0, {}).ok());
        auto listener = loop_->listen(*SocketAddress::from_literal("127.0.0.1", 0), 8);
        ASSERT_TRUE(listener.ok());
        listener_ = *std::move(listener);
        at_ = *listener_->address();
        ASSERT_TRUE(
            there_.open(at_.port(), [this](auto stream) { callers_.push_back(std::move(stream)); }).ok());
    }
    bool run_until(const std::function<bool()>& done, std::chrono::milliseconds at_most = 20s) {
        for (const auto end = Clock::now() + at_most; !done() && Clock::now() < end;)
            static_cast<void>(loop_->run_one(std::min<std::chrono::milliseconds>(at_most, 50ms)).ok());
        return done();
    }
    /// A stream to there, and that side's.
    std::pair<std::unique_ptr<net::Stream>, std::unique_ptr<net::Stream>> connect(const SocketAddress& to) {
        bool is_there = false;
        auto stream = here_.connect(to, [&](const Result& result) { is_there = result.ok(); });
        EXPECT_TRUE(run_until([&] { return is_there; }));
        const auto hello = stream->write(std::as_bytes(std::span("hello", 5)), loop_->now());
        EXPECT_EQ(hello.bytes, 5U);
        EXPECT_TRUE(run_until([&] { return !callers_.empty(); }));
        if (callers_.empty()) return {};
        auto caller = std::move(callers_.back());
        callers_.pop_back();
        std::array<std::byte, 5> room;
        EXPECT_EQ(caller->read(room, loop_->now()).bytes, 5U);
        return {std::move(stream), std::move(caller)};
    }

    std::unique_ptr<net::Loop> loop_ = *net::make_loop();
    UtpPort here_{libraries().btdht, *loop_};
    UtpPort there_{libraries().btdht, *loop_};
    std::unique_ptr<net::Listener> listener_;
    SocketAddress at_;
    std::vector<std::unique_ptr<net::Stream>> callers_;
};

TEST_F(Utp, CarriesBytesBothWaysAlsoWhereSomeAreLostAndTellsTheEnd) {
    for (const int lost : {0, 3}) {
        Relay relay(*loop_, at_, lost);
        auto [stream, caller] = connect(relay.address());
        ASSERT_TRUE(stream && caller);
        EXPECT_TRUE(stream->is_over_datagrams() && caller->is_over_datagrams());
        StreamPump out(*loop_, std::move(stream));
        StreamPump back(*loop_, std::move(caller));
        const std::string sent = test::make_content(1, lost == 0 ? 3'000'000 : 300'000);
        const std::string answer = test::make_content(2, 200'000);
        out.receive();
        back.receive(sent.size());
        back.send(answer);
        out.send(sent);
        EXPECT_TRUE(run_until(
            [&] { return back.received().size() == sent.size() && out.received().size() == answer.size(); },
            60s))
            << back.received().size() << " " << out.received().size();
        EXPECT_TRUE(back.received() == sent && out.received() == answer) << lost;
        EXPECT_EQ(relay.dropped > 0, lost > 0);
        // What was taken comes although the stream is closed, and then the end.
        back.send("the last words");
        back.stream().close();
        EXPECT_TRUE(run_until([&] { return out.ended(); })) << lost;
        EXPECT_TRUE(out.received().ends_with("the last words"));
    }
}

TEST_F(Utp, AReaderThatDoesNotReadHoldsTheWriterBackAndGetsAllInTheEnd) {
    auto [stream, caller] = connect(at_);
    ASSERT_TRUE(stream && caller);
    StreamPump writer(*loop_, std::move(stream));
    const std::string text = test::make_content(1, 4'000'000);
    writer.send(text);
    run_until([] { return false; }, 2s);
    EXPECT_GT(writer.unsent(), 1'500'000U);
    StreamPump reader(*loop_, std::move(caller));
    reader.receive(text.size());
    EXPECT_TRUE(run_until([&] { return reader.received().size() == text.size(); }, 60s)) << writer.unsent();
    EXPECT_TRUE(reader.received() == text);
}

TEST_F(Utp, IsASecondWayBesideTcpForThoseWhoAreNotBlocked) {
    PeerNetwork network(*loop_, here_);
    IpFilterReader reader;
    reader.feed("127.0.0.1\n");
    const auto blocks_all = std::make_shared<const IpFilter>(reader.finish());
    const struct {
        bool has_tcp, is_blocked, works, over_datagrams;
    } cases[] = {{true, false, true, false}, {false, false, true, true}, {false, true, false, false}};
    for (const auto& c : cases) {
        if (!c.has_tcp) listener_.reset();
        here_.set_filter(c.is_blocked ? blocks_all : nullptr);
        std::optional<Result> result;
        auto stream = network.connect(at_, [&](const Result& r) { result = r; });
        EXPECT_TRUE(run_until([&] { return result.has_value(); }));
        EXPECT_EQ(result && result->ok(), c.works);
        EXPECT_EQ(stream->is_over_datagrams(), c.over_datagrams);
        EXPECT_EQ(stream->peer_address().has_value(), c.works);
    }
    // Whoever asked for it may end it at once, and in its own callback.
    std::unique_ptr<net::Stream> stream = network.connect(at_, [](const Result&) { FAIL(); });
    stream.reset();
    bool is_over = false;
    stream = network.connect(at_, [&](const Result&) {
        stream.reset();
        is_over = true;
    });
    here_.set_filter(nullptr);
    EXPECT_TRUE(run_until([&] { return is_over; }));
}

/// A uTP packet (BEP 29) of a sender that does as it likes.
std::string packet(int type, std::uint16_t connection, std::uint16_t number, std::uint16_t heard,
                   const std::string& bytes = {}) {
    std::string made{static_cast<char>(type << 4 | 1), '\0'};
    put_number(made, connection);
    put_number(made, std::uint32_t{1});
    put_number(made, std::uint32_t{0});
    put_number(made, std::uint32_t{1 << 20});
    put_number(made, number);
    put_number(made, heard);
    return made + bytes;
}

TEST_F(Utp, WhoSendsFarMoreThanHeMayIsLeftAndNonsenseHurtsNobody) {
    auto [stream, caller] = connect(at_);
    ASSERT_TRUE(stream && caller);
    auto rude = *loop_->bind(*SocketAddress::from_literal("127.0.0.1", 0));
    const auto say = [&](const std::string& bytes) {
        static_cast<void>(rude->send(std::as_bytes(std::span(bytes)), at_));
    };
    say(packet(4, 77, 1, 0));
    std::array<std::byte, 2048> room;
    SocketAddress from;
    net::Step step = net::Step::again(net::Wants::readable);
    ASSERT_TRUE(run_until([&] {
        if (step.state != net::Step::State::moved) step = rude->receive(room, from);
        return step.state == net::Step::State::moved;
    }));
    const std::string_view answer(reinterpret_cast<const char*>(room.data()), step.bytes);
    const auto heard = static_cast<std::uint16_t>(get_number<std::uint16_t>(answer, 16) - 1);
    const std::string much(1400, 'x');
    for (std::uint16_t i = 0; i < 4000; ++i) {  // twice, because the system drops some
        say(packet(0, 78, static_cast<std::uint16_t>(2 + i % 2000), heard, much));
        if (i % 10 == 0) run_until([] { return false; }, 1ms);
    }
    ASSERT_TRUE(run_until([&] { return !callers_.empty(); }));
    StreamPump reader(*loop_, std::move(callers_.back()));
    callers_.clear();
    run_until([] { return false; }, 1s);
    reader.receive();
    EXPECT_EQ(reader.error(), -1);
    EXPECT_LE(reader.received().size(), 2'500'000U) << "held for a peer that keeps to no window";

    // Nonsense, and packets of the right form with random contents, beside a connection that goes on.
    std::minstd_rand chance(3);
    for (int i = 0; i < 20'000; ++i) {
        std::string bytes =
            i % 2 == 0 ? packet(static_cast<int>(chance() % 6), static_cast<std::uint16_t>(76 + chance() % 4),
                                static_cast<std::uint16_t>(chance() % 1000), heard)
                       : std::string();
        const std::size_t more = chance() % 60;
        for (std::size_t n = 0; n < more; ++n) bytes += static_cast<char>(chance());
        if (bytes.size() > 1 && chance() % 2 == 0) bytes[1] = static_cast<char>(chance() % 4);
        say(bytes);
        if (i % 50 == 0) static_cast<void>(loop_->run_one(0ms).ok());
    }
    StreamPump out(*loop_, std::move(stream));
    StreamPump back(*loop_, std::move(caller));
    const std::string text = test::make_content(5, 500'000);
    back.receive(text.size());
    out.send(text);
    EXPECT_TRUE(run_until([&] { return back.received().size() == text.size(); }));
    EXPECT_TRUE(back.received() == text);
}

}  // namespace
}  // namespace vantlow
