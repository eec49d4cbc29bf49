// Swarms of this machine's network whose bytes are files of folders.
#include <gtest/gtest.h>

#include <random>

#include "bt/piece_layers.h"
#include "bt/swarm/storage_disk.h"
#include "bt/swarm/swarm.h"
#include "net/loop.h"
#include "platform/folder.h"
#include "support/content.h"
#include "support/fault_hook.h"
#include "support/recording_log.h"
#include "support/temp_folder.h"

namespace vantlow::test {
namespace {

using namespace std::chrono_literals;

constexpr std::uint32_t piece_length = 4 * block_size;
constexpr std::int64_t total = 40 * piece_length - 7000;

std::string hashes_of(std::string_view content) {
    std::string hashes;
    for (std::size_t at = 0; at < content.size(); at += piece_length) {
        const InfoHash hash = hash_of(content.substr(at, piece_length));
        hashes.append(reinterpret_cast<const char*>(hash.data()), hash.size());
    }
    return hashes;
}

TorrentContent content_of(const std::string& hashes) {
    TorrentContent content;
    content.total = total;
    content.piece_length = piece_length;
    content.pieces = hashes;
    return content;
}

/// One program with the torrent in a folder of its own.
class Program : public SwarmListener {
  public:
    Program(net::Loop& loop, const std::string& hashes, char name)
        : pool_([&loop](DiskPool::Callback call) { return loop.post(std::move(call)); },
                {.threads = 2, .high_water = 8 * block_size, .low_water = 4 * block_size}),
          hashes_(content_of(hashes)),
          storage(*FileList::make(std::vector<NamedFile>{
                      {u"a", 100'001}, {u"b/none", 0}, {u"b/c", 777}, {u"d", total - 100'778}}),
                  {}, piece_length, log),
          down_(loop.now()),
          up_(loop.now()) {
        EXPECT_TRUE(storage.begin(folder_.path(u"job")).ok());
        disk.emplace(storage, pool_, hashes_);
        SwarmTorrent torrent;
        torrent.info_hash = hash_of("the torrent");
        torrent.peer_id = "-VL0000-program----" + std::string(1, name);
        torrent.total = total;
        torrent.piece_length = piece_length;
        swarm.emplace(loop, *disk, *this, torrent, LinkLimits{down_, up_});
        listener_ = *loop.listen(*SocketAddress::from_literal("127.0.0.1", 0), 16);
        accept();
    }
    // The pool's results refer to the disk, and its threads to the storage.
    ~Program() override {
        swarm.reset();
        disk.reset();
        pool_.stop();
    }
    void be_seed(std::string_view with) {
        EXPECT_TRUE(storage.write(0, std::as_bytes(std::span(with))).ok());
        for (std::uint32_t piece = 0; piece < swarm->picker().pieces(); ++piece) swarm->add_have(piece);
    }
    [[nodiscard]] std::string bytes() {
        std::string all(static_cast<std::size_t>(total), '\0');
        EXPECT_TRUE(storage.read(0, std::as_writable_bytes(std::span(all))).ok());
        return all;
    }
    [[nodiscard]] SocketAddress address() const { return *listener_->address(); }
    void completed() override { is_complete = true; }
    void banned(const SocketAddress& peer) override { bans.push_back(peer); }
    void failed(const Result& why) override { failure = why; }

  private:
    void accept() {
        listener_->accept([this](auto taken) {
            if (taken) swarm->take_incoming(*std::move(taken));
            accept();
        });
    }

    TempFolder folder_;
    DiskPool pool_;
    const TorrentHashes hashes_;

  public:
    RecordingLog log;
    Storage storage;
    std::optional<StorageDisk> disk;
    std::optional<Swarm> swarm;
    std::vector<SocketAddress> bans;
    std::optional<Result> failure;
    bool is_complete = false;

  private:
    net::SharedTokens down_;
    net::SharedTokens up_;
    std::unique_ptr<net::Listener> listener_;
};

template <class Until>
bool run(net::Loop& loop, const Until& until) {
    const auto end = Clock::now() + 60s;
    while (!until() && Clock::now() < end) {
        if (!loop.run_one(100ms)) return false;
    }
    return until();
}

TEST(StorageDiskTest, FilesAreRightALiarIsLeftAndAFullDiskIsSaid) {
    const std::string content = make_content(5, static_cast<std::size_t>(total));
    std::string lie = content;
    for (std::size_t at = block_size; at < lie.size(); at += piece_length)
        lie[at] = static_cast<char>(lie[at] + 1);
    const std::string hashes = hashes_of(content);
    auto loop = net::make_loop();
    ASSERT_TRUE(loop);
    net::Loop& here = **loop;
    Program seed(here, hashes, 's');
    Program liar(here, hashes, 'l');
    Program leecher(here, hashes, 'g');
    seed.be_seed(content);
    liar.be_seed(lie);
    for (Program* each : {&seed, &liar, &leecher}) each->swarm->start();
    leecher.swarm->add_peers(std::vector{liar.address()});
    ASSERT_TRUE(run(here, [&] { return !leecher.bans.empty(); }));
    leecher.swarm->add_peers(std::vector{seed.address()});
    ASSERT_TRUE(run(here, [&] { return leecher.is_complete; }));
    EXPECT_TRUE(leecher.bytes() == content);
    for (const SocketAddress& address : leecher.bans) EXPECT_EQ(address.port(), liar.address().port());
    std::optional<Result> finished;
    leecher.disk->run(
        [&] {
            for (std::size_t file = 0; file < leecher.storage.files().count(); ++file) {
                if (Result result = leecher.storage.finish(file); !result.ok()) return result;
            }
            return Result{};
        },
        [&](const Result& result) { finished = result; });
    ASSERT_TRUE(run(here, [&] { return finished.has_value(); }));
    EXPECT_TRUE(finished->ok()) << finished->message();
    EXPECT_EQ(leecher.storage.shape(1), FileShape::finished) << "the file without bytes, too";

    // The blocks of a wrong piece show which of them is wrong, also where the check is asked for before the
    // pool has taken them all.
    Program judge(here, hashes, 'j');
    std::optional<SwarmDisk::Check> check;
    for (std::uint32_t at = 0; at < piece_length; at += block_size)
        judge.disk->write({0, at, block_size}, std::as_bytes(std::span(lie)).subspan(at, block_size),
                          [](const Result&) { FAIL(); });
    judge.disk->check(0, false, [&](const SwarmDisk::Check& done) { check = done; });
    ASSERT_TRUE(run(here, [&] { return check.has_value(); }));
    EXPECT_TRUE(check->result.ok() && !check->is_good);
    ASSERT_EQ(check->blocks.size(), piece_length / block_size);
    for (std::size_t i = 0; i < check->blocks.size(); ++i)
        EXPECT_EQ(check->blocks[i] == hash_of(std::string_view(content).substr(i * block_size, block_size)),
                  i != 1);

    FullDisk hook(10 * piece_length);
    const HookInPlace in_place(hook);
    Program full(here, hashes, 'f');
    full.swarm->start();
    full.swarm->add_peers(std::vector{seed.address()});
    ASSERT_TRUE(run(here, [&] { return full.failure.has_value(); }));
    EXPECT_EQ(full.failure->code, Code::local_file);
    EXPECT_NE(full.failure->message().find("d"), std::string::npos) << full.failure->message();
    EXPECT_EQ(full.swarm->peers(), 0U);
}

}  // namespace
}  // namespace vantlow::test
