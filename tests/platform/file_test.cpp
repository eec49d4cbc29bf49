#include "platform/file.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <thread>

#include "base/text.h"
#include "platform/file_marks.h"
#include "support/content.h"
#include "support/fault_hook.h"
#include "support/temp_folder.h"

namespace vantlow {
namespace {

std::span<const std::byte> bytes_of(std::string_view text) {
    return std::as_bytes(std::span(text));
}

class Files : public testing::Test {
  protected:
    std::string read_back(const File& file, std::int64_t offset, std::size_t count) {
        std::vector<std::byte> space(count);
        std::size_t got = 0;
        EXPECT_TRUE(file.read_at(offset, space, got).ok());
        return {reinterpret_cast<const char*>(space.data()), got};
    }

    test::TempFolder folder{test::TempFolder::Name::foreign};
    const std::u16string path = folder.path(u"\u00e4\u65e5\U0001F4C4.bin");
};

TEST(ZoneIdentifier, TellsAddressesAndNothingThatBeginsALineOfItsOwn) {
    EXPECT_EQ(zone_identifier({"https://host/a?b=c", "https://site/"}),
              "[ZoneTransfer]\r\nZoneId=3\r\nReferrerUrl=https://site/\r\nHostUrl=https://host/a?b=c\r\n");
    EXPECT_EQ(zone_identifier({"http://host/a\r\nZoneId=0", ""}), "[ZoneTransfer]\r\nZoneId=3\r\n");
}

TEST_F(Files, PositionedReadsAndWrites) {
    File file;
    ASSERT_TRUE(file.open(path, OpenMode::create_new).ok());
    ASSERT_TRUE(file.write_at(6, bytes_of("world")).ok());
    ASSERT_TRUE(file.write_at(0, bytes_of("hello ")).ok());
    EXPECT_EQ(file.size(), 11);
    EXPECT_EQ(read_back(file, 3, 5), "lo wo");
    EXPECT_EQ(read_back(file, 8, 100), "rld") << "short at the end";
    EXPECT_EQ(read_back(file, 50, 10), "");
    ASSERT_TRUE(file.resize(5).ok());
    ASSERT_TRUE(file.flush().ok());
    file.close();
    EXPECT_FALSE(file.is_open());
    EXPECT_EQ(folder.read(u"\u00e4\u65e5\U0001F4C4.bin"), "hello");
}

TEST_F(Files, ThreadsWriteSideBySide) {
    File file;
    ASSERT_TRUE(file.open(path, OpenMode::create_new).ok());
    constexpr std::int64_t block = 1000;
    constexpr std::int64_t threads = 4;
    const auto write_own = [&](std::int64_t own) {
        const std::string text(block, static_cast<char>('a' + own));
        for (std::int64_t i = 0; i < 100; ++i) {
            EXPECT_TRUE(file.write_at((i * threads + own) * block, bytes_of(text)).ok());
        }
    };
    std::vector<std::thread> writers;
    for (std::int64_t own = 0; own < threads; ++own) writers.emplace_back(write_own, own);
    for (std::thread& writer : writers) writer.join();
    ASSERT_EQ(file.size(), 100 * threads * block);
    for (std::int64_t i = 0; i < 100 * threads; i += 7) {
        EXPECT_EQ(read_back(file, i * block, block),
                  std::string(block, static_cast<char>('a' + i % threads)));
    }
}

TEST_F(Files, ModesSayWhatMayBeThere) {
    File file;
    EXPECT_EQ(file.open(path, OpenMode::read).fault, FileFault::not_found);
    EXPECT_EQ(file.open(path, OpenMode::write_existing).fault, FileFault::not_found);
    EXPECT_FALSE(file.is_open());
    ASSERT_TRUE(file.open(path, OpenMode::write).ok());
    ASSERT_TRUE(file.write_at(0, bytes_of("kept")).ok());
    EXPECT_EQ(File().open(path, OpenMode::create_new).fault, FileFault::exists);
    ASSERT_TRUE(file.open(path, OpenMode::write).ok());
    EXPECT_EQ(file.size(), 4);
    ASSERT_TRUE(file.open(path, OpenMode::truncate).ok());
    EXPECT_EQ(file.size(), 0);
    ASSERT_TRUE(file.open(path, OpenMode::read).ok());
    EXPECT_FALSE(file.write_at(0, bytes_of("x")).ok());
    const FileError missing = file.open(folder.path(u"none/below"), OpenMode::write);
    EXPECT_EQ(missing.fault, FileFault::not_found);
    EXPECT_FALSE(missing.text().empty());
    for (const OpenMode mode :
         {OpenMode::read, OpenMode::write, OpenMode::write_existing, OpenMode::truncate}) {
        EXPECT_EQ(file.open(folder.path(), mode).fault, FileFault::is_folder) << static_cast<int>(mode);
    }
    EXPECT_EQ(file.open(folder.path(std::u16string(400, u'x')), OpenMode::write).fault,
              FileFault::name_too_long);
    EXPECT_EQ(path_kind(folder.path(std::u16string(400, u'x'))), PathKind::none);
}

TEST_F(Files, RoomIsMadeInAdvance) {
    File file;
    ASSERT_TRUE(file.open(path, OpenMode::create_new).ok());
    ASSERT_TRUE(file.allocate(1 << 20).ok());
    EXPECT_EQ(file.size(), 1 << 20);
    EXPECT_EQ(read_back(file, (1 << 20) - 3, 3), std::string(3, '\0'));
    ASSERT_TRUE(file.write_at(0, bytes_of("abc")).ok());
    ASSERT_TRUE(file.allocate(2).ok());
    EXPECT_EQ(file.size(), 2);
    EXPECT_FALSE(file.allocate(std::int64_t{1} << 60).ok()) << "no disk has that";
    EXPECT_EQ(file.size(), 2);
    EXPECT_EQ(read_back(file, 0, 10), "ab");
}

TEST_F(Files, ALockExcludesEverybodyElseUntilItIsClosed) {
    File first;
    File second;
    ASSERT_TRUE(first.open(path, OpenMode::write).ok());
    ASSERT_TRUE(second.open(path, OpenMode::write).ok());
    ASSERT_TRUE(first.try_lock());
    EXPECT_FALSE(second.try_lock());
    EXPECT_TRUE(second.write_at(0, bytes_of("x")).ok()) << "only locks are excluded, not bytes";
    EXPECT_EQ(read_back(first, 0, 9), "x");
    File moved = std::move(first);
    EXPECT_FALSE(second.try_lock());
    moved.close();
    EXPECT_TRUE(second.try_lock());
}

TEST_F(Files, AnOpenFileCanBeRenamedAndRemoved) {
    File file;
    ASSERT_TRUE(file.open(path, OpenMode::create_new).ok());
    ASSERT_TRUE(rename_no_replace(path, folder.path(u"other")).ok());
    ASSERT_TRUE(file.write_at(0, bytes_of("still")).ok());
    EXPECT_EQ(folder.read(u"other"), "still");
    ASSERT_TRUE(remove_file(folder.path(u"other")).ok());
    file.close();
    EXPECT_TRUE(folder.names().empty());
}

TEST_F(Files, RenamingReplacesOnlyWhereItMay) {
    const std::u16string from = folder.write(u"from", "new");
    const std::u16string to = folder.write(u"to", "old");
    EXPECT_EQ(rename_no_replace(from, to).fault, FileFault::exists);
    EXPECT_EQ(folder.read(u"from"), "new");
    EXPECT_EQ(folder.read(u"to"), "old");
    ASSERT_TRUE(rename_no_replace(from, folder.path(u"third")).ok());
    EXPECT_EQ(rename_no_replace(from, to).fault, FileFault::not_found);
    ASSERT_TRUE(rename_replace(folder.path(u"third"), to).ok());
    EXPECT_EQ(folder.read(u"to"), "new");
    EXPECT_EQ(folder.names(), std::vector<std::u16string>{u"to"});
    EXPECT_EQ(remove_file(from).fault, FileFault::not_found);
}

TEST_F(Files, FoldersAreMadeAndListed) {
    const std::u16string deep = folder.path(u"a/b c/\u00e9");
    ASSERT_TRUE(make_folders(deep).ok());
    ASSERT_TRUE(make_folders(deep).ok());
    EXPECT_EQ(path_kind(deep), PathKind::folder);
    EXPECT_TRUE(sync_folder(deep).ok());
    folder.write(u"a/1.part", "");
    folder.write(u"a/\u00e9.part", "");
    folder.write(u"a/2.other", "");
    ASSERT_TRUE(make_folders(folder.path(u"a/x.part")).ok());
    std::vector<std::u16string> names{u"from before"};
    ASSERT_TRUE(list_files(folder.path(u"a"), u".part", names).ok());
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::u16string>{u"1.part", u"\u00e9.part"}));
    EXPECT_EQ(list_files(folder.path(u"none"), u"", names).fault, FileFault::not_found);
    EXPECT_FALSE(make_folders(folder.path(u"a/2.other/below")).ok());
    EXPECT_FALSE(make_folders(folder.path(u"a/2.other")).ok()) << "a file has the name";
    EXPECT_EQ(path_kind(folder.path(u"a/2.other")), PathKind::file);
}

