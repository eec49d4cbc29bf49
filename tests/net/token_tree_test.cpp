#include "net/token_tree.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <numeric>
#include <thread>

#include "net/shared_tokens.h"

namespace vantlow::net {
namespace {

using namespace std::chrono_literals;

/// Users that take what they are granted, in a time that is moved by hand.
class Tokens : public testing::Test {
  protected:
    struct Peer {
        TokenTree::User user = 0;
        double speed = 1e12;  ///< bytes a second that its own line brings
        double brought = 0;   ///< of them, not taken yet
        std::int64_t taken = 0;
        Clock::time_point next{};
        bool asks = true;
    };

    Peer& add(TokenTree::Group group, double speed = 1e12) {
        peers.push_back({.user = tree.add_user(group), .speed = speed});
        return peers.back();
    }
    /// Lets everybody take for so long; what they took before is forgotten.
    void run(std::chrono::milliseconds time) {
        for (Peer& peer : peers) peer.taken = 0;
        for (const auto end = now + time; now < end; now += 1ms) {
            for (Peer& peer : peers) step(peer);
        }
    }
    void step(Peer& peer) {
        peer.brought = std::min(peer.brought + peer.speed / 1000, 1e6);
        for (int i = 0; i < 64 && peer.asks && now >= peer.next && peer.brought >= 1; ++i) take(peer);
    }
    void take(Peer& peer) {
        const TokenTree::Grant grant = tree.take(peer.user, 16384, now);
        if (grant.bytes == 0) {
            ASSERT_GT(grant.not_before, now);
            ASSERT_LE(grant.not_before, now + 100ms);
            peer.next = grant.not_before;
            return;
        }
        const std::size_t used = std::min(grant.bytes, static_cast<std::size_t>(peer.brought));
        tree.give_back(peer.user, grant.bytes - used);
        peer.brought -= static_cast<double>(used);
        peer.taken += static_cast<std::int64_t>(used);
    }
    /// All together, in bytes a second.
    double rate(std::chrono::milliseconds time) const {
        const auto sum = [](std::int64_t s, const Peer& peer) { return s + peer.taken; };
        return static_cast<double>(std::accumulate(peers.begin(), peers.end(), std::int64_t{0}, sum)) * 1000 /
               static_cast<double>(time.count());
    }
    static void expect_near(double value, double expected, double share = 0.03) {
        EXPECT_NEAR(value, expected, expected * share);
    }
    double rate_of(std::size_t peer) const { return static_cast<double>(peers[peer].taken) / 5; }

