// Files that move as one, over everything that can come between: every operation on the disk fails once, or
// is the last of a process.
#include "storage/relocation.h"

#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <string>

#include "base/text.h"
#include "platform/fault_hook.h"
#include "platform/file_layout.h"
#include "platform/file_marks.h"
#include "support/fault_hook.h"
#include "support/recording_log.h"
#include "support/temp_folder.h"

namespace vantlow {
namespace {

using test::RecordingLog;
using test::TempFolder;
using State = RelocationEnd::State;

/// Folders of this test's: what is renamed into "new" goes to another disk, where there are two.
class Disks : public FaultHook {
  public:
    bool are_two = false;
    int fails_at = 0;           ///< the number of the operation that fails; 0: none
    int cuts_at = 0;            ///< the number of the one that is the process's last
    StopSource* cut = nullptr;  ///< is asked then
    int seen = 0;

    int before(Operation operation, std::u16string_view path, std::int64_t, std::int64_t) noexcept override {
        if (operation > Operation::list_folder) return 0;
        ++seen;
        if (seen == cuts_at && cut != nullptr) cut->request();
        if (seen == fails_at)
            return test::error_number(operation == Operation::write ? FileFault::no_space
                                                                    : FileFault::access);
        const bool leaves =
            are_two && operation == Operation::rename && path.find(u"new") == std::u16string_view::npos;
        return leaves ? other_disk_number() : 0;
    }
};

/// A torrent's folder of three files, an unfinished one among them, and somebody's own file.
class RelocationTest : public testing::Test {
  protected:
    const std::map<std::u16string, std::string> files{
        {u"a.bin", std::string(300'000, 'a')}, {u"sub/b.bin", "bbbb"}, {u"c.bin.vantlow", "ccc"}};

    static Relocation begin(const TempFolder& folder) {
        for (const auto* within : {u"old", u"old/sub"}) EXPECT_TRUE(make_folders(folder.path(within)).ok());
        return relocation(folder);
    }
    Relocation filled(const TempFolder& folder) const {
        Relocation all = begin(folder);
        for (const auto& [name, text] : files) folder.write(u"old/" + name, text);
        folder.write(u"old/sub/mine.txt", "mine");
        return all;
    }
    static Relocation relocation(const TempFolder& folder) {
        Relocation all;
        for (const std::u16string name : {u"a.bin", u"sub/b.bin", u"c.bin.vantlow", u"gone.bin"})
            all.items.push_back({folder.path(u"old/" + name), folder.path(u"new/T/" + name)});
        all.leaves = folder.path(u"old");
        return all;
    }
    static RelocationEnd run(const Relocation& all, const StopSource& cut = StopSource(),
                             const StopSource& call_off = StopSource()) {
        std::atomic<std::int64_t> moved = 0;
        RecordingLog log;
        return relocate(all, cut, call_off, moved, log);
    }
    /// The bytes of a file below one of the folders; none where it is not there.
    static std::optional<std::string> bytes(const TempFolder& folder, const std::u16string& path) {
        if (path_kind(folder.path(path)) != PathKind::file) return std::nullopt;
        return folder.read(path);
    }
    void expect_all_at(const TempFolder& folder, const std::u16string& at, const std::string& what) const {
        for (const auto& [name, text] : files)
            EXPECT_TRUE(bytes(folder, at + name) == text) << what << ": " << to_utf8(at + name);
        EXPECT_EQ(bytes(folder, u"old/sub/mine.txt"), "mine") << what;
    }
    /// Each file has all of its bytes at one place at least.
    void expect_none_lost(const TempFolder& folder, const std::string& what) const {
        for (const auto& [name, text] : files) {
            const bool is_old = bytes(folder, u"old/" + name) == text;
            const bool is_new = bytes(folder, u"new/T/" + name) == text;
            EXPECT_TRUE(is_old || is_new) << what << ": " << to_utf8(name);
        }
    }
};

TEST_F(RelocationTest, MovesByNameAndAsCopies) {
    for (const bool are_two : {false, true}) {
        const TempFolder folder;
        const Relocation all = filled(folder);
        ASSERT_TRUE(make_folders(folder.path(u"new/T")).ok());
        // Names that a copy might have while it is made.
        for (const auto* others : {u"new/T/a.bin.new", u"new/T/a.bin.vantlow-copy"})
            folder.write(others, "of somebody");
        const FileStamp before = file_stamp(folder.path(u"old/a.bin"));
        Disks disks;
        disks.are_two = are_two;
        const HookInPlace in_place(disks);
        EXPECT_EQ(bytes_of(all), 300'007);
        EXPECT_EQ(run(all).state, State::moved);
        expect_all_at(folder, u"new/T/", are_two ? "two disks" : "one");
        for (const auto* others : {u"new/T/a.bin.new", u"new/T/a.bin.vantlow-copy"})
            EXPECT_EQ(bytes(folder, others), "of somebody");
        EXPECT_FALSE(bytes(folder, u"old/a.bin"));
        EXPECT_EQ(path_kind(folder.path(u"old/sub")), PathKind::folder);  // somebody's file is in it
        // What knows the file by its time goes on knowing it.
        EXPECT_EQ(file_stamp(folder.path(u"new/T/a.bin")).modified, before.modified);
    }
}

TEST_F(RelocationTest, WhatIsInTheWayStaysAndNothingElseGoes) {
    for (const bool are_two : {false, true}) {
        const TempFolder folder;
        const Relocation all = filled(folder);
        ASSERT_TRUE(make_folders(folder.path(u"new/T")).ok());
        folder.write(u"new/T/c.bin.vantlow", "another's");
        Disks disks;
        disks.are_two = are_two;
        const HookInPlace in_place(disks);
        const RelocationEnd end = run(all);
        EXPECT_EQ(end.state, State::unchanged);
        EXPECT_EQ(end.error.fault, FileFault::exists);
        EXPECT_EQ(end.path, folder.path(u"new/T/c.bin.vantlow"));
        expect_all_at(folder, u"old/", "in the way");
        EXPECT_EQ(bytes(folder, u"new/T/c.bin.vantlow"), "another's");
        EXPECT_FALSE(bytes(folder, u"new/T/a.bin"));
        EXPECT_EQ(path_kind(folder.path(u"new/T/sub")), PathKind::none);
    }
}

TEST_F(RelocationTest, IsCalledOff) {
    const TempFolder folder;
    const Relocation all = filled(folder);
    Disks disks;
    disks.are_two = true;
    StopSource call_off;
    disks.cut = &call_off;
    disks.cuts_at = 25;  // among the copies
    const HookInPlace in_place(disks);
    EXPECT_EQ(run(all, StopSource(), call_off).state, State::unchanged);
    expect_all_at(folder, u"old/", "called off");
    EXPECT_EQ(path_kind(folder.path(u"new")), PathKind::none);
}

TEST_F(RelocationTest, AFileThatIsChangedMeanwhileStaysToo) {
    const TempFolder folder;
    Relocation all = filled(folder);
    /// Writes to a file that was copied, when the last one is.
    class Writer : public Disks {
      public:
        std::u16string copied;
        std::u16string last;
        int before(Operation operation, std::u16string_view path, std::int64_t at,
                   std::int64_t length) noexcept override {
            if (operation == Operation::rename && path == last && !std::exchange(is_done_, true)) {
                File file;
                EXPECT_TRUE(file.open(copied, OpenMode::write_existing).ok());
                EXPECT_TRUE(file.write_at(0, std::as_bytes(std::span("X", 1))).ok());
                EXPECT_TRUE(file.resize(7).ok());
            }
            return Disks::before(operation, path, at, length);
        }

      private:
        bool is_done_ = false;
    } disks;
    disks.are_two = true;
    disks.copied = folder.path(u"old/sub/b.bin");
    disks.last = folder.path(u"old/c.bin.vantlow");
    const HookInPlace in_place(disks);
    EXPECT_EQ(run(all).state, State::moved);
    EXPECT_EQ(bytes(folder, u"new/T/sub/b.bin"), "bbbb");
    EXPECT_EQ(bytes(folder, u"old/sub/b.bin")->substr(0, 4), "Xbbb");
}

TEST_F(RelocationTest, EveryOperationMayFail) {
    for (const bool are_two : {false, true}) {
        int failed = 0;
        for (int n = 1;; ++n) {
            const TempFolder folder;
            const Relocation all = filled(folder);
            Disks disks;
            disks.are_two = are_two;
            disks.fails_at = n;
            RelocationEnd end;
            {
                const HookInPlace in_place(disks);
                end = run(all);
            }
            if (disks.seen < n) break;
            const std::string what = "operation " + std::to_string(n);
            switch (end.state) {
                case State::moved:
                    expect_all_at(folder, u"new/T/", what);
                    break;
                case State::unchanged:
                    ++failed;
                    EXPECT_FALSE(end.error.ok()) << what;
                    expect_all_at(folder, u"old/", what);
                    break;
                default:  // one failure alone can be taken back
                    ADD_FAILURE() << what;
            }
        }
        EXPECT_GT(failed, are_two ? 10 : 2);
    }
}

TEST_F(RelocationTest, EveryOperationMayBeTheLastOfAProcess) {
    for (const bool are_two : {false, true}) {
        int cut_short = 0;
        for (int n = 1;; ++n) {
            const TempFolder folder;
            Relocation all = filled(folder);
            Disks disks;
            disks.are_two = are_two;
            // All that comes behind it fails: nothing is done any more.
            class Dead : public FaultHook {
              public:
                explicit Dead(Disks& disks, int n) : disks_(disks), n_(n) {}
                int before(Operation operation, std::u16string_view path, std::int64_t at,
                           std::int64_t length) noexcept override {
                    const int error = disks_.before(operation, path, at, length);
                    if (operation > Operation::list_folder) return error;
                    return disks_.seen > n_ ? test::error_number(FileFault::access) : error;
                }

              private:
                Disks& disks_;
                int n_;
            } dead(disks, n);
            RelocationEnd end;
            {
                const HookInPlace in_place(dead);
                end = run(all);
            }
            const std::string what = "operation " + std::to_string(n);
            expect_none_lost(folder, what);
            if (disks.seen <= n) break;
            if (end.state != State::moved) ++cut_short;
            // The next process.
            Disks whole;
            whole.are_two = are_two;
            const HookInPlace in_place(whole);
            all.goes_on = true;
            EXPECT_EQ(run(all).state, State::moved) << what;
            expect_all_at(folder, u"new/T/", what);
            EXPECT_FALSE(bytes(folder, u"old/a.bin")) << what;
        }
        EXPECT_GT(cut_short, are_two ? 10 : 2);
    }
}

}  // namespace
}  // namespace vantlow