TEST_F(Files, LongPathsWork) {
    std::u16string deep = folder.path();
    while (deep.size() < 400) deep = join_path(deep, std::u16string(60, u'd'));
    ASSERT_TRUE(make_folders(deep).ok());
    const std::u16string name = join_path(deep, u"file");
    ASSERT_TRUE(write_file_atomically(name, bytes_of("x")).ok());
    EXPECT_EQ(path_kind(name), PathKind::file);
    EXPECT_TRUE(rename_no_replace(name, name + u"2").ok());
    EXPECT_TRUE(remove_file(name + u"2").ok());
    // The C++ library could not remove what lies so deep.
    const std::u16string half =
        join_path(join_path(folder.path(), std::u16string(60, u'd')), std::u16string(60, u'd'));
    ASSERT_TRUE(rename_no_replace(join_path(half, std::u16string(60, u'd')), folder.path(u"half")).ok());
}

TEST_F(Files, WholeFilesAreReadUpToALimit) {
    const std::string text(200000, 'q');
    folder.write(u"big", text);
    std::vector<std::byte> bytes;
    ASSERT_TRUE(read_file(folder.path(u"big"), text.size(), bytes).ok());
    EXPECT_EQ(bytes.size(), text.size());
    EXPECT_EQ(std::memcmp(bytes.data(), text.data(), text.size()), 0);
    const FileError longer = read_file(folder.path(u"big"), text.size() - 1, bytes);
    EXPECT_EQ(longer.text(), "The file is too large");
    EXPECT_TRUE(bytes.empty());
    folder.write(u"empty", "");
    EXPECT_TRUE(read_file(folder.path(u"empty"), 0, bytes).ok());
    EXPECT_EQ(read_file(folder.path(u"none"), 10, bytes).fault, FileFault::not_found);
}

