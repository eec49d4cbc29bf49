#include "bt/mse_stage.h"

#include <gtest/gtest.h>

#include <cstring>

#include "bt/wire.h"
#include "platform/file.h"
#include "platform/process.h"

namespace vantlow {
namespace {

const SecurTable& secur() {
    static const LibraryTables tables = load_libraries(folder_of(program_path()));
    return tables.secur;
}

InfoHash torrent(unsigned char byte) {
    InfoHash hash{};
    hash.fill(std::byte{byte});
    return hash;
}

/// Both roles, with a wire between them that divides the bytes as it likes.
class Pair {
  public:
    Pair(std::uint32_t caller_setting, std::uint32_t called_setting, std::string payload = "hello")
        : caller(secur(), caller_buffer, torrent(2), caller_setting, std::move(payload)),
          called(secur(), called_buffer, {torrent(1), torrent(2), torrent(3)}, called_setting) {}

    /// Runs both until neither goes on; true when both are done.
    bool run(std::size_t step) {
        std::string to_called;
        std::string to_caller;
        MseStep a = caller.advance(to_called);
        MseStep b = MseStep::more;
        while (!to_called.empty() || !to_caller.empty()) {
            b = deliver(to_called, step, called_buffer, called, to_caller, b);
            a = deliver(to_caller, step, caller_buffer, caller, to_called, a);
        }
        return a == MseStep::done && b == MseStep::done;
    }

    PeerBuffer caller_buffer;
    PeerBuffer called_buffer;
    MseExchange caller;
    MseExchange called;

