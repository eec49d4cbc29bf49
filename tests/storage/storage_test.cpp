// The files of a storage: their names, their bytes, what is there after a fault, a kill and a power cut.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <iostream>
#include <thread>

#include "base/text.h"
#include "platform/folder.h"
#include "storage/storage_state.h"
#include "support/content.h"
#include "support/fault_hook.h"
#include "support/recording_log.h"
#include "support/temp_folder.h"

namespace vantlow {
namespace {

using test::FailNth;
using test::FullDisk;
using test::RecordingHook;
using test::RecordingLog;
using test::TempFolder;

constexpr std::int64_t piece = 1000;
constexpr std::uint64_t seed = 7;

FileList listed(const std::vector<NamedFile>& named) {
    auto made = FileList::make(named);
    EXPECT_TRUE(made.ok()) << made.failure().message();
    return made.ok() ? *made : FileList();
}

/// Files that share pieces in every way: several within one, borders on a piece's edge, none of any bytes.
FileList album() {
    return listed({{u"a/first.bin", 2500},
                   {u"a/nothing.txt", 0},
                   {u"b/left out.bin", 3700, false},
                   {u"b/small.bin", 120},
                   {u"tiny/left out.bin", 180, false},
                   {u".pad/500", 500, true, true},
                   {u"a/last.bin", 4040}});
}
std::vector<bool> album_choice() {
    return {true, true, false, true, false, false, true};
}
constexpr std::int64_t album_pieces = 12;

/// The row of bytes that the album's files are of; padding is zeros.
std::string album_bytes() {
    std::string bytes = test::make_content(seed, static_cast<std::size_t>(album().size()));
    const ListedFile padding = album().at(5);
    std::fill_n(bytes.begin() + padding.offset, padding.length, '\0');
    return bytes;
}

std::span<const std::byte> piece_of(const std::string& bytes, std::int64_t index) {
    const auto all = std::as_bytes(std::span(bytes));
    const auto begin = static_cast<std::size_t>(index * piece);
    return all.subspan(begin, std::min<std::size_t>(piece, all.size() - begin));
}

bool holds_piece(Storage& storage, std::int64_t index, const std::string& bytes) {
    const auto wanted = piece_of(bytes, index);
    std::vector<std::byte> got(wanted.size());
    return storage.read(index * piece, got).ok() && std::ranges::equal(got, wanted);
}

/// Every file below a folder, as "a/b.bin", sorted.
std::vector<std::string> tree(const std::u16string& folder, const std::string& within = {}) {
    std::vector<std::string> found;
    std::vector<FolderEntry> entries;
    EXPECT_TRUE(list_folder(folder, entries).ok());
    for (const FolderEntry& entry : entries) {
        const std::string name = within + to_utf8(entry.name);
        if (entry.kind == PathKind::folder) {
            const auto below = tree(join_path(folder, entry.name), name + "/");
            found.insert(found.end(), below.begin(), below.end());
        } else {
            found.push_back(name);
        }
    }
    std::sort(found.begin(), found.end());
    return found;
}

testing::AssertionResult file_is_right(const Storage& storage, std::size_t file, const std::string& bytes) {
    const ListedFile& at = storage.files().at(file);
    return test::file_has(storage.path(file),
                          std::string_view(bytes).substr(static_cast<std::size_t>(at.offset),
                                                         static_cast<std::size_t>(at.length)));
}

TEST(FileList, NamesStayInTheFolderAndApart) {
    const FileList files = listed({{u"../../etc/passwd", 1},
                                   {u"C:\\Windows\\x.dll", 1},
                                   {u"/a/./b//c", 1},
                                   {u"A/B/C", 1},
                                   {u"a/b/c/d", 1},
                                   {u"con/nul.txt", 1},
                                   {u"", 1},
                                   {u"..", 1},
                                   {u"a/b/c.vantlow", 1},
                                   {u"\u00C4/x", 1},
                                   {u"\u00E4/X", 1},
                                   {u"\u017B", 1},
                                   {u"\u017C", 1},
                                   {u"a/b", 1}});
    std::vector<std::string> names;
    for (std::size_t i = 0; i < files.count(); ++i) {
        std::string name = to_utf8(files.at(i).path);
        std::replace(name.begin(), name.end(), '\\', '/');
        names.push_back(name);
    }
    EXPECT_EQ(names, (std::vector<std::string>{"etc/passwd", "C_/Windows/x.dll", "a/b/c", "a/b/C(1)",
                                               "a/b/C(2)/d", "_con/_nul.txt", "_", "_(1)", "a/b/c.vantlow_",
                                               "\u00C4/x", "\u00C4/X(1)", "\u017B", "\u017C(1)", "a/b(1)"}));
    EXPECT_FALSE(FileList::make({}).ok());
    const std::vector<NamedFile> endless{{u"a", INT64_MAX}, {u"b", INT64_MAX}};
    EXPECT_FALSE(FileList::make(endless).ok());
}

// Names are free when a storage begins, and may be taken when its files are made: by somebody, or by one of
// its own files where a system tells fewer names apart.
TEST(Storage, TakesNoFileOfOthersForItsOwn) {
    const TempFolder folder;
    const std::u16string home = folder.path(u"album");
    const std::string bytes = album_bytes();
    RecordingLog log;
    StoragePlaces places;
    {
        Storage storage(album(), album_choice(), piece, log);
        ASSERT_TRUE(storage.begin(home).ok());
        ASSERT_TRUE(make_folders(folder.path(u"album/a")).ok());
        folder.write(u"album/a/first.bin.vantlow", "of others");
        for (const std::int64_t index : {0, 1, 7}) {
            ASSERT_TRUE(storage.write(index * piece, piece_of(bytes, index)).ok());
        }
        EXPECT_EQ(name_of(storage.path(0)), u"first(1).bin.vantlow");
        EXPECT_TRUE(holds_piece(storage, 0, bytes));
        places = storage.places();
    }
    EXPECT_EQ(folder.read(u"album/a/first.bin.vantlow"), "of others");
    // A whole file beside an unfinished one is not the storage's.
    folder.write(u"album/a/last.bin", "of others");
    Storage storage(album(), album_choice(), piece, log);
    ASSERT_TRUE(storage.resume(places).ok());
    EXPECT_EQ(storage.shape(6), FileShape::partial);
    EXPECT_TRUE(holds_piece(storage, 7, bytes));
    ASSERT_TRUE(storage.finish(6).ok());
    EXPECT_EQ(name_of(storage.path(6)), u"last(1).bin");
    EXPECT_EQ(folder.read(u"album/a/last.bin"), "of others");
    // Neither is one that its owner says is not.
    storage.disown(6);
    EXPECT_EQ(storage.shape(6), FileShape::absent);
    ASSERT_TRUE(storage.write(7 * piece, piece_of(bytes, 7)).ok());
    EXPECT_EQ(name_of(storage.path(6)), u"last(2).bin.vantlow");
}

TEST(Storage, HoldsARowOfBytesInChosenFilesOnly) {
    const TempFolder folder(TempFolder::Name::foreign);
    const std::u16string home = folder.path(u"album");
    const std::string bytes = album_bytes();
    RecordingLog log;
    Storage storage(album(), album_choice(), piece, log, {.open_files = 1});
    ASSERT_TRUE(storage.begin(home).ok());
    for (std::int64_t i = album_pieces - 1; i >= 0; --i) {
        const Result written = storage.write(i * piece, piece_of(bytes, i));
        EXPECT_EQ(written.ok(), storage.is_wanted(i)) << i << written.message();
        if (!storage.is_wanted(i)) {
            EXPECT_EQ(written.code, Code::unsupported);
        }
    }
    for (std::int64_t i = 0; i < album_pieces; ++i)
        if (storage.is_wanted(i)) {
            EXPECT_TRUE(holds_piece(storage, i, bytes)) << i;
        }
    EXPECT_EQ(tree(home), (std::vector<std::string>{".vantlow-parts", "a/first.bin.vantlow",
                                                    "a/last.bin.vantlow", "b/small.bin.vantlow"}));
    // Somebody else takes a name before the file has it.
    File taken;
    ASSERT_TRUE(taken.open(join_path(home, join_path(u"a", u"last.bin")), OpenMode::create_new).ok());
    for (const std::size_t file : {0U, 1U, 3U, 6U}) ASSERT_TRUE(storage.finish(file).ok());
    EXPECT_EQ(storage.finish(2).code, Code::unsupported);
    for (const std::size_t file : {0U, 1U, 3U, 6U}) EXPECT_TRUE(file_is_right(storage, file, bytes)) << file;
    EXPECT_EQ(tree(home), (std::vector<std::string>{".vantlow-parts", "a/first.bin", "a/last(1).bin",
                                                    "a/last.bin", "a/nothing.txt", "b/small.bin"}));
    // Chosen later: what is known of it is taken over, and only the rest is written; also where it went back
    // in between.
    for (const bool chosen : {true, false, true}) {
        for (const std::size_t file : {2U, 4U}) {
            ASSERT_TRUE(storage.choose(file, chosen).ok());
            ASSERT_TRUE(storage.put_back(file).ok());
            EXPECT_EQ(storage.shape(file), chosen ? FileShape::partial : FileShape::absent);
        }
        for (const std::int64_t shared : {2, 6}) EXPECT_TRUE(holds_piece(storage, shared, bytes)) << chosen;
    }
    for (std::int64_t i = 3; i < 6; ++i) ASSERT_TRUE(storage.write(i * piece, piece_of(bytes, i)).ok());
    for (const std::size_t file : {2U, 4U}) {
        ASSERT_TRUE(storage.finish(file).ok());
        EXPECT_TRUE(file_is_right(storage, file, bytes)) << file;
    }
    // Bytes that were wrong: the name does not show them any longer.
    ASSERT_TRUE(storage.write(0, piece_of(bytes, 0)).ok());
    EXPECT_EQ(tree(home).at(1), "a/first.bin.vantlow");
    Storage other(album(), album_choice(), piece, log);
    EXPECT_TRUE(other.resume(storage.places()).message().find("in use") != std::string::npos);
    storage.close();
    EXPECT_EQ(tree(home).front(), "a/first.bin.vantlow") << "the part file is not needed";
}

/// A life of a storage, in steps that stop at the first failure; `kept` is what its state promises.
Result live(const TempFolder& folder, RecordingLog& log, std::vector<std::string>* trace = nullptr) {
    const std::string bytes = album_bytes();
    const std::u16string home = folder.path(u"album");
    const std::u16string state = storage_state_path(home);
    Storage storage(album(), album_choice(), piece, log, {.allocate = true, .open_files = 2});
    std::vector<bool> good(album_pieces);
    const auto save = [&] { return save_storage_state(storage, "album", good, state); };
    const auto write = [&](std::int64_t index) {
        const Result result = storage.write(index * piece, piece_of(bytes, index));
        if (result.ok()) good[static_cast<std::size_t>(index)] = true;
        return result;
    };
    std::vector<std::function<Result()>> steps{[&] { return storage.begin(home); }};
    for (const std::int64_t index : {2, 0, 6, 1})
        steps.emplace_back([&write, index] { return write(index); });
    steps.emplace_back(save);
    for (const std::size_t file : {0U, 1U, 3U})
        steps.emplace_back([&storage, file] { return storage.finish(file); });
    // One that has no piece of its own yet goes back, and comes again.
    for (const bool chosen : {true, false, true}) {
        steps.emplace_back([&storage, chosen] { return storage.choose(2, chosen); });
        steps.emplace_back(save);
        steps.emplace_back([&storage] { return storage.put_back(2); });
    }
    for (const std::int64_t index : {3, 4, 5, 7, 8})
        steps.emplace_back([&write, index] { return write(index); });
    steps.emplace_back(save);
    for (const std::int64_t index : {9, 10, 11}) steps.emplace_back([&write, index] { return write(index); });
    for (const std::size_t file : {2U, 6U})
        steps.emplace_back([&storage, file] { return storage.finish(file); });
    steps.emplace_back(save);
    for (std::size_t i = 0; i < steps.size(); ++i) {
        if (Result result = steps[i](); !result.ok()) return result;
        if (trace != nullptr) trace->push_back(std::to_string(i));
    }
    return {};
}

// Whatever happened: the good pieces are there, and what bears a name is whole.
void expect_promises_kept(const TempFolder& folder, bool all_well, const std::string& what) {
    const std::string bytes = album_bytes();
    RecordingLog log;
    auto state = load_storage_state(storage_state_path(folder.path(u"album")), "album");
    ASSERT_TRUE(state || !all_well) << what;
    StoragePlaces places;
    if (state) places = state->places;
    if (places.folder.empty()) places.folder = folder.path(u"album");
    if (path_kind(places.folder) != PathKind::folder) return;  // it failed before it began
    Storage storage(album(), state ? state->chosen : album_choice(), piece, log);
    ASSERT_TRUE(storage.resume(places).ok()) << what << log.all();
    for (std::size_t file = 0; file < storage.files().count(); ++file) {
        if (storage.shape(file) == FileShape::finished) {
            EXPECT_TRUE(file_is_right(storage, file, bytes)) << what;
        }
        if (all_well && storage.is_chosen(file)) {
            EXPECT_EQ(storage.shape(file), FileShape::finished) << what;
        }
    }
    if (!state) return;
    // What could not be looked at when the state was saved is checked again.
    auto good = static_cast<std::int64_t>(doubt_changed_files(storage, *state).size());
    for (std::int64_t i = 0; i < album_pieces; ++i) {
        if (!state->good[static_cast<std::size_t>(i)]) continue;
        ++good;
        EXPECT_TRUE(holds_piece(storage, i, bytes)) << what << ", piece " << i << log.all();
    }
    if (all_well) {
        EXPECT_EQ(good, album_pieces) << what;
    }
}

TEST(Storage, LooksForPiecesThatCameAfterItsState) {
    const TempFolder folder;
    const std::u16string home = folder.path(u"album");
    const std::string bytes = album_bytes();
    RecordingLog log;
    StoragePlaces places;
    std::vector<bool> good(album_pieces, false);
    std::vector<std::size_t> late;
    {
        Storage storage(album(), album_choice(), piece, log);
        ASSERT_TRUE(storage.begin(home).ok());
        for (std::int64_t i = 0; i < album_pieces; ++i) {
            if (!storage.is_wanted(i)) continue;
            ASSERT_TRUE(storage.write(i * piece, piece_of(bytes, i)).ok());
            if (i > 0) {
                late.push_back(static_cast<std::size_t>(i));
                continue;
            }
            good[0] = true;
            ASSERT_TRUE(save_storage_state(storage, "album", good, storage_state_path(home)).ok());
            // A clock that stands still for a moment must not hide that more is written.
            std::this_thread::sleep_for(std::chrono::milliseconds(30));
        }
        places = storage.places();
    }
    Storage storage(album(), album_choice(), piece, log);
    ASSERT_TRUE(storage.resume(places).ok());
    auto state = load_storage_state(storage_state_path(home), "album");
    ASSERT_TRUE(state);
    EXPECT_TRUE(doubt_changed_files(storage, *state).empty());
    EXPECT_EQ(late_pieces(storage, *state), late);
}

TEST(Storage, SeesWhatWasChangedWhileNobodyWasAtWork) {
    struct Case {
        const char16_t* changed;  ///< a file in the folder; null: none
        std::vector<std::size_t> doubted;
    };
    for (const auto& [changed, doubted] : {Case{nullptr, {}}, Case{u"a/last.bin.vantlow", {7, 8, 9, 10, 11}},
                                           Case{u".vantlow-parts", {2, 6}}}) {
        const TempFolder folder;
        const std::u16string home = folder.path(u"album");
        const std::string bytes = album_bytes();
        RecordingLog log;
        StoragePlaces places;
        {
            Storage storage(album(), album_choice(), piece, log);
            ASSERT_TRUE(storage.begin(home).ok());
            std::vector<bool> good(album_pieces, false);
            for (std::int64_t i = 0; i < album_pieces; ++i) {
                if (!storage.is_wanted(i)) continue;
                ASSERT_TRUE(storage.write(i * piece, piece_of(bytes, i)).ok());
                good[static_cast<std::size_t>(i)] = true;
            }
            places = storage.places();
            ASSERT_TRUE(save_storage_state(storage, "album", good, storage_state_path(home), true).ok());
        }
        if (changed != nullptr) {
            std::this_thread::sleep_for(std::chrono::milliseconds(30));  // clocks of files tick slowly
            std::string content = folder.read(u"album/" + std::u16string(changed));
            content.front() ^= 1;
            folder.write(u"album/" + std::u16string(changed), content);
        }
        Storage storage(album(), album_choice(), piece, log);
        ASSERT_TRUE(storage.resume(places).ok());
        auto state = load_storage_state(storage_state_path(home), "album");
        ASSERT_TRUE(state);
        EXPECT_EQ(doubt_changed_files(storage, *state), doubted);
        EXPECT_TRUE(late_pieces(storage, *state).empty() || changed != nullptr);
    }
}

// After a kill the writer's own bytes may stand behind the last save, but not for long.
TEST(Storage, SeesWhatWasChangedLongAfterAKill) {
    for (const bool is_later : {false, true}) {
        const TempFolder folder;
        const std::u16string home = folder.path(u"album");
        RecordingLog log;
        Storage storage(album(), album_choice(), piece, log);
        ASSERT_TRUE(storage.begin(home).ok());
        ASSERT_TRUE(storage.write(9 * piece, piece_of(album_bytes(), 9)).ok());
        std::vector<bool> good(album_pieces, false);
        good[9] = true;
        ASSERT_TRUE(save_storage_state(storage, "album", good, storage_state_path(home)).ok());
        auto state = load_storage_state(storage_state_path(home), "album");
        ASSERT_TRUE(state);
        EXPECT_GT(state->saved, 0);
        if (is_later) state->saved -= std::int64_t{130} * 1'000'000'000;  // as if it had been saved then
        EXPECT_EQ(doubt_changed_files(storage, *state).size(), is_later ? 1U : 0U);
    }
}

/// A life that ends before its n-th write or rename, and with it every byte that was not flushed.
class PowerCut : public FaultHook {
  public:
    explicit PowerCut(int n) : n_(n) {}
    int before(Operation operation, std::u16string_view path, std::int64_t offset,
               std::int64_t length) noexcept override {
        const bool changes = operation == Operation::write || operation == Operation::rename ||
                             operation == Operation::remove || operation == Operation::flush ||
                             operation == Operation::resize;
        if (changes && ++seen_ >= n_) return test::error_number(FileFault::other);
        // Bytes that have moved to another name are still those of the first one.
        return seen_ < n_ ? recorded_.before(operation, path, offset, length) : 0;
    }
    [[nodiscard]] bool is_over() const { return seen_ < n_; }
    void take_bytes(const TempFolder& folder) const {
        for (const std::string& name : tree(folder.path())) {
            const std::u16string path = folder.path(to_utf16(name));
            static_cast<void>(test::lose_ranges(path, recorded_.unflushed(path)));
        }
    }

