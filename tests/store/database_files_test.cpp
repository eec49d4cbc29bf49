#include "store/database_files.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <optional>
#include <set>

#include "base/text.h"
#include "platform/folder.h"
#include "sample_store.h"
#include "store/store_writer.h"
#include "support/fault_hook.h"
#include "support/temp_folder.h"

namespace vantlow {
namespace {

using Status = DatabaseLoad::Status;
using test::TempFolder;

std::string image_of(const CategoryTree& tree) {
    CQoMemFile file;
    save_database(tree, file);
    return {reinterpret_cast<const char*>(file.bytes().data()), file.size()};
}

std::string image_with(int jobs) {
    CategoryTree tree;
    CClassNode& root = tree.insert(test::category(u"Downloading", 0), nullptr);
    tree.insert(test::category(u"Completed", 0xAA), &root);
    for (int i = 0; i < jobs; ++i) root.jobs.push_back(test::full_job());
    return image_of(tree);
}

FileError save(const TempFolder& folder, std::string_view image) {
    StoreWriter writer(folder.path());
    const auto bytes = std::as_bytes(std::span(image));
    writer.begin_image();
    writer.save({{std::vector(bytes.begin(), bytes.end())}, {}});
    const StoreWriter::Answer answer = writer.take_answers().at(0);
    return answer.error.ok() ? answer.copy : answer.error;
}

std::size_t jobs_in(const StoredDatabase& stored) {
    return stored.tree.root() == nullptr ? 0 : stored.tree.root()->jobs.size();
}

// Another process may own what stands there now.
TEST(DatabaseFiles, writes_nothing_into_a_folder_that_was_put_in_place_of_its_own) {
    if (path_separator() == u'\\') GTEST_SKIP() << "Windows replaces no folder in which a file is open";
    const std::string image = image_with(3);
    const auto bytes = std::as_bytes(std::span(image));
    const auto half = static_cast<std::ptrdiff_t>(bytes.size() / 2);
    const DatabaseImage pieces{{bytes.begin(), bytes.begin() + half}, {bytes.begin() + half, bytes.end()}};
    for (int replaced_at = 0;; ++replaced_at) {
        SCOPED_TRACE(replaced_at);
        TempFolder folder;
        ASSERT_TRUE(make_folders(folder.path(u"data")).ok());
        int looks = 0;
        const auto in_place = [&] {
            if (looks == replaced_at) {
                EXPECT_TRUE(rename_replace(folder.path(u"data"), folder.path(u"away")).ok());
                EXPECT_TRUE(make_folders(folder.path(u"data")).ok());
                folder.write(u"data/.database", "theirs");
            }
            return looks++ < replaced_at;
        };
        StoreWriter writer(folder.path(u"data"), in_place);
        writer.begin_image();
        writer.save({pieces, {}});
        const StoreWriter::Answer saved = writer.take_answers().at(0);
        if (looks <= replaced_at) break;
        const bool lost = saved.error.fault == FileFault::folder_lost;
        EXPECT_TRUE(lost || saved.copy.fault == FileFault::folder_lost);
        writer.append(bytes.first(10));
        EXPECT_FALSE(writer.take_answers().at(0).error.ok());
        EXPECT_EQ(folder.read(u"data/.database"), "theirs");
        std::vector<FolderEntry> there;
        ASSERT_TRUE(list_folder(folder.path(u"data"), there).ok());
        EXPECT_EQ(there.size(), 1U);
        ASSERT_LT(replaced_at, 20) << "it looks without end";
    }
}

TEST(DatabaseFiles, takes_from_the_two_files_what_holds_more) {
    const std::string full = image_with(3);
    const std::string less = image_with(2);
    const std::string cut = full.substr(0, full.size() - 700);  // two jobs whole, the third one not
    struct Case {
        const char* name;
        std::optional<std::string> database;
        std::optional<std::string> copy;
        Status status;
        std::size_t jobs;
        bool from_copy;
        bool damaged;
    };
    const std::string newer = "Q!60" + full.substr(4);
    const Case cases[] = {
        {"nothing", {}, {}, Status::nothing, 0, false, false},
        {"both whole", less, full, Status::loaded, 2, false, false},
        {"missing", {}, full, Status::loaded, 3, true, false},
        {"empty", "", full, Status::loaded, 3, true, false},
        {"a first start", "", {}, Status::nothing, 0, false, false},
        {"both empty", "", "", Status::nothing, 0, false, true},
        {"cut short, a whole copy", cut, full, Status::loaded, 3, true, true},
        {"cut short, an older copy", full.substr(0, full.size() - 20), less, Status::loaded, 3, false, true},
        {"cut short, no copy", cut, {}, Status::loaded, 2, false, true},
        {"no database at all", "something else", full, Status::loaded, 3, true, true},
        {"both damaged", full.substr(0, 40), cut, Status::loaded, 2, true, true},
        {"of a newer version", newer, full, Status::newer, 0, false, false},
        {"damaged, the copy newer", cut, newer, Status::newer, 0, false, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const TempFolder folder;
        if (c.database) folder.write(u".database", *c.database);
        if (c.copy) folder.write(u".database.copy", *c.copy);
        const StoredDatabase stored = load_database_files(folder.path());
        EXPECT_EQ(stored.status, c.status);
        EXPECT_EQ(jobs_in(stored), c.jobs);
        EXPECT_EQ(stored.from_copy, c.from_copy);
        EXPECT_EQ(stored.damaged, c.damaged);
        EXPECT_EQ(stored.notes.empty(), !c.from_copy && !(c.damaged && c.status != Status::newer));
        EXPECT_EQ(folder.has(u".database"), c.database.has_value()) << "loading changes nothing";
    }
}

TEST(DatabaseFiles, a_database_that_may_not_be_read_is_an_error_and_not_an_empty_one) {
    const TempFolder folder;
    ASSERT_TRUE(make_folders(folder.path(u".database")).ok());
    EXPECT_FALSE(load_database_files(folder.path()).error.ok());
}

/// Before each operation, what a kill or a power cut at that moment would leave of the two files: bytes that
/// were written but not flushed are zeros after a power cut.
class Witness : public FaultHook {
  public:
    explicit Witness(const TempFolder& folder, int fail_at = 0) : folder_(folder), fail_at_(fail_at) {}

    int before(Operation operation, std::u16string_view path, std::int64_t, std::int64_t) noexcept override {
        // What is only looked at changes nothing.
        if (operation > Operation::rename || operation == Operation::size) return 0;
        ++count_;
        for (const auto name : {u".database", u".database.copy", u".database.new", u".database.copy.new"}) {
            const std::u16string whole = folder_.path(name);
            if (operation == Operation::write && path == whole) unflushed_.insert(whole);
            if (operation == Operation::flush && path == whole) unflushed_.erase(whole);
        }
        if (operation == Operation::rename && unflushed_.contains(std::u16string(path))) early_rename_ = true;
        moments_.push_back({read(u".database"), read(u".database.copy")});
        return count_ == fail_at_ ? test::error_number(FileFault::no_space) : 0;
    }
    std::vector<std::pair<std::string, std::string>> moments_;
    std::set<std::u16string> unflushed_;
    bool early_rename_ = false;
    int count_ = 0;

  private:
    // Not through the functions that ask the hook.
    std::string read(std::u16string_view name) const {
        std::ifstream in(to_utf8(folder_.path(name)), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    const TempFolder& folder_;
    int fail_at_;
};

TEST(DatabaseFiles, whatever_operation_of_a_save_fails_or_is_the_last_one_one_file_is_whole) {
    const std::string old_image = image_with(1);
    const std::string new_image = image_with(2);
    const auto is_whole = [&](const std::string& bytes) { return bytes == old_image || bytes == new_image; };
    int operations = 1;
    for (int fail_at = 0; fail_at <= operations; ++fail_at) {
        SCOPED_TRACE(fail_at);
        const TempFolder folder;
        ASSERT_TRUE(save(folder, old_image).ok());
        Witness witness(folder, fail_at);
        FileError error;
        {
            const HookInPlace hook(witness);
            error = save(folder, new_image);
        }
        if (fail_at == 0) operations = witness.count_;
        // The last one removes a journal, which says nothing any more.
        EXPECT_EQ(error.ok(), fail_at == 0 || fail_at == operations);
        EXPECT_FALSE(witness.early_rename_) << "a name was given to bytes that are not on the disk";
        witness.moments_.push_back({folder.read(u".database"), folder.read(u".database.copy")});
        for (const auto& [database, copy] : witness.moments_) {
            EXPECT_TRUE(is_whole(database) || is_whole(copy));
        }
        EXPECT_TRUE(is_whole(folder.read(u".database")));
        ASSERT_TRUE(save(folder, new_image).ok())
            << "the next save is not hindered by what the last one left";
        EXPECT_EQ(folder.read(u".database"), new_image);
        EXPECT_EQ(folder.read(u".database.copy"), new_image);
        EXPECT_EQ(folder.names().size(), 2U);
    }
    EXPECT_GT(operations, 8);
}

TEST(DatabaseFiles, a_damaged_database_is_kept_aside_under_a_free_name) {
    const TempFolder folder;
    std::u16string first;
    std::u16string second;
    folder.write(u".database", "one");
    ASSERT_TRUE(keep_damaged_database(folder.path(), first).ok());
    folder.write(u".database", "two");
    ASSERT_TRUE(keep_damaged_database(folder.path(), second).ok());
    EXPECT_NE(first, second);
    EXPECT_EQ(folder.read(name_of(first)), "one");
    EXPECT_EQ(folder.read(name_of(second)), "two");
    EXPECT_TRUE(name_of(first).starts_with(u".database.damaged-"));
}

TEST(DatabaseFiles, a_backup_has_the_date_in_its_name) {
    EXPECT_EQ(backup_path(u"/b", u"11/25/26"), join_path(u"/b", u"11-25-26.database"));
    EXPECT_EQ(backup_path(join_path(u"/b", u""), u"25.11.2026"), join_path(u"/b", u"25.11.2026.database"));
}

}  // namespace
}  // namespace vantlow
