// Sessions with a peer that does what it likes, on a simulated network: it says messages of all kinds in any
// order, true and false blocks, asks without reading, cuts and comes back. Whatever it does: no block is
// taken that it was not asked for, the pieces that count as there are right, and what this side holds for it
// is bounded.
#include <deque>
#include <map>

#include "bt/extension.h"
#include "bt/peer_exchange.h"
#include "bt/swarm/metadata_fetch.h"
#include "bt/swarm/swarm.h"
#include "fuzz.h"
#include "support/network/simulated_network.h"

namespace vantlow::fuzz {
namespace {

using namespace std::chrono_literals;
using Kind = PeerMessage::Kind;

constexpr std::uint32_t piece_length = 2 * block_size;
constexpr std::int64_t total = 5 * piece_length + 100;
constexpr std::size_t info_size = 40'000;
constexpr std::size_t most_steps = 300;

char byte_at(std::int64_t offset) {
    return static_cast<char>(offset * 31 + offset / block_size);
}

std::string bytes_of_block(const PieceBlock& block) {
    std::string bytes(block.length, '\0');
    for (std::uint32_t i = 0; i < block.length; ++i)
        bytes[i] = byte_at(std::int64_t{block.piece} * piece_length + block.begin + i);
    return bytes;
}

/// A disk in memory. What was asked for and is to be written is counted by the peer.
class Disk final : public SwarmDisk {
  public:
    Disk(net::Network& network, std::map<PieceBlock, int>& asked)
        : asked_(asked),
          work_(network.timers()),
          network_(network),
          bytes_(static_cast<std::size_t>(total), '\0') {}

    void write(const PieceBlock& block, std::span<const std::byte> bytes,
               std::function<void(Result)> /*failed*/) override {
        CHECK(asked_[block] > 0);
        CHECK(bytes.size() == block.length);
        const auto at = static_cast<std::size_t>(std::int64_t{block.piece} * piece_length + block.begin);
        CHECK(at + bytes.size() <= bytes_.size());
        bytes_.replace(at, bytes.size(), text_of(bytes));
    }
    [[nodiscard]] bool is_full() const override { return false; }
    void when_room(std::function<void()> call) override { later(std::move(call)); }
    void check(std::uint32_t piece, bool /*wants_blocks*/, std::function<void(Check)> done) override {
        later([this, piece, done = std::move(done)] {
            Check check{.is_good = is_right(piece)};
            for (std::size_t at = 0; at < length_of(piece); at += block_size)
                check.blocks.push_back(hash_of(std::string_view(bytes_).substr(
                    std::size_t{piece} * piece_length + at,
                    std::min<std::size_t>(block_size, length_of(piece) - at))));
            done(check);
        });
    }
    void read(const PieceBlock& block, std::function<void(Outcome<std::string>)> done) override {
        ++reads;
        later([this, block, done = std::move(done)] {
            --reads;
            done(bytes_.substr(std::size_t{block.piece} * piece_length + block.begin, block.length));
        });
    }
    [[nodiscard]] bool is_right(std::uint32_t piece) const {
        return bytes_.substr(std::size_t{piece} * piece_length, length_of(piece)) ==
               bytes_of_block({piece, 0, length_of(piece)});
    }
    void fill(std::uint32_t piece) {
        bytes_.replace(std::size_t{piece} * piece_length, length_of(piece),
                       bytes_of_block({piece, 0, length_of(piece)}));
    }
    static std::uint32_t length_of(std::uint32_t piece) {
        return static_cast<std::uint32_t>(
            std::min<std::int64_t>(piece_length, total - std::int64_t{piece} * piece_length));
    }

    int reads = 0;

  private:
    void later(std::function<void()> call) {
        calls_.push_back(std::move(call));
        if (!work_.is_running()) work_.start(network_.now() + 1ms, [this] { work(); });
    }
    void work() {
        for (auto& call : std::exchange(calls_, {})) call();
    }

    std::map<PieceBlock, int>& asked_;
    std::deque<std::function<void()>> calls_;
    net::Timer work_;
    net::Network& network_;
    std::string bytes_;
};

/// The peer, which does what the input says.
class Peer {
  public:
    Peer(std::string_view input, test::SimulatedInternet& internet, const SwarmTorrent& torrent)
        : host(internet.add_host("192.0.2.99")), input_(input), internet_(internet), torrent_(torrent) {}