  private:
    int n_;
    int seen_ = 0;
    RecordingHook recorded_;
};

TEST(StorageTorture, APowerCutTakesNothingThatWasPromised) {
    bool over = false;
    const int first = 1 + static_cast<int>(std::chrono::system_clock::now().time_since_epoch().count() % 2);
    int lives = 0;
    for (int n = first; !over && !HasFailure(); n += 2, ++lives) {
        const TempFolder folder;
        RecordingLog log;
        PowerCut cut(n);
        Result result;
        {
            const HookInPlace in_place(cut);
            result = live(folder, log);
        }
        over = cut.is_over();
        cut.take_bytes(folder);
        expect_promises_kept(folder, result.ok(), "cut at " + std::to_string(n) + ": " + result.message());
    }
    EXPECT_GT(lives, 20);
}

/// Fails the n-th of all operations on files.
class FailOne : public FaultHook {
  public:
    explicit FailOne(int n) : n_(n) {}
    int before(Operation operation, std::u16string_view, std::int64_t, std::int64_t) noexcept override {
        if (operation > Operation::list_folder) return 0;
        if (++seen_ != n_) return 0;
        failed_ = operation;
        return test::error_number(operation == Operation::write ? FileFault::no_space : FileFault::access);
    }
    [[nodiscard]] bool has_failed() const { return seen_ >= n_; }
    [[nodiscard]] Operation failed() const { return failed_; }
    [[nodiscard]] int seen() const { return seen_; }

