// The rules of a swarm, without one: messages, the choice of blocks, the window of requests, choking.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>

#include "bt/extension.h"
#include "bt/holepunch.h"
#include "bt/local_discovery.h"
#include "bt/peer/choker.h"
#include "bt/peer/peer_wire.h"
#include "bt/peer/picker.h"
#include "bt/peer/request_window.h"
#include "bt/peer_exchange.h"
#include "bt/peer_store.h"
#include "bt/swarm/candidates.h"
#include "bt/wire.h"

namespace vantlow::test {
namespace {

using Kind = PeerMessage::Kind;
using namespace std::chrono_literals;

std::string message_of(std::uint32_t size, std::string_view body) {
    std::string bytes;
    put_number(bytes, size);
    return bytes.append(body);
}

TEST(PeerWire, MessagesComeBackHoweverTheirBytesAreDivided) {
    const PeerMessage all[] = {
        {.kind = Kind::keep_alive},
        {.kind = Kind::choke},
        {.kind = Kind::have, .piece = 0x01020304},
        {.kind = Kind::bitfield, .data = "\xF0\x80"},
        {.kind = Kind::request, .piece = 7, .begin = 16384, .length = 5},
        {.kind = Kind::piece, .piece = 7, .begin = 16384, .length = 5, .data = "block"},
        {.kind = Kind::port, .port = 6881},
        {.kind = Kind::reject, .piece = 1, .begin = 2, .length = 3},
        {.kind = Kind::extended, .extended = 3, .data = "de"},
        {.kind = Kind::have_none},
    };
    std::string bytes = message_of(4, "\x63xyz");  // of an extension nobody knows
    for (const PeerMessage& message : all) bytes += message.bytes();
    for (const std::size_t step : {std::size_t{1}, std::size_t{7}, bytes.size()}) {
        PeerReader reader;
        std::size_t seen = 0;
        PeerMessage got;
        for (std::size_t at = 0; at < bytes.size(); at += step) {
            reader.feed(std::string_view(bytes).substr(at, step));
            while (reader.next(got) == PeerReader::Read::message) {
                if (got.kind == Kind::unknown) continue;
                ASSERT_LT(seen, std::size(all));
                EXPECT_EQ(got.bytes(), all[seen].bytes());
                EXPECT_EQ(got.length, all[seen].length);
                ++seen;
            }
        }
        EXPECT_EQ(seen, std::size(all));
        EXPECT_EQ(reader.held(), 0U);
    }
    PeerHandshake hello{.peer_id = std::string(20, 'p'), .extensions = true, .fast = true};
    hello.torrent.fill(std::byte{9});
    const auto back = PeerHandshake::parse(hello.bytes());
    ASSERT_TRUE(back);
    EXPECT_EQ(back->bytes(), hello.bytes());
    EXPECT_FALSE(PeerHandshake::parse("\x14" + hello.bytes().substr(1)));
}

TEST(PeerWire, RefusesWhatNoPeerSendsBeforeItTakesMemory) {
    const std::string cases[] = {
        message_of(0xFFFFFFFF, "\x07"),                               // endless
        message_of(200'000, std::string("\x07\0\0\0\1\0\0\0\0", 9)),  // too long a block
        message_of(4, std::string("\x04\0\0\1", 4)),                  // have, a byte short
        message_of(2, std::string("\x00\0", 2)),                      // choke with a body
        message_of(5, std::string("\x07\0\0\0\1", 5)),                // a block without its place
        message_of(1, "\x14"),                                        // extended without a number
        message_of(100'000, std::string("\x14\0", 2)),                // a dictionary of that size
    };
    for (const std::string& bytes : cases) {
        PeerReader reader;
        reader.feed(bytes);
        PeerMessage message;
        EXPECT_EQ(reader.next(message), PeerReader::Read::bad);
        reader.feed(PeerMessage{.kind = Kind::choke}.bytes());
        EXPECT_EQ(reader.next(message), PeerReader::Read::bad) << "for ever";
    }
    EXPECT_FALSE(PieceSet::from_wire("\xFF", 7)) << "a bit behind the last piece";
    EXPECT_FALSE(PieceSet::from_wire("\xFF\x80", 8)) << "a byte too many";
    EXPECT_EQ(PieceSet::from_wire("\xFF\x80", 9)->count(), 9U);
}

SocketAddress at(const std::string& host, int port = 1) {
    return *SocketAddress::from_literal(host, static_cast<std::uint16_t>(port));
}

TEST(PeerExchange, TellsChangesOnceAMinuteAndTakesNoFlood) {
    constexpr std::size_t prefix = 6;
    std::vector<ExchangedPeer> others{{at("192.0.2.1", 80), ExchangedPeer::seed}, {at("2001:db8::1", 81)}};
    for (int i = 1; i < 100; ++i) others.push_back({at("198.51.100." + std::to_string(i))});
    PeerExchange exchange;
    Clock::time_point now{};
    const auto first = exchange.news(others, now);
    ASSERT_TRUE(first);
    const auto back = parse_exchange_message(build_exchange_message(7, *first).substr(prefix));
    ASSERT_TRUE(back);
    ASSERT_EQ(back->added.size(), 50U);
    EXPECT_EQ(peer_text(back->added.front().address), "192.0.2.1:80");
    EXPECT_EQ(back->added.front().flags, ExchangedPeer::seed);
    EXPECT_EQ(peer_text(back->added.back().address), "[2001:db8::1]:81");
    EXPECT_FALSE(exchange.is_due(now + 59s));
    EXPECT_TRUE(exchange.is_due(now + 60s));
    others.erase(others.begin());
    const auto second = exchange.news(others, now + 60s);
    ASSERT_TRUE(second);
    EXPECT_EQ(second->added.size(), 50U);
    EXPECT_EQ(second->dropped, std::vector{at("192.0.2.1", 80)});
    EXPECT_EQ(exchange.news(others, now + 120s)->added.size(), 1U);
    EXPECT_FALSE(exchange.news(others, now + 180s));
    EXPECT_TRUE(exchange.may_take(now));
    EXPECT_FALSE(exchange.may_take(now + 30s));
    EXPECT_TRUE(exchange.may_take(now + 60s));
    // A victim a thousand times, in one message, in many, and beside it what is cut off.
    std::string many;
    for (int port = 1; port <= 1000; ++port) {
        many += std::string("\xC0\x00\x02\x09", 4);
        put_number(many, static_cast<std::uint16_t>(port));
    }
    const auto flood = parse_exchange_message("d5:added6003:" + many + "\x01\x02\x03" + "e");
    ASSERT_TRUE(flood);
    EXPECT_EQ(flood->added.size(), 1U);
    Candidates candidates;
    for (int port = 1; port <= 1000; ++port) candidates.add_named(std::vector{at("192.0.2.9", port)});
    EXPECT_EQ(candidates.size(), Candidates::most_named_ports);
    for (int i = 0; i < 5000; ++i)
        candidates.add_named(
            std::vector{at("203.0." + std::to_string(i / 250) + "." + std::to_string(i % 250))});
    EXPECT_EQ(candidates.size(), Candidates::most / 2) << "room for those of the trackers";
    EXPECT_FALSE(parse_exchange_message("i1e"));
    EXPECT_TRUE(parse_exchange_message("d5:addedi1e6:added65:shorte")->added.empty());
}

TEST(Holepunch, HasTheFormThatOthersReadAndABoundForEachPeer) {
    using namespace std::string_literals;
    using Error = HolepunchMessage::Error;
    const auto four = *SocketAddress::from_literal("1.2.3.4", 6881);
    const std::string asks = "\0\0\x1A\xE1"s.insert(2, "\x01\x02\x03\x04");
    EXPECT_EQ(build_holepunch_message(4, {HolepunchMessage::Kind::rendezvous, four}),
              "\0\0\0\x0E\x14\x04"s + asks + "\0\0\0\0"s);
    for (const auto& [payload, error] :
         {std::pair(asks, Error::none), {asks + "\0\0\0\x03"s, Error::no_support}}) {
        const auto message = parse_holepunch_message(payload);
        ASSERT_TRUE(message);
        EXPECT_TRUE(message->peer == four && message->error == error);
    }
    EXPECT_EQ(parse_holepunch_message("\x01\x01"s + std::string(16, '\x20') + "\0\x50"s)->peer.port(), 80);
    for (const std::string& bad : {""s, "\0"s, "\x03"s + asks.substr(1), "\0\x02"s + asks.substr(2),
                                   asks.substr(0, 7), "\0\x01"s + asks.substr(2)})
        EXPECT_FALSE(parse_holepunch_message(bad)) << bad.size();
    HolepunchRate rate;
    const Clock::time_point now = Clock::now();
    int taken = 0;
    for (int i = 0; i < 100; ++i) taken += rate.take(now + i * 100ms) ? 1 : 0;
    EXPECT_EQ(taken, HolepunchRate::most);
    EXPECT_TRUE(rate.take(now + 60s));
}

TEST(PeerExchange, NobodyFarAwayNamesNeighbours) {
    const struct {
        const char *by, *named;
        bool is_taken;
    } rows[] = {
        {"192.0.2.1", "198.51.100.1", true},  {"192.0.2.1", "127.0.0.1", false},
        {"192.0.2.1", "192.168.1.1", false},  {"192.0.2.1", "172.16.0.1", false},
        {"192.0.2.1", "172.32.0.1", true},    {"192.0.2.1", "100.64.0.1", false},
        {"192.168.1.9", "192.168.1.1", true}, {"192.168.1.9", "127.0.0.1", false},
        {"127.0.0.1", "127.0.0.1", true},     {"127.0.0.1", "224.0.0.1", false},
        {"127.0.0.1", "0.0.0.0", false},      {"192.0.2.1", "::ffff:192.168.1.1", false},
        {"2001:db8::1", "fe80::1", false},    {"2001:db8::1", "fd00::1", false},
        {"2001:db8::1", "::1", false},        {"fe80::2", "fe80::1", true},
        {"2001:db8::1", "2001:db8::2", true}, {"::1", "ff02::1", false},
    };
    for (const auto& row : rows)
        EXPECT_EQ(may_know(at(row.by), at(row.named)), row.is_taken) << row.by << " names " << row.named;
    EXPECT_FALSE(may_know(at("127.0.0.1"), at("192.0.2.1", 0)));
}

TEST(LocalDiscovery, CallsComeBackAndOthersAreDropped) {
    LocalCall call{6881, "abc", {InfoHash{}}};
    call.torrents.front().fill(std::byte{0xAB});
    const std::string text = build_local_call("239.192.152.143:6771", call);
    const auto back = parse_local_call(text);
    ASSERT_TRUE(back);
    EXPECT_EQ(build_local_call("239.192.152.143:6771", *back), text);
    const std::string hash = "INFOHASH:" + std::string(40, 'b') + "\r\n";
    EXPECT_TRUE(parse_local_call("BT-SEARCH * HTTP/1.1\r\n" + hash + "port:1"));
    const std::string all_bad[] = {"HTTP/1.1 200 OK\r\nPort: 1\r\n" + hash,
                                   "BT-SEARCH * HTTP/1.1\r\nPort: 0\r\n" + hash,
                                   "BT-SEARCH * HTTP/1.1\r\nPort: 65536\r\n" + hash,
                                   "BT-SEARCH * HTTP/1.1\r\nPort: 1\r\n\r\n" + hash,
                                   "BT-SEARCH * HTTP/1.1\r\nPort: 1\r\nInfohash: abc\r\n",
                                   text + std::string(1400, ' ')};
    for (const std::string& bad : all_bad) EXPECT_FALSE(parse_local_call(bad)) << bad;
    std::string many = "BT-SEARCH * HTTP/1.1\r\nPort: 1\r\n";
    for (int i = 0; i < 25; ++i) many += hash;
    EXPECT_EQ(parse_local_call(many)->torrents.size(), 25U);
}

PieceSet set_of(std::uint32_t size, std::initializer_list<std::uint32_t> pieces) {
    PieceSet set(size);
    for (const std::uint32_t piece : pieces) set.add(piece);
    return set;
}

PieceSet all_of(std::uint32_t size) {
    PieceSet set(size);
    set.add_all();
    return set;
}

constexpr std::uint32_t two_blocks = 2 * block_size;

TEST(Picker, TakesByPriorityThenRarityAndFinishesWhatIsBegun) {
    Picker picker(std::int64_t{8} * two_blocks, two_blocks, 1);
    for (const std::uint32_t had : {4U, 5U, 6U, 7U}) picker.add_have(had);  // the first ones are over
    const PieceSet seed = all_of(8);
    picker.add_seed();
    picker.add_peer(set_of(8, {0, 1, 2}));
    picker.add_peer(set_of(8, {0, 1}));
    picker.set_priority(0, PiecePriority::high);
    picker.set_priority(2, PiecePriority::skip);
    EXPECT_EQ(picker.missing(), 3U);
    const auto first = [&](Picker::Peer peer, std::size_t most = 1) {
        const auto blocks = picker.pick({.peer = peer, .has = seed}, most);
        return blocks.empty() ? PieceBlock{99, 0, 0} : blocks.front();
    };
    EXPECT_EQ(first(1), (PieceBlock{0, 0, block_size})) << "the high one";
    EXPECT_EQ(first(2), (PieceBlock{0, block_size, block_size})) << "what is begun";
    EXPECT_EQ(first(1).piece, 3U) << "the rarest";
    picker.lost_all(1);
    EXPECT_EQ(first(3), (PieceBlock{0, 0, block_size})) << "what a peer left";
    EXPECT_FALSE(picker.is_interesting(set_of(8, {2, 4})));
    EXPECT_TRUE(picker.is_interesting(set_of(8, {1})));
    const std::uint32_t allowed[] = {1};
    EXPECT_EQ(picker.pick({.peer = 4, .has = seed, .only = allowed}, 9).size(), 2U);
}

TEST(PieceSet, FindsWhatTwoHaveFromEveryPlaceOn) {
    for (const std::uint32_t size : {1U, 7U, 8U, 9U, 63U, 64U, 65U, 130U}) {
        for (std::uint32_t from = 0; from <= size + 1; ++from) {
            EXPECT_EQ(all_of(size).next_common(all_of(size), from).value_or(99'999),
                      from < size ? from : 99'999U);
            const auto last = all_of(size).next_common(set_of(size, {size - 1}), from);
            EXPECT_EQ(last.value_or(99'999), from < size ? size - 1 : 99'999U) << size << " " << from;
        }
    }
}

// A peer that chokes this side but allows some pieces (BEP 6) has others, too, which are not asked of it.
TEST(Picker, AsksForAllowedPiecesAloneAndComesToAnEnd) {
    for (std::uint32_t pieces = 1; pieces <= 17; ++pieces) {
        Picker picker(std::int64_t{pieces} * block_size, block_size, 1);
        picker.add_seed();
        const std::uint32_t allowed[] = {0};
        const PieceSet seed = all_of(pieces);
        EXPECT_EQ(picker.pick({.peer = 1, .has = seed, .only = allowed}, 9).size(), 1U) << pieces;
    }
}

// A piece that was wrong is asked of one peer alone, as long as that one takes requests.
TEST(Picker, AnAlonePieceGoesToAnotherWhereItsPeerRefuses) {
    Picker picker(two_blocks, two_blocks, 1);
    const PieceSet seed = all_of(1);
    for (const PieceBlock& block : picker.pick({.peer = 1, .has = seed}, 2)) picker.arrived(1, block);
    EXPECT_EQ(picker.failed(0).size(), 2U);
    const auto owed = picker.pick({.peer = 2, .has = seed}, 2);
    ASSERT_EQ(owed.size(), 2U);
    EXPECT_TRUE(picker.pick({.peer = 3, .has = seed, .is_idle = true}, 2).empty());
    for (const PieceBlock& block : owed) picker.lost(2, block);
    EXPECT_EQ(picker.pick({.peer = 3, .has = seed}, 2).size(), 2U);
}

TEST(Picker, AFastPeerGetsWholePiecesAndTheLastBlocksAreAskedTwiceAtMost) {
    Picker picker(std::int64_t{2} * two_blocks, two_blocks, 1);
    const PieceSet seed = all_of(2);
    const auto own = picker.pick({.peer = 1, .has = seed, .is_fast = true}, 1);
    const auto other = picker.pick({.peer = 2, .has = seed}, 2);
    ASSERT_EQ(other.size(), 2U);
    EXPECT_NE(other[0].piece, own[0].piece);
    EXPECT_EQ(other[0].piece, other[1].piece);
    const auto rest = picker.pick({.peer = 2, .has = seed}, 2);
    ASSERT_EQ(rest.size(), 1U) << "nothing else is free";
    EXPECT_TRUE(picker.pick({.peer = 3, .has = seed}, 4).empty());
    const auto late = picker.pick({.peer = 3, .has = seed, .is_idle = true}, 4);
    ASSERT_EQ(late.size(), 1U);
    const auto arrival = picker.arrived(3, late[0]);
    EXPECT_TRUE(arrival.is_new && arrival.other);
    EXPECT_FALSE(picker.arrived(*arrival.other, late[0]).is_new) << "the second one is too late";
    EXPECT_FALSE(picker.arrived(1, {0, 3, 5}).is_new) << "nobody asked for that";
}

// Peers that come and go, with some pieces each, slow, lying and refusing by a seed; what holds at each step,
// and that the torrent is complete at the end.
class Crowd {
  public:
    explicit Crowd(std::uint32_t seed) : random_(seed) {
        const std::uint32_t piece = block_size * (1 + below(3));
        const std::int64_t total = std::int64_t{1 + below(40)} * piece - below(piece);
        picker_ = std::make_unique<Picker>(total, piece, seed);
        if (below(4) == 0) picker_->set_sequential(true);
    }

    bool ends() {
        const std::uint32_t pieces = picker_->pieces();
        for (int step = 0; step < 20000; ++step) {
            if (picker_->is_done()) return picker_->have().is_all();
            if (peers_.size() < 4) join(pieces);
            if (below(200) == 0) picker_->set_priority(below(pieces), PiecePriority(1 + below(3)));
            auto at = std::next(peers_.begin(), below(static_cast<std::uint32_t>(peers_.size())));
            act(at->first, at->second);
            check();
        }
        return false;
    }

  private:
    struct Member {
        PieceSet has;
        std::vector<PieceBlock> owes;
        bool lies = false;
        bool is_seed = false;
    };

    std::uint32_t below(std::uint32_t bound) { return static_cast<std::uint32_t>(random_() % bound); }

    void join(std::uint32_t pieces) {
        Member member{.has = PieceSet(pieces), .owes = {}, .lies = below(6) == 0, .is_seed = below(3) == 0};
        for (std::uint32_t i = 0; i < pieces; ++i) {
            if (member.is_seed || below(2) == 0) member.has.add(i);
        }
        if (member.is_seed)
            picker_->add_seed();
        else
            picker_->add_peer(member.has);
        peers_.emplace(next_++, std::move(member));
    }

    void act(Picker::Peer peer, Member& member) {
        switch (below(12)) {
            case 0:
                picker_->lost_all(peer);
                if (member.is_seed)
                    picker_->remove_seed();
                else
                    picker_->remove_peer(member.has);
                peers_.erase(peer);
                return;
            case 1:
                if (member.owes.empty()) return;
                picker_->lost(peer, member.owes.back());
                member.owes.pop_back();
                return;
            case 2:
            case 3:
            case 4: {
                const bool idle = member.owes.empty();
                const auto more = picker_->pick(
                    {.peer = peer, .has = member.has, .is_fast = peer % 2 == 0, .is_idle = idle},
                    1 + below(5));
                for (const PieceBlock& block : more) {
                    EXPECT_TRUE(member.has.has(block.piece) && !picker_->have().has(block.piece));
                    EXPECT_EQ(std::count(member.owes.begin(), member.owes.end(), block), 0);
                    member.owes.push_back(block);
                }
                return;
            }
            default:
                send(peer, member);
        }
    }

    void send(Picker::Peer peer, Member& member) {
        if (member.owes.empty()) return;
        const PieceBlock block = member.owes.front();
        member.owes.erase(member.owes.begin());
        const auto arrival = picker_->arrived(peer, block);
        if (!arrival.is_new) return;
        wrong_[block.piece] = wrong_[block.piece] || member.lies;
        if (arrival.other) std::erase(peers_.at(*arrival.other).owes, block);
        if (!arrival.completes) return;
        if (!std::exchange(wrong_[block.piece], false)) return picker_->add_have(block.piece);
        const auto givers = picker_->failed(block.piece);
        EXPECT_EQ(givers.size(), (picker_->length_of(block.piece) + block_size - 1) / block_size);
        EXPECT_EQ(std::count(givers.begin(), givers.end(), 0U), 0);
    }

    void check() const {
        std::map<PieceBlock, int> owed;
        for (const auto& [peer, member] : peers_) {
            for (const PieceBlock& block : member.owes) ++owed[block];
        }
        for (const auto& [block, times] : owed) ASSERT_LE(times, 2);
    }

    std::minstd_rand random_;
    std::unique_ptr<Picker> picker_;
    std::map<Picker::Peer, Member> peers_;
    std::map<std::uint32_t, bool> wrong_;
    Picker::Peer next_ = 1;
};

TEST(Picker, AnyCrowdCompletesTheTorrent) {
    for (std::uint32_t seed = 1; seed <= 300; ++seed) ASSERT_TRUE(Crowd(seed).ends()) << "seed " << seed;
}

// What a torrent of a million pieces, or of pieces of 2 GiB, may cost: peers come and go all the time.
// Generous bounds, which the cost of a search for each piece or block would break.
TEST(Picker, BearsAMillionPiecesAndPiecesOfTwoGibibytes) {
    const auto begin = std::chrono::steady_clock::now();
    constexpr std::uint32_t many = 1'000'000;
    Picker picker(std::int64_t{many} * block_size, block_size, 1);
    PieceSet half(many);
    for (std::uint32_t piece = 0; piece < many; piece += 2) half.add(piece);
    for (int i = 0; i < 5; ++i) picker.add_peer(half);
    for (int i = 0; i < 4; ++i) picker.remove_peer(half);
    for (int i = 0; i < 2000; ++i) {
        const auto blocks = picker.pick({.peer = 1, .has = half}, 1);
        ASSERT_EQ(blocks.size(), 1U);
        EXPECT_EQ(blocks[0].piece % 2, 0U) << "the rarer ones are not the peer's";
        EXPECT_TRUE(picker.arrived(1, blocks[0]).completes);
        picker.add_have(blocks[0].piece);
    }
    EXPECT_TRUE(picker.is_interesting(half));
    Picker giant(std::int64_t{1} << 32U, 1U << 31U, 1);
    const PieceSet both = all_of(2);
    std::uint32_t blocks = 0;
    for (; giant.begun() < 2; ++blocks) {
        const auto block = giant.pick({.peer = 1, .has = both, .is_fast = true}, 1);
        ASSERT_EQ(block.size(), 1U);
        EXPECT_TRUE(giant.arrived(1, block[0]).is_new);
    }
    EXPECT_EQ(blocks, (1U << 31U) / block_size + 1);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 10s);
}

TEST(Candidates, AHostThatOftenBreaksTheRulesIsBannedWithAllItsPorts) {
    Candidates candidates;
    const SocketAddress bad = at("192.0.2.1", 1000);
    candidates.add(std::vector{at("192.0.2.1", 5), at("192.0.2.11", 5)});
    for (int i = 1; i < Candidates::most_breaches; ++i) candidates.broke_rules(bad);
    EXPECT_FALSE(candidates.is_banned(bad)) << "others may share the address";
    candidates.broke_rules(at("192.0.2.1", 1001));
    EXPECT_TRUE(candidates.is_banned(at("192.0.2.1", 1002)));
    EXPECT_EQ(candidates.take(Clock::time_point{1h}), at("192.0.2.11", 5))
        << "the other is not called any more";
    EXPECT_FALSE(candidates.take(Clock::time_point{1h}));
    for (int i = 0; i < 9; ++i) candidates.broke_rules(at("127.0.0.1", 1000));
    EXPECT_FALSE(candidates.is_banned(at("127.0.0.1", 1000))) << "the programs of this machine";
    // However many hosts there are, so many are remembered.
    for (int host = 0; host < 70'000; ++host) {
        candidates.ban(at("10." + std::to_string(host / 65536) + "." + std::to_string(host / 256 % 256) +
                          "." + std::to_string(host % 256)));
    }
    EXPECT_LE(candidates.size(), Candidates::most);
}

TEST(Candidates, ThoseThatFailOftenMakeRoomForNewOnes) {
    Candidates candidates;
    std::vector<SocketAddress> first;
    for (std::size_t i = 0; i < Candidates::most; ++i)
        first.push_back(at("10.0." + std::to_string(i / 250) + "." + std::to_string(i % 250)));
    candidates.add(first);
    const SocketAddress fresh = at("192.0.2.1");
    candidates.add(std::vector{fresh});
    EXPECT_EQ(candidates.size(), Candidates::most);
    for (int i = 0; i < Candidates::most_failures; ++i) candidates.refused(first[7], Clock::time_point{1h});
    candidates.add(std::vector{fresh});
    EXPECT_EQ(candidates.size(), Candidates::most);
    EXPECT_TRUE(candidates.take_this(fresh));
    EXPECT_FALSE(candidates.take_this(first[7])) << "there is no room for it";
}

// A peer that sends with a rate, some way off: the share of its rate that the window lets it use.
double used_of(double rate, Clock::duration way) {
    RequestWindow window;
    Clock::time_point now{1h};
    const Clock::time_point end = now + 20s;
    std::vector<Clock::time_point> arrivals;  // of what it owes
    Clock::time_point free_at = now;
    double late = 0;
    const auto block_time =
        std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(block_size / rate));
    while (now < end) {
        while (arrivals.size() < window.depth(now)) {
            window.asked(now);
            free_at = std::max(free_at, now + way / 2) + block_time;
            arrivals.push_back(free_at + way / 2);
        }
        now = arrivals.front();
        arrivals.erase(arrivals.begin());
        window.came(block_size, static_cast<std::uint32_t>(arrivals.size()), now);
        if (now > end - 10s) late += block_size;
    }
    return late / 10 / rate;
}

TEST(RequestWindow, UsesPeersNearAndFarAtTheirFullSpeed) {
    for (const double rate : {20'000.0, 1e6, 1e7}) {
        for (const auto way : {2ms, 200ms}) EXPECT_GT(used_of(rate, way), 0.95) << rate << " " << way.count();
    }
    RequestWindow window;
    window.asked(Clock::time_point{1h});
    EXPECT_FALSE(window.is_snubbed(Clock::time_point{1h} + 19s));
    EXPECT_EQ(window.depth(Clock::time_point{1h} + 20s), 1U);
    window.came(block_size, 1, Clock::time_point{1h} + 21s);
    EXPECT_FALSE(window.is_snubbed(Clock::time_point{1h} + 22s));
    EXPECT_FALSE(window.is_given_up(Clock::time_point{1h} + 60s));
    EXPECT_TRUE(window.is_given_up(Clock::time_point{1h} + 61s));
    window.take_back();
    EXPECT_FALSE(window.is_snubbed(Clock::time_point{2h}));
    EXPECT_EQ(window.depth(Clock::time_point{2h}), RequestWindow::least);
    window.set_most(3);
    for (int i = 0; i < 9; ++i) window.came(block_size, 1, Clock::time_point{1h} + 21s);
    EXPECT_EQ(window.depth(Clock::time_point{1h} + 21s), 3U) << "no more than the peer takes";
}

TEST(Choker, UnchokesWhoGivesMostAndOneByChance) {
    Choker choker(7);
    Clock::time_point now{1h};
    std::vector<Choker::Peer> peers;
    for (std::uint32_t i = 1; i <= 8; ++i)
        peers.push_back({.peer = i, .is_interested = true, .rate = 100.0 * i, .came = now - 1h});
    peers[7].is_snubbed = true;
    const auto choose = [&] {
        const auto chosen = choker.choose(peers, 4, now);
        for (Choker::Peer& peer : peers)
            peer.is_unchoked = std::find(chosen.begin(), chosen.end(), peer.peer) != chosen.end();
        return chosen;
    };
    auto chosen = choose();
    ASSERT_EQ(chosen.size(), 4U);
    EXPECT_EQ(std::vector(chosen.begin(), chosen.begin() + 3), (std::vector<std::uint32_t>{7, 6, 5}));
    const std::uint32_t lucky = chosen.back();
    peers[0].rate = 9000;
    now += 5s;
    EXPECT_TRUE(!peers[0].is_unchoked || lucky == 1);
    choose();
    EXPECT_TRUE(!peers[0].is_unchoked || lucky == 1) << "not before the next round";
    peers[6].is_interested = false;
    choose();
    EXPECT_EQ(std::count_if(peers.begin(), peers.end(), [](const auto& peer) { return peer.is_unchoked; }), 4)
        << "a free slot is filled at once";
    now += 6s;
    chosen = choose();
    EXPECT_TRUE(lucky == 1 || chosen.front() == 1) << "the round has come";
    std::vector<bool> had_luck(9);
    for (int i = 0; i < 200; ++i, now += 30s) had_luck[choose().back()] = true;
    EXPECT_TRUE(had_luck[2] && had_luck[8]) << "chance reaches everybody, also who was snubbed";
}

}  // namespace
}  // namespace vantlow::test