    void take_stream(std::unique_ptr<net::Stream> stream, bool greets) {
        asked.clear();
        stream_ = std::move(stream);
        heard_.clear();
        reader_ = {};
        is_greeted_ = false;
        pending_.clear();
        if (greets) greet();
    }
    [[nodiscard]] bool has_more() const { return !input_.empty(); }
    [[nodiscard]] bool has_stream() const { return stream_ != nullptr; }

    /// One step of the input. True: time passes.
    bool act() {
        const std::uint8_t step = take_byte(input_);
        switch (step % 20) {
            case 0:
                say(take_some());
                return false;
            case 1:
                say(PeerMessage{.kind = Kind(take_byte(input_) % 4)}.bytes());
                return false;
            case 2:
                say(PeerMessage{.kind = Kind::have, .piece = number()}.bytes());
                return false;
            case 3: {
                const std::string has(1, static_cast<char>(take_byte(input_)));
                say(PeerMessage{.kind = Kind::bitfield, .data = has}.bytes());
                return false;
            }
            case 4:
                say(range(Kind::request).bytes());
                return false;
            case 5:
                answer(true);
                return false;
            case 6:
                answer(false);
                return false;
            case 7:
                unasked();
                return false;
            case 8:
                say(range(step < 128 ? Kind::cancel : Kind::reject).bytes());
                return false;
            case 9:
                say(PeerMessage{.kind = step < 128 ? Kind::have_all : Kind::have_none}.bytes());
                return false;
            case 10:
                say(PeerMessage{.kind = step < 128 ? Kind::suggest : Kind::allowed_fast, .piece = number()}
                        .bytes());
                return false;
            case 11:
                say(build_extension_handshake(
                    step < 128 ? info_size : std::uint32_t{take_byte(input_)} << 20U, 1, u"x", true,
                    step % 3 == 0, true));
                return false;
            case 12:
                metadata();
                return false;
            case 13:
                exchange();
                return false;
            case 14:
                say(build_extended_message(own_holepunch_number, take_some()));
                return false;
            case 15:
                for (int times = 1 << (take_byte(input_) % 13); times > 0; --times) say(last_);
                return false;
            case 16:
                reads_ = !reads_;
                return false;
            case 17:
                stream_.reset();
                return true;
            case 18:
                greet();
                return false;
            default:
                internet_.run_for(std::chrono::milliseconds(1U << (take_byte(input_) % 16)));
                return true;
        }
    }
    /// Reads what has come, and sends what waits.
    void work() {
        if (!stream_) return;
        while (!pending_.empty()) {
            const net::Step step = stream_->write(bytes_of(pending_), internet_.now());
            if (step.state != net::Step::State::moved) break;
            pending_.erase(0, step.bytes);
        }
        std::array<std::byte, 16384> room;
        while (reads_) {
            const net::Step step = stream_->read(room, internet_.now());
            if (step.state != net::Step::State::moved) break;
            hear(text_of(std::span(room).first(step.bytes)));
        }
    }

    std::map<PieceBlock, int> asked;  ///< blocks that this side asked for, and how often
    test::SimulatedHost& host;