TEST_F(Files, AnAtomicWriteLeavesTheOldFileWhereverItFails) {
    ASSERT_TRUE(write_file_atomically(path, bytes_of("old")).ok());
    folder.write(u"\u00e4\u65e5\U0001F4C4.bin.new", "left by a crash");
    test::RecordingHook log;
    {
        const HookInPlace in_place(log);
        ASSERT_TRUE(write_file_atomically(path, bytes_of("newer"), Privacy::owner_only).ok());
    }
    std::vector<Operation> order;
    for (const auto& entry : log.entries()) order.push_back(entry.operation);
    const auto flushed = std::find(order.begin(), order.end(), Operation::flush);
    const auto renamed = std::find(order.begin(), order.end(), Operation::rename);
    EXPECT_LT(std::find(order.begin(), order.end(), Operation::write), flushed);
    EXPECT_LT(flushed, renamed) << "the bytes must be on the disk before the name points to them";
    for (const Operation broken : {Operation::open, Operation::write, Operation::flush, Operation::rename}) {
        test::FailNth hook(broken, 1, FileFault::no_space);
        const HookInPlace in_place(hook);
        EXPECT_EQ(write_file_atomically(path, bytes_of("x")).fault, FileFault::no_space);
        EXPECT_EQ(hook.failed(), 1);
    }
    EXPECT_EQ(folder.names().size(), 1U) << "nothing is left lying about";
    EXPECT_EQ(folder.read(folder.names()[0]), "newer");
}

// Other tests rely on it: a wrong byte is seen, and so is every byte that a power cut takes.
TEST(TestSupport, SeesEveryDifferenceAndKnowsWhatIsNotOnTheDisk) {
    const test::TempFolder folder;
    std::string bytes = test::make_content(7, 70'001);
    const std::u16string path = folder.write(u"f", bytes);
    EXPECT_TRUE(test::file_has(path, bytes));
    for (const std::string& other : {bytes + "x", bytes.substr(1), bytes.substr(0, 70'000), std::string()})
        EXPECT_FALSE(test::file_has(path, other));
    bytes[50'000] = static_cast<char>(bytes[50'000] ^ 1);
    EXPECT_FALSE(test::file_has(path, bytes));
    test::RecordingHook record;
    File file;
    {
        const HookInPlace in_place(record);
        ASSERT_TRUE(file.open(path, OpenMode::truncate).ok());
        ASSERT_TRUE(file.write_at(0, bytes_of("aaaaaa")).ok());
        ASSERT_TRUE(file.flush().ok());
        ASSERT_TRUE(file.write_at(4, bytes_of("bbbb")).ok());
    }
    file.close();
    ASSERT_TRUE(test::lose_ranges(path, record.unflushed(path)).ok());
    EXPECT_EQ(folder.read(u"f"), std::string("aaaa\0\0\0\0", 8));
}

TEST(Paths, AreJoinedAndTakenApart) {
    const std::u16string bar(1, path_separator());
    EXPECT_EQ(join_path(u"a", u"b"), u"a" + bar + u"b");
    EXPECT_EQ(join_path(u"a/", u"b"), u"a/b");
    EXPECT_EQ(join_path(u"", u"b"), u"b");
    EXPECT_EQ(folder_of(u"a/b/c"), u"a/b");
    EXPECT_EQ(name_of(u"a/b/c"), u"c");
    EXPECT_EQ(folder_of(u"c"), u"");
    EXPECT_EQ(name_of(u"c"), u"c");
    EXPECT_EQ(name_of(u"a/"), u"");
    EXPECT_EQ(folder_of(u"/c"), u"/") << "a root keeps its separator";
    if (bar == u"\\") {
        EXPECT_EQ(folder_of(u"C:\\c"), u"C:\\");
        EXPECT_EQ(name_of(u"a/b\\c"), u"c");
    } else {
        EXPECT_EQ(name_of(u"a/b\\c"), u"b\\c");
    }
    EXPECT_EQ(name_of(absolute_path(u"x.bin")), u"x.bin");
    const std::u16string whole = absolute_path(u"x.bin");
    EXPECT_GT(whole.size(), 6U);
    EXPECT_EQ(absolute_path(whole), whole);
    EXPECT_EQ(path_kind(absolute_path(u".")), PathKind::folder);
}

}  // namespace
}  // namespace vantlow