    Clock::time_point now = Clock::time_point(1h);
    TokenTree tree{now};
    std::vector<Peer> peers;
};

TEST_F(Tokens, WithoutALimitEverythingIsGranted) {
    const auto job = tree.add_group(tree.add_group(TokenTree::everything));
    const auto user = tree.add_user(job);
    EXPECT_EQ(tree.take(user, 1U << 30U, now).bytes, 1U << 30U);
    tree.set_limit(job, 1000, now);
    EXPECT_EQ(tree.take(user, 1U << 30U, now).bytes, 0U);
    tree.set_limit(job, 0, now);
    EXPECT_EQ(tree.take(user, 1U << 30U, now).bytes, 1U << 30U);
}

TEST_F(Tokens, ALimitIsKeptAndSharedEqually) {
    struct Row {
        std::int64_t limit;
        std::size_t users;
    };
    for (const Row& row :
         {Row{1000, 1}, Row{10'000, 3}, Row{1'000'000, 1}, Row{1'000'000, 7}, Row{100'000'000, 4},
          Row{2'000'000, 2000}, Row{20'000, 2000}, Row{1'000'000'000, 2}}) {
        SCOPED_TRACE(testing::Message() << row.limit << " for " << row.users);
        tree = TokenTree(now);
        peers.clear();
        tree.set_limit(TokenTree::everything, row.limit, now);
        for (std::size_t i = 0; i < row.users; ++i) add(TokenTree::everything);
        run(5s);
        expect_near(rate(5s), static_cast<double>(row.limit));
        const double share = static_cast<double>(row.limit) / static_cast<double>(row.users);
        for (std::size_t i = 0; i < row.users; ++i) {
            ASSERT_NEAR(rate_of(i), share, std::max(share * 0.05, 0.5)) << i;
        }
    }
}

TEST_F(Tokens, UnusedSharesGoToThoseWhoWantMore) {
    tree.set_limit(TokenTree::everything, 1'000'000, now);
    add(TokenTree::everything, 50'000);
    add(TokenTree::everything);
    add(TokenTree::everything);
    add(TokenTree::everything).asks = false;
    run(5s);
    expect_near(rate(5s), 1'000'000);
    expect_near(rate_of(0), 50'000);
    expect_near(rate_of(1), 475'000, 0.05);
    expect_near(rate_of(2), 475'000, 0.05);
    // The idle one wakes up, and one of the others sleeps.
    peers[3].asks = true;
    peers[2].asks = false;
    run(5s);
    expect_near(rate(5s), 1'000'000);
    expect_near(rate_of(1), 475'000, 0.07);
    expect_near(rate_of(3), 475'000, 0.07);
}

TEST_F(Tokens, OneThatWantsAllGetsWhatTwoThousandLeave) {
    tree.set_limit(TokenTree::everything, 4'000'000, now);
    add(TokenTree::everything);
    for (int i = 0; i < 1999; ++i) add(TokenTree::everything, 200);
    run(2s);
    run(5s);
    expect_near(rate(5s), 4'000'000);
    expect_near(rate_of(0), 4'000'000 - 1999 * 200, 0.05);
    expect_near(rate_of(77), 200, 0.05);
}

TEST_F(Tokens, EachLevelHoldsItsOwn) {
    const auto queue = tree.add_group(TokenTree::everything);
    const auto job = tree.add_group(queue);
    const auto other_job = tree.add_group(queue);
    tree.set_limit(TokenTree::everything, 1'000'000, now);
    tree.set_limit(queue, 600'000, now);
    tree.set_limit(job, 90'000, now);
    for (int i = 0; i < 3; ++i) add(job);
    for (int i = 0; i < 3; ++i) add(other_job);
    for (int i = 0; i < 2; ++i) add(TokenTree::everything);
    EXPECT_EQ(tree.active(TokenTree::everything), 0);
    run(5s);
    EXPECT_EQ(tree.active(TokenTree::everything), 8);
    EXPECT_EQ(tree.active(queue), 6);
    expect_near(rate(5s), 1'000'000);
    for (std::size_t i = 0; i < 3; ++i) expect_near(rate_of(i), 30'000, 0.05);
    for (std::size_t i = 3; i < 6; ++i) EXPECT_LE(rate_of(i), 170'000 * 1.05);
    // A job moves out of the queue, and out of its limit.
    tree.set_limit(job, 0, now);
    tree.move_group(job, TokenTree::everything, now);
    run(5s);
    EXPECT_EQ(tree.active(queue), 3);
    expect_near(rate(5s), 1'000'000);
    for (std::size_t i = 0; i < peers.size(); ++i) expect_near(rate_of(i), 125'000, 0.06);
}

TEST_F(Tokens, AChangedLimitHoldsAtOnce) {
    tree.set_limit(TokenTree::everything, 50'000'000, now);
    for (int i = 0; i < 4; ++i) add(TokenTree::everything);
    run(2s);
    for (const std::int64_t limit : {100'000, 10'000'000, 5'000}) {
        tree.set_limit(TokenTree::everything, limit, now);
        run(5s);
        expect_near(rate(5s), static_cast<double>(limit));
    }
}

TEST_F(Tokens, NothingMuchIsSavedUp) {
    tree.set_limit(TokenTree::everything, 1'000'000, now);
    for (int i = 0; i < 5; ++i) add(TokenTree::everything, 100'000);
    run(3s);
    for (Peer& peer : peers) peer.asks = false;
    run(10min);
    for (Peer& peer : peers) {
        peer.asks = true;
        peer.speed = 1e12;
    }
    run(5s);
    EXPECT_LE(rate(5s), 1'000'000 * 1.03);
    // Users who come and go leave nothing behind and take nothing along.
    std::int64_t sum = 0;
    for (int i = 0; i < 5000; ++i) {
        const auto user = tree.add_user(TokenTree::everything);
        for (int k = 0; k < 2; ++k) sum += static_cast<std::int64_t>(tree.take(user, 16384, now).bytes);
        tree.remove_user(user, now);
        now += 1ms;
    }
    EXPECT_LE(sum, 5'000'000 * 1.03);
}

TEST(SharedTokens, ThreadsShareALimitAndAStopWakesThem) {
    SharedTokens tokens(Clock::now());
    tokens.set_limit(TokenTree::everything, 4'000'000, Clock::now());
    StopSource stop;
    std::array<std::int64_t, 4> taken{};
    const auto start = Clock::now();
    {
        std::vector<std::jthread> threads;
        for (std::int64_t& own : taken) {
            threads.emplace_back([&] {
                TokenUser user(tokens, TokenTree::everything);
                const auto forever = Clock::now() + 1h;
                while (!stop.requested())
                    own += static_cast<std::int64_t>(user.wait_and_take(16384, forever, stop));
            });
        }
        std::this_thread::sleep_for(1s);
        tokens.set_limit(TokenTree::everything, 1, Clock::now());
        std::this_thread::sleep_for(20ms);
        stop.request();
    }
    EXPECT_LT(Clock::now() - start, 1500ms);
    const auto sum = std::accumulate(taken.begin(), taken.end(), std::int64_t{0});
    EXPECT_LE(sum, 4'000'000 * 1.25);
    EXPECT_GE(sum, 4'000'000 * 0.7);
    TokenUser late(tokens, TokenTree::everything);
    StopSource none;
    EXPECT_EQ(late.wait_and_take(16384, Clock::now() + 20ms, none), 0U);
}

}  // namespace
}  // namespace vantlow::net