  private:
    void greet() {
        PeerHandshake hello{
            .torrent = torrent_.info_hash, .peer_id = std::string(20, 'p'), .extensions = true};
        hello.fast = take_byte(input_) % 2 == 0;
        say(hello.bytes());
    }
    void say(std::string bytes) {
        // A host's line holds no more than that on its way.
        if (pending_.size() < 400'000) pending_ += bytes;
        last_ = std::move(bytes);
    }
    std::string take_some() {
        const std::size_t size = std::min<std::size_t>(take_byte(input_), input_.size());
        const std::string some(input_.substr(0, size));
        input_.remove_prefix(size);
        return some;
    }
    std::uint32_t number() { return take_byte(input_) % 8; }
    PeerMessage range(Kind kind) {
        constexpr std::uint32_t lengths[] = {block_size, 0, 1, 100, 131072, 131073, 0xFFFFFFFF};
        PeerMessage message{.kind = kind, .piece = number()};
        const std::uint8_t form = take_byte(input_);
        message.begin = form % 3 * block_size + (form & 64U);
        message.length = lengths[form / 3 % std::size(lengths)];
        return message;
    }
    void answer(bool rightly) {
        if (asked.empty()) return;
        auto at = asked.begin();
        std::advance(at, take_byte(input_) % asked.size());
        std::string bytes = bytes_of_block(at->first);
        if (!rightly) bytes[0] = static_cast<char>(bytes[0] + 1);
        say(PeerMessage{
            .kind = Kind::piece, .piece = at->first.piece, .begin = at->first.begin, .data = bytes}
                .bytes());
    }
    void unasked() {
        PeerMessage message = range(Kind::piece);
        const std::string bytes(std::min<std::uint32_t>(message.length, 131073), 'u');
        message.data = bytes;
        say(message.bytes());
    }
    void metadata() {
        MetadataMessage message{
            take_byte(input_) % 4, take_byte(input_) % 5 - 1, std::int64_t{take_byte(input_)} << 20U, {}};
        if (message.type == 1 && message.piece >= 0)
            message.data =
                take_byte(input_) % 3 == 0
                    ? take_some()
                    : torrent_.info.substr(
                          std::min<std::size_t>(static_cast<std::size_t>(message.piece) * 16384, info_size),
                          16384);
        say(build_metadata_message(own_metadata_number, message));
    }
    void exchange() {
        ExchangedPeers peers;
        const int count = take_byte(input_) * 40;
        for (int i = 0; i < count; ++i) {
            const std::string named =
                "198.51." + std::to_string(i / 250 % 250) + "." + std::to_string(i % 250 + 1);
            peers.added.push_back(
                {*SocketAddress::from_literal(named, static_cast<std::uint16_t>(i + 1)), 0});
        }
        say(build_exchange_message(own_exchange_number, peers));
    }
    void hear(std::string_view bytes) {
        if (!is_greeted_) {
            heard_ += bytes;
            if (heard_.size() < PeerHandshake::size) return;
            CHECK(PeerHandshake::parse(std::string_view(heard_).substr(0, PeerHandshake::size)).has_value());
            is_greeted_ = true;
            reader_.feed(std::string_view(heard_).substr(PeerHandshake::size));
        } else {
            reader_.feed(bytes);
        }
        PeerMessage message;
        for (auto read = reader_.next(message); read != PeerReader::Read::more;
             read = reader_.next(message)) {
            CHECK(read == PeerReader::Read::message);
            if (message.kind == Kind::request) ++asked[{message.piece, message.begin, message.length}];
            if (message.kind == Kind::piece)
                CHECK(message.data == bytes_of_block({message.piece, message.begin, message.length}));
        }
    }

    std::string_view input_;
    test::SimulatedInternet& internet_;
    const SwarmTorrent& torrent_;
    std::unique_ptr<net::Stream> stream_;
    std::string heard_;
    std::string pending_;
    std::string last_;
    PeerReader reader_;
    bool is_greeted_ = false;
    bool reads_ = true;
};

/// Called back by the swarm: this session has nobody else.
class Listener final : public SwarmListener {
  public:
    explicit Listener(const Disk& disk) : disk_(disk) {}
    void piece_came(std::uint32_t piece) override { CHECK(disk_.is_right(piece)); }
    void failed(const Result& /*why*/) override { CHECK(false); }