  private:
    int n_;
    int seen_ = 0;
    Operation failed_ = Operation::open;
};

/// One life with one fault; what is there afterwards is looked at. The hook tells how it went.
void live_once(FailOne& hook) {
    const TempFolder folder;
    RecordingLog log;
    Result result;
    {
        const HookInPlace in_place(hook);
        result = live(folder, log);
    }
    const std::string what = hook.has_failed() ? "operation " + std::to_string(hook.seen()) + " of kind " +
                                                     std::to_string(static_cast<int>(hook.failed())) + ": " +
                                                     result.message()
                                               : "no fault";
    EXPECT_TRUE(result.ok() || !result.detail.empty()) << what;
    expect_promises_kept(folder, result.ok(), what);
}

TEST(StorageFaults, EveryOperationFailsOnce) {
    FailOne none(-1);
    live_once(none);
    // One process fails every third operation, the next one those between them: all are reached in three
    // runs.
    const int first = 1 + static_cast<int>(std::chrono::system_clock::now().time_since_epoch().count() % 3);
    for (int n = first; n <= none.seen() && !HasFailure(); n += 3) {
        FailOne hook(n);
        live_once(hook);
    }
    RecordProperty("operations", none.seen());
    std::cout << none.seen() << " operations, begun at " << first << "\n";
}

}  // namespace
}  // namespace vantlow
