// Blocks on their way to the disk and pieces held against their hashes: order, lies, slowness, stops, size.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <iostream>
#include <map>
#include <mutex>
#include <random>
#include <set>
#include <thread>

#include "base/text.h"
#include "platform/folder.h"
#include "storage/checker.h"
#include "storage/piece_writer.h"
#include "storage/storage_state.h"
#include "storage/torrent_documents.h"
#include "support/content.h"
#include "support/fault_hook.h"
#include "support/recording_log.h"
#include "support/resident_memory.h"
#include "support/temp_folder.h"

namespace vantlow {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using test::RecordingLog;
using test::TempFolder;

std::span<const std::byte> bytes_of(std::string_view text) {
    return std::as_bytes(std::span(text.data(), text.size()));
}

/// What somebody else would call the thread of the loop: it calls what is posted.
class Inbox {
  public:
    [[nodiscard]] DiskPool::Post post() {
        return [this](DiskPool::Callback call) {
            const std::lock_guard guard(mutex_);
            if (refused_-- > 0) return false;
            calls_.push_back(std::move(call));
            news_.notify_all();
            return true;
        };
    }
    void refuse(int times) {
        const std::lock_guard guard(mutex_);
        refused_ = times;
    }
    template <class Until>
    bool run(Until until, milliseconds at_most = milliseconds(20'000)) {
        const auto end = steady_clock::now() + at_most;
        std::unique_lock lock(mutex_);
        while (!until()) {
            if (!news_.wait_until(lock, end, [this] { return !calls_.empty(); })) return false;
            DiskPool::Callback call = std::move(calls_.front());
            calls_.erase(calls_.begin());
            lock.unlock();
            call();
            lock.lock();
        }
        return true;
    }

  private:
    std::mutex mutex_;
    std::condition_variable news_;
    std::vector<DiskPool::Callback> calls_;
    int refused_ = 0;
};

/// Hashes of content: SHA-1, the tree's root, or both.
class Hashes : public PieceHashSource {
  public:
    Hashes(std::string_view content, std::int64_t piece, bool v1 = true, bool v2 = false)
        : content_(content), piece_(piece), v1_(v1), v2_(v2) {}
    [[nodiscard]] PieceHash hash_of(std::int64_t index) const override {
        const auto begin = static_cast<std::size_t>(index * piece_);
        const auto piece = bytes_of(content_.substr(begin, static_cast<std::size_t>(piece_)));
        PieceHash hash;
        if (v1_) hash.sha1 = digest(DigestKind::sha1, piece);
        if (!v2_) return hash;
        hash.merkle_bytes = static_cast<std::int64_t>(piece.size());
        hash.merkle_leaves = piece_ / leaf;
        MerkleRoot root{};
        std::ranges::copy(tree(piece, hash.merkle_leaves), root.begin());
        hash.merkle = root;
        return hash;
    }

  private:
    static constexpr std::int64_t leaf = 16 * 1024;
    static std::vector<std::byte> digest(DigestKind kind, std::span<const std::byte> bytes) {
        Digest one(kind);
        one.update(bytes);
        return one.finish();
    }
    // As the definition reads: halves, down to leaves.
    static std::vector<std::byte> tree(std::span<const std::byte> bytes, std::int64_t leaves) {
        if (leaves == 1)
            return bytes.empty() ? std::vector<std::byte>(32) : digest(DigestKind::sha256, bytes);
        const std::size_t half = std::min(bytes.size(), static_cast<std::size_t>(leaves / 2 * leaf));
        std::vector<std::byte> both = tree(bytes.first(half), leaves / 2);
        const std::vector<std::byte> right = tree(bytes.subspan(half), leaves / 2);
        both.insert(both.end(), right.begin(), right.end());
        return digest(DigestKind::sha256, both);
    }