  private:
    const Disk& disk_;
};

void check_link(const PeerLink& link) {
    CHECK(link.unsent() <= std::size_t{4} * 1024 * 1024);
    CHECK(link.wants.size() <= 500 && link.reading <= 4);
    CHECK(link.owes.size() <= 11);  // blocks of the torrent
    CHECK(link.allowed.size() <= 64 && link.suggested.size() <= 64);
    CHECK(link.named.size() <= ExchangedPeers::most_taken && link.version.size() <= 256);
}

template <class Take, class Look>
void play(Peer& peer, test::SimulatedInternet& internet, const SocketAddress& own, bool is_called,
          const Take& meet, const Look& look) {
    const auto listener = *peer.host.listen(peer.host.address(), 8);
    const std::function<void()> accept = [&] {
        listener->accept([&](auto taken) {
            if (taken) peer.take_stream(*std::move(taken), true);
            accept();
        });
    };
    accept();
    meet(*listener->address());
    bool is_connected = false;
    std::unique_ptr<net::Stream> calling;
    for (std::size_t steps = 0; peer.has_more() && steps < most_steps; ++steps) {
        if (!peer.has_stream() && is_called && !calling) {
            is_connected = false;
            calling = peer.host.connect(own, [&](const Result& result) { is_connected = result.ok(); });
        }
        bool passes = peer.act();
        if (steps % 4 == 0 || passes) internet.run_for(20ms);
        if (calling && is_connected) {
            peer.take_stream(std::move(calling), true);
            internet.run_for(20ms);
        }
        peer.work();
        look();
    }
    peer.work();
    internet.run_for(2s);
    look();
}

}  // namespace

void run(std::string_view input) {
    const std::uint8_t role = take_byte(input);
    SwarmTorrent torrent;
    torrent.info.resize(info_size);
    for (std::size_t i = 0; i < info_size; ++i) torrent.info[i] = static_cast<char>(i * 7 + i / 251);
    torrent.info_hash = hash_of(torrent.info);
    torrent.peer_id = "-VL0000-of-a-session";
    torrent.total = total;
    torrent.piece_length = piece_length;
    test::SimulatedInternet internet(role);
    test::SimulatedHost& host = internet.add_host("192.0.2.1");
    Peer peer(input, internet, torrent);
    Disk disk(host, peer.asked);
    net::SharedTokens down(host.now());
    net::SharedTokens up(host.now());
    const bool is_called = role % 2 == 0;
    const auto listener = *host.listen(host.address(), 8);
    const auto serve = [&](const auto& take) {
        listener->accept([&, take](auto taken) { take(std::move(taken)); });
    };
    if (role % 5 == 4) {
        bool has_come = false;
        MetadataFetch fetch(host, torrent.peer_id, LinkLimits{down, up},
                            LinkCrypto{nullptr, 1, torrent.info_hash},
                            [&](const std::string& info, const PieceLayers&) {
                                CHECK(info == torrent.info && !has_come);
                                has_come = true;
                            },
                            {1, true});
        fetch.start();
        const std::function<void(Outcome<std::unique_ptr<net::Stream>>)> take = [&](auto taken) {
            if (taken) fetch.take_incoming(*std::move(taken));
            serve(take);
        };
        serve(take);
        play(
            peer, internet, *listener->address(), is_called,
            [&](const SocketAddress& at) { is_called ? void() : fetch.add_peers(std::vector{at}); },
            [&] { CHECK(fetch.known() <= Candidates::most && fetch.peers() <= MetadataFetch::most_peers); });
        return;
    }
    SwarmOptions options;
    options.exchanges = options.punches = true;
    options.port = listener->address()->port();
    Listener news(disk);
    Swarm swarm(host, disk, news, torrent, LinkLimits{down, up}, options);
    for (std::uint32_t piece = 0; piece < 6; ++piece) {
        if ((role >> 3U >> piece & 1U) == 0) continue;
        disk.fill(piece);
        swarm.add_have(piece);
    }
    swarm.start();
    const std::function<void(Outcome<std::unique_ptr<net::Stream>>)> take = [&](auto taken) {
        if (taken) swarm.take_incoming(*std::move(taken));
        serve(take);
    };
    serve(take);
    play(
        peer, internet, *listener->address(), is_called,
        [&](const SocketAddress& at) { is_called ? void() : swarm.add_peers(std::vector{at}); },
        [&] {
            CHECK(swarm.known() <= Candidates::most && swarm.peers() <= options.most_peers);
            CHECK(disk.reads <= 4 * static_cast<int>(options.most_peers));
            for (std::uint32_t piece = 0; piece < swarm.picker().pieces(); ++piece)
                CHECK(!swarm.picker().have().has(piece) || disk.is_right(piece));
            swarm.visit(check_link);
        });
}

}  // namespace vantlow::fuzz