  private:
    static MseStep deliver(std::string& from, std::size_t step, PeerBuffer& buffer, MseExchange& to,
                           std::string& answer, MseStep before) {
        if (from.empty()) return before;
        buffer.append(from.substr(0, step));
        from.erase(0, step);
        return to.advance(answer);
    }
};

TEST(MessageStreamEncryption, BothRolesAgreeHoweverTheBytesAreDivided) {
    ASSERT_NE(secur().DH_Create, nullptr) << "libsecur is not there";
    for (const std::size_t step : {1U, 7U, 96U, 100000U}) {
        for (int round = 0; round < 10; ++round) {
            Pair pair(0, 0, std::string(68, 'p'));
            ASSERT_TRUE(pair.run(step)) << step;
            EXPECT_EQ(pair.called.payload(), std::string(68, 'p'));
            EXPECT_EQ(pair.called.streams().torrent(), torrent(2));
            EXPECT_EQ(pair.caller.streams().method(), 2U);
            // Both directions, in parts that do not match.
            std::string there = pair.caller.streams().write_payload("abc");
            there += pair.caller.streams().write_payload("defgh");
            EXPECT_NE(there, "abcdefgh");
            pair.called_buffer.append(there);
            EXPECT_EQ(pair.called.streams().read_payload(5), "abcde");
            EXPECT_EQ(pair.called.streams().read_payload(500), "fgh");
            pair.caller_buffer.append(pair.called.streams().write_payload("back"));
            EXPECT_EQ(pair.caller.streams().read_payload(4), "back");
        }
    }
}

TEST(MessageStreamEncryption, TheMethodIsTheSettingOrWhatTheOtherSideBears) {
    const struct {
        std::uint32_t caller, called, method;
        bool works;
    } cases[] = {{0, 0, 2, true}, {1, 0, 1, true}, {2, 0, 2, true},  {3, 0, 2, true},  {0, 1, 1, true},
                 {3, 1, 1, true}, {0, 2, 2, true}, {1, 2, 2, false}, {2, 1, 1, false}, {3, 3, 3, true}};
    for (const auto& c : cases) {
        Pair pair(c.caller, c.called);
        EXPECT_EQ(pair.run(1000), c.works) << c.caller << " calls " << c.called;
        EXPECT_EQ(pair.called.streams().method(), c.method) << c.caller << " calls " << c.called;
        if (!c.works || c.method == 2) continue;
        EXPECT_EQ(pair.caller.streams().write_payload("abc"), "abc");
    }
}

// One secret in 256 begins with a zero, which widespread clients leave out of a hash.
TEST(MessageStreamEncryption, ASecretThatIsShortForSomeIsRefusedWhereThatIsWanted) {
    for (int round = 0; round < 5000; ++round) {
        Pair pair(0, 0);
        pair.caller.refuse_short_secret();
        const bool works = pair.run(1000);
        ASSERT_NE(works, pair.caller.streams().has_short_secret());
        if (!works) return;
    }
    FAIL() << "no secret was short";
}

// What stands in a request of this side, seen by a step-by-step receiver.
TEST(MessageStreamEncryption, PaddingStaysWithinItsBoundsAndVaries) {
    std::size_t least = 1000;
    std::size_t most = 0;
    for (int round = 0; round < 60; ++round) {
        PeerBuffer buffer;
        CBTMSE mse(secur(), buffer);
        std::string out;
        ASSERT_EQ(mse.send_public_key(out), MseStep::done);
        ASSERT_GE(out.size(), CBTMSE::key_size);
        least = std::min(least, out.size() - CBTMSE::key_size);
        most = std::max(most, out.size() - CBTMSE::key_size);
    }
    EXPECT_LE(most, CBTMSE::longest_padding);
    EXPECT_GT(most, 300U);
    EXPECT_LT(least, 200U);
}

// The longest padding that others send, and a constant that comes in two parts.
TEST(MessageStreamEncryption, FindsTheConstantBehind512BytesAndNotBehindMore) {
    for (const std::size_t padding : {std::size_t{0}, std::size_t{512}, std::size_t{513}}) {
        PeerBuffer b_in;
        CBTMSE b(secur(), b_in);
        PeerBuffer a_in;
        MseExchange a(secur(), a_in, torrent(1), 0, "");
        std::string to_b;
        ASSERT_EQ(a.advance(to_b), MseStep::more);
        std::string yb;
        ASSERT_EQ(b.send_public_key(yb), MseStep::done);
        a_in.append(yb.substr(0, CBTMSE::key_size));
        ASSERT_EQ(a.advance(to_b), MseStep::more);
        b_in.append(to_b);
        ASSERT_EQ(b.receive_ya(), MseStep::done);
        const InfoHash known[] = {torrent(1)};
        ASSERT_EQ(b.find_request(known), MseStep::done);
        std::uint16_t pad = 0;
        std::string answer;
        ASSERT_EQ(b.answer(0, pad, answer), MseStep::done);
        a_in.append(std::string(padding, 'x'));
        const MseStep before = a.advance(to_b);
        if (before == MseStep::more) a_in.append(answer.substr(0, 3));
        if (before == MseStep::more && a.advance(to_b) == MseStep::more) a_in.append(answer.substr(3));
        EXPECT_EQ(a.advance(to_b), padding <= 512 ? MseStep::done : MseStep::failed) << padding;
    }
}

TEST(MessageStreamEncryption, GarbageEndsTheExchangeWithinItsBounds) {
    std::string out;
    PeerBuffer buffer;
    MseExchange called(secur(), buffer, {torrent(1)}, 0);
    buffer.append(std::string(96, 'k'));
    EXPECT_EQ(called.advance(out), MseStep::more);
    buffer.append(std::string(512 + 19, 'g'));
    EXPECT_EQ(called.advance(out), MseStep::more);
    buffer.append("g");
    EXPECT_EQ(called.advance(out), MseStep::failed);
    EXPECT_EQ(called.advance(out), MseStep::failed) << "for good";

    PeerBuffer zeroes;
    MseExchange caller(secur(), zeroes, torrent(1), 0, "");
    EXPECT_EQ(caller.advance(out), MseStep::more);
    zeroes.append(std::string(96, '\0'));
    EXPECT_EQ(caller.advance(out), MseStep::failed) << "a key that gives the secret away";

    Pair other(0, 0);
    MseExchange elsewhere(secur(), other.called_buffer, {torrent(7)}, 0);
    std::string to_called;
    other.caller.advance(to_called);
    other.called_buffer.append(to_called.substr(0, 96));
    std::string to_caller;
    EXPECT_EQ(elsewhere.advance(to_caller), MseStep::more);
    other.caller_buffer.append(to_caller);
    std::string request;
    other.caller.advance(request);
    other.called_buffer.append(to_called.substr(96) + request);
    EXPECT_EQ(elsewhere.advance(to_caller), MseStep::failed) << "a torrent that is not here";

    const SecurTable missing;
    MseExchange without(missing, buffer, torrent(1), 0, "");
    EXPECT_EQ(without.advance(out), MseStep::failed);
}

/// A wire between two stages that takes a few bytes at a time.
class Wire {
  public:
    class End final : public net::Stage {
      public:
        End(std::string& in, std::string& out, std::minstd_rand& random)
            : in_(in), out_(out), random_(random) {}
        net::Step read(std::span<std::byte> into, Clock::time_point) override {
            if (in_.empty()) return net::Step::again(net::Wants::readable);
            const std::size_t some = std::min({into.size(), in_.size(), some_bytes()});
            std::memcpy(into.data(), in_.data(), some);
            in_.erase(0, some);
            return net::Step::moved(some);
        }
        net::Step write(std::span<const std::byte> from, Clock::time_point) override {
            if (random_() % 3 == 0) return net::Step::again(net::Wants::writable);
            const std::size_t some = std::min(from.size(), some_bytes());
            out_.append(reinterpret_cast<const char*>(from.data()), some);
            return net::Step::moved(some);
        }