    std::string_view content_;
    std::int64_t piece_;
    bool v1_;
    bool v2_;
};

/// A disk that takes its time over each write.
class SlowDisk : public FaultHook {
  public:
    explicit SlowDisk(milliseconds pause) : pause_(pause) {}
    int before(Operation operation, std::u16string_view, std::int64_t, std::int64_t) noexcept override {
        if (operation == Operation::write) std::this_thread::sleep_for(pause_);
        return 0;
    }

  private:
    milliseconds pause_;
};

constexpr std::int64_t block = 16 * 1024;

/// A storage of several files, blocks for all of it in a seeded order, and who writes them.
struct Delivery {
    static constexpr std::int64_t piece = 8 * block;
    explicit Delivery(std::int64_t pieces, DiskPoolRules rules = {}, bool v1 = true, bool v2 = false)
        : content(test::make_content(3, static_cast<std::size_t>(pieces * piece - 5000))),
          hashes(content, piece, v1, v2),
          count(pieces),
          pool(inbox.post(), rules) {
        const auto size = static_cast<std::int64_t>(content.size());
        const std::vector<NamedFile> named{{u"one", 100'000}, {u"two", 1}, {u"three", size - 100'001}};
        storage.emplace(*FileList::make(named), std::vector<bool>{}, piece, log);
        EXPECT_TRUE(storage->begin(folder.path(u"job")).ok());
        writer.emplace(*storage, pool, hashes, [this](std::int64_t index, const Result& result) {
            (result.ok() ? good : bad).insert(index);
            last = result;
        });
    }
    std::vector<std::byte> block_at(std::int64_t at) const {
        const auto bytes = bytes_of(std::string_view(content).substr(static_cast<std::size_t>(at), block));
        return {bytes.begin(), bytes.end()};
    }
    std::vector<std::int64_t> offsets(unsigned seed) const {
        std::vector<std::int64_t> all;
        for (std::int64_t at = 0; at < static_cast<std::int64_t>(content.size()); at += block)
            all.push_back(at);
        std::shuffle(all.begin(), all.end(), std::minstd_rand(seed));
        return all;
    }
    // Writes what the pool takes, waits for room where it does not.
    void write(std::int64_t at, std::vector<std::byte> bytes) {
        while (!writer->write(at / piece, at % piece, bytes)) {
            ++waits;
            bool room = false;
            pool.when_room([&room] { room = true; });
            ASSERT_TRUE(inbox.run([&] { return room; }));
        }
        most_held = std::max(most_held, pool.held());
    }