      private:
        std::size_t some_bytes() { return 1 + random_() % 700; }
        std::string& in_;
        std::string& out_;
        std::minstd_rand& random_;
    };

    explicit Wire(std::uint32_t seed) : random(seed) {}

    std::minstd_rand random;
    std::string there;
    std::string back;
    End caller{back, there, random};
    End called{there, back, random};
};

// Writes a text and reads what the other side writes, as far as that goes now.
struct Talker {
    net::Stage& stage;
    std::string text;
    std::string heard{};

    net::Step::State turn(Clock::time_point now) {
        if (!text.empty()) {
            const net::Step step = stage.write(std::as_bytes(std::span(text)), now);
            if (step.state == net::Step::State::moved) text.erase(0, step.bytes);
            if (step.state == net::Step::State::failed) return step.state;
        }
        std::byte room[1000];
        const net::Step step = stage.read(room, now);
        if (step.state == net::Step::State::moved)
            heard.append(reinterpret_cast<const char*>(room), step.bytes);
        return step.state;
    }
};

TEST(MessageStreamEncryption, AStageSpeaksItOverAWireThatTakesAFewBytesAtATime) {
    for (const std::uint32_t setting : {1U, 2U, 3U}) {
        Wire wire(setting);
        MseStage caller(wire.caller, secur(), torrent(2), setting, "hello");
        MseStage called(wire.called, secur(), {torrent(1), torrent(2)}, 0);
        Talker a{caller, std::string(50'000, 'a')};
        Talker b{called, std::string(50'000, 'b')};
        for (int turns = 0; turns < 20'000 && (a.heard.size() < 50'000 || b.heard.size() < 50'005); ++turns) {
            a.turn(Clock::time_point{});
            b.turn(Clock::time_point{});
        }
        EXPECT_EQ(a.heard, std::string(50'000, 'b'));
        EXPECT_EQ(b.heard, "hello" + std::string(50'000, 'a'));
        EXPECT_EQ(caller.streams().method(), setting == 1 ? 1U : 2U);
        EXPECT_EQ(called.streams().torrent(), torrent(2));
    }
    Wire silent(1);
    MseStage waits(silent.caller, secur(), torrent(2), 0, "");
    Talker talker{waits, "x"};
    const Clock::time_point begin{std::chrono::hours(1)};
    EXPECT_EQ(talker.turn(begin), net::Step::State::again);
    EXPECT_EQ(talker.turn(begin + MseExchange::patience + std::chrono::seconds(1)), net::Step::State::failed);
    Wire foreign(2);
    foreign.there = "GET / HTTP/1.1\r\n" + std::string(2000, 'x');
    MseStage refuses(foreign.called, secur(), {torrent(2)}, 0);
    Talker other{refuses, ""};
    auto state = net::Step::State::again;
    for (int turns = 0; turns < 100 && state != net::Step::State::failed; ++turns) state = other.turn(begin);
    EXPECT_EQ(state, net::Step::State::failed);
}

}  // namespace
}  // namespace vantlow