    TempFolder folder;
    RecordingLog log;
    Inbox inbox;
    const std::string content;
    const Hashes hashes;
    const std::int64_t count;
    std::optional<Storage> storage;
    DiskPool pool;
    std::optional<PieceWriter> writer;
    std::multiset<std::int64_t> good;
    std::multiset<std::int64_t> bad;
    Result last;
    int waits = 0;
    std::int64_t most_held = 0;
};

TEST(PieceWriter, BlocksInAnyOrderMakeGoodPiecesOverFileBorders) {
    for (const auto& [v1, v2] : {std::pair(true, false), {false, true}, {true, true}}) {
        Delivery job(20, {}, v1, v2);
        job.inbox.refuse(3);
        std::vector<std::byte> lie = job.block_at(5 * Delivery::piece + block);
        lie[100] ^= std::byte{1};
        job.write(5 * Delivery::piece + block, lie);
        std::map<std::int64_t, int> left;  // blocks of each piece that were not written yet
        for (const std::int64_t at : job.offsets(1)) ++left[at / Delivery::piece];
        --left[5];
        for (const std::int64_t at : job.offsets(1)) {
            job.write(at, job.block_at(at));
            // Twice, but never the last one: behind a piece that is done, a block begins it anew.
            if (--left[at / Delivery::piece] > 0 && at % 3 == 0) job.write(at, job.block_at(at));
        }
        ASSERT_TRUE(job.inbox.run([&] { return job.good.size() + job.bad.size() == 20; }));
        EXPECT_EQ(job.bad, (std::multiset<std::int64_t>{5}));
        for (std::int64_t at = 0; at < Delivery::piece; at += block)
            job.write(5 * Delivery::piece + at, job.block_at(5 * Delivery::piece + at));
        ASSERT_TRUE(job.inbox.run([&] { return job.good.size() == 20; }));
        EXPECT_EQ(job.writer->pieces_under_way(), 0U);
        EXPECT_EQ(job.pool.held(), 0);
        std::vector<std::byte> read;
        ASSERT_TRUE(
            job.writer->read(99'990, 30, [&](const Result&, std::vector<std::byte> got) { read = got; }));
        ASSERT_TRUE(job.inbox.run([&] { return !read.empty(); }));
        EXPECT_TRUE(std::ranges::equal(read, bytes_of(job.content).subspan(99'990, 30)));
        for (const std::size_t file : {0U, 1U, 2U}) ASSERT_TRUE(job.storage->finish(file).ok());
        EXPECT_TRUE(test::file_has(job.storage->path(0), job.content.substr(0, 100'000)));
        EXPECT_TRUE(test::file_has(job.storage->path(2), job.content.substr(100'001)));
    }
}

// A block that overlaps another one and says something else must not pass by the digest of the first.
TEST(PieceWriter, WhatTheDiskHoldsIsWhatCounts) {
    Delivery job(1);
    std::vector<std::byte> odd(100, std::byte{9});
    for (const std::int64_t at : {std::int64_t{0}, block}) job.write(at, job.block_at(at));
    job.writer->flush();
    job.write(2 * block - 50, odd);
    for (std::int64_t at = 2 * block; at < static_cast<std::int64_t>(job.content.size()); at += block)
        job.write(at, job.block_at(at));
    ASSERT_TRUE(job.inbox.run([&] { return job.good.size() + job.bad.size() == 1; }));
    std::vector<std::byte> held(job.content.size());
    ASSERT_TRUE(job.storage->read(0, held).ok());
    EXPECT_EQ(job.good.size() == 1, std::ranges::equal(held, bytes_of(job.content)));
}

TEST(PieceWriter, ASlowDiskHoldsTheSenderBack) {
    constexpr std::int64_t high = 12 * block;
    SlowDisk slow(milliseconds(3));
    const HookInPlace in_place(slow);
    // Many pieces begun at once, of which none is whole for long: they must not hold all of the memory.
    Delivery job(24, {.threads = 2, .high_water = high, .low_water = high / 2});
    for (const std::int64_t at : job.offsets(2)) job.write(at, job.block_at(at));
    ASSERT_TRUE(job.inbox.run([&] { return job.good.size() == 24; }));
    EXPECT_GT(job.waits, 0);
    EXPECT_LE(job.most_held, high + block);
    EXPECT_EQ(job.pool.held(), 0);
}

TEST(PieceWriter, FullDisksAndStopsAreSaid) {
    {
        test::FullDisk full(Delivery::piece * 2);
        const HookInPlace in_place(full);
        Delivery job(4, {.threads = 1});  // two could share the room, so that less is whole
        for (std::int64_t at = 0; at < static_cast<std::int64_t>(job.content.size()); at += block)
            job.write(at, job.block_at(at));
        ASSERT_TRUE(job.inbox.run([&] { return job.good.size() + job.bad.size() == 4; }));
        EXPECT_EQ(job.good.size(), 2U);
        EXPECT_TRUE(job.log.has(to_utf8(job.storage->path(2)))) << job.log.all();
        full.free(Delivery::piece * 4);
        const std::multiset<std::int64_t> again = job.bad;
        for (const std::int64_t index : again) {
            for (std::int64_t at = index * Delivery::piece;
                 at < std::min<std::int64_t>((index + 1) * Delivery::piece,
                                             static_cast<std::int64_t>(job.content.size()));
                 at += block)
                job.write(at, job.block_at(at));
        }
        EXPECT_TRUE(job.inbox.run([&] { return job.good.size() == 4; }));
    }
    SlowDisk slow(milliseconds(100));
    const HookInPlace in_place(slow);
    Delivery job(30, {.threads = 2});
    for (const std::int64_t at : job.offsets(3)) job.write(at, job.block_at(at));
    job.writer->flush();
    const auto begin = steady_clock::now();
    job.pool.stop();
    job.writer.reset();
    // Of a queue of some seconds it waits for what is in hand: a run of at most 8 blocks a thread.
    EXPECT_LT(steady_clock::now() - begin, milliseconds(1500));
}

TEST(Checker, ReadsWhatCanBeGoodAndNothingElse) {
    constexpr std::int64_t piece = 256 * 1024;
    const TempFolder folder;
    RecordingLog log;
    std::string content = test::make_content(5, 40 * piece - 77);
    std::fill_n(content.begin() + 8 * piece, 2 * piece, '\0');  // zeros are good bytes as well
    const auto size = static_cast<std::int64_t>(content.size());
    const std::vector<NamedFile> named{
        {u"sparse", 20 * piece}, {u"gone", piece / 2}, {u"end", size - 20 * piece - piece / 2}};
    Storage storage(*FileList::make(named), {}, piece, log);
    ASSERT_TRUE(storage.begin(folder.path(u"job")).ok());
    std::set<std::int64_t> there{0, 1, 10, 19, 21, 22, 30, 39};
    for (const std::int64_t index : there)
        ASSERT_TRUE(storage
                        .write(index * piece, bytes_of(std::string_view(content).substr(
                                                  static_cast<std::size_t>(index * piece), piece)))
                        .ok());
    ASSERT_TRUE(storage.write(22 * piece + 5, bytes_of("wrong")).ok());
    there.erase(22);
    there.insert({8, 9});
    const Hashes hashes(content, piece);
    for (const int threads : {1, 0}) {
        CheckProgress progress;
        std::vector<bool> good;
        const StopSource never;
        ASSERT_TRUE(check_all_pieces(storage, hashes, threads, never, progress, good).ok());
        for (std::int64_t i = 0; i < 40; ++i)
            EXPECT_EQ(good[static_cast<std::size_t>(i)], there.contains(i)) << i;
        EXPECT_EQ(progress.pieces, 40);
        // Where holes can be told (not on every disk) they were not read.
        if (storage.data_of(0).size() > 1) {
            EXPECT_LE(progress.bytes_read, 12 * piece);
        }
    }
    // A disk that fails is not a file that is wrong.
    test::FailNth broken(Operation::read, 3, FileFault::other);
    const HookInPlace in_place(broken);
    CheckProgress progress;
    std::vector<bool> good;
    const StopSource never;
    const Result result = check_all_pieces(storage, hashes, 2, never, progress, good);
    EXPECT_EQ(result.code, Code::local_file);
    EXPECT_NE(result.message().find(to_utf8(folder.path(u"job"))), std::string::npos);
}

TEST(TimedStorage, OfAHundredThousandFiles) {
    constexpr std::size_t count = 100'000;
    constexpr std::int64_t length = 200;
    constexpr std::int64_t piece = 256 * 1024;
    const bool is_fast = path_separator() == u'/';
    const std::size_t files = is_fast ? count : count / 20;  // each file costs ten times as much under Wine
    // In memory where that can be had: some disks take milliseconds to remove a file.
    std::u16string home;
    const bool in_memory = path_kind(u"/dev/shm") == PathKind::folder;
    ASSERT_TRUE(make_temporary_folder(in_memory ? u"/dev/shm" : u"", home).ok());
    RecordingLog log;
    std::vector<NamedFile> named;
    for (std::size_t i = 0; i < files; ++i)
        named.push_back({to_utf16("folder " + std::to_string(i % 300) + "/file.txt"), length});
    const std::string content = test::make_content(1, files * length);
    auto at = steady_clock::now();
    const auto lap = [&](const char* what) {
        const auto now = steady_clock::now();
        std::cout << what << ": " << std::chrono::duration_cast<milliseconds>(now - at).count() << " ms\n";
        at = now;
    };
    const std::int64_t before = test::resident_memory();
    auto list = FileList::make(named);
    ASSERT_TRUE(list.ok());
    lap("names");
    std::optional<Storage> storage;
    storage.emplace(*std::move(list), std::vector<bool>{}, piece, log);
    ASSERT_TRUE(storage->begin(join_path(home, u"job")).ok());
    lap("begun");
    const auto size = static_cast<std::int64_t>(content.size());
    for (std::int64_t from = 0; from < size; from += piece)
        ASSERT_TRUE(storage
                        ->write(from, bytes_of(std::string_view(content).substr(
                                          static_cast<std::size_t>(from), piece)))
                        .ok());
    lap("written");
    std::vector<bool> good((static_cast<std::size_t>(size) + piece - 1) / piece, true);
    const std::u16string state = storage_state_path(join_path(home, u"job"));
    ASSERT_TRUE(save_storage_state(*storage, "many", good, state).ok());
    lap("put on the disk, state saved");
    storage->close();
    StoragePlaces places = storage->places();
    storage.reset();
    lap("closed");
    storage.emplace(*FileList::make(named), std::vector<bool>{}, piece, log);
    ASSERT_TRUE(storage->resume(places).ok());
    lap("opened again");
    auto kept = load_storage_state(state, "many");
    ASSERT_TRUE(kept);
    EXPECT_TRUE(doubt_changed_files(*storage, *kept).empty());
    lap("state looked at");
    const Hashes hashes(content, piece);
    const StopSource never;
    CheckProgress progress;
    std::vector<bool> found;
    ASSERT_TRUE(check_all_pieces(*storage, hashes, 0, never, progress, found).ok());
    EXPECT_EQ(found, good);
    lap("checked");
    const std::int64_t held = test::resident_memory() - before;
    std::cout << "memory: " << held / 1024 << " KiB\n";
    if (test::is_plain_build()) {
        EXPECT_LT(held, 100 * 1024 * 1024);
    }
    EXPECT_TRUE(storage->remove().ok());
    EXPECT_TRUE(remove_file(state).ok());
    EXPECT_TRUE(remove_folder(home).ok());
    lap("removed");
}

TEST(TorrentDocuments, AreKeptWholeOrNotAtAll) {
    const TempFolder folder;
    const std::string hash(40, 'a');
    std::vector<std::byte> read;
    ASSERT_TRUE(save_torrent_document(folder.path(), hash, bytes_of("old")).ok());
    for (const Operation operation :
         {Operation::open, Operation::write, Operation::flush, Operation::rename}) {
        test::FailNth fault(operation, 1, FileFault::no_space);
        {
            const HookInPlace in_place(fault);
            EXPECT_FALSE(save_torrent_document(folder.path(), hash, bytes_of("new")).ok());
        }
        ASSERT_TRUE(load_torrent_document(folder.path(), hash, read).ok());
        EXPECT_TRUE(std::ranges::equal(read, bytes_of("old")));
    }
    for (const char* bad : {"", "../../../x", "AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA"})
        EXPECT_FALSE(save_torrent_document(folder.path(), bad, bytes_of("x")).ok());
    EXPECT_EQ(save_torrent_document(folder.path(u"gone"), hash, bytes_of("x")).fault, FileFault::folder_lost);
    EXPECT_TRUE(remove_torrent_document(folder.path(), hash).ok());
    EXPECT_EQ(load_torrent_document(folder.path(), hash, read).fault, FileFault::not_found);
}

}  // namespace
}  // namespace vantlow
