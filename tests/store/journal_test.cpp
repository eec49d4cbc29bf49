// The journal and what stands on it: whatever happens to the process, what was answered for is there again.
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <mutex>
#include <random>
#include <thread>

#include "base/text.h"
#include "sample_store.h"
#include "store/data_folder_lock.h"
#include "store/job_store.h"
#include "support/fault_hook.h"
#include "support/temp_folder.h"

namespace vantlow {
namespace {

using test::TempFolder;
using namespace std::chrono_literals;

std::unique_ptr<JobStore> open(const TempFolder& folder, DataFolderLock* lock = nullptr) {
    std::string error;
    auto store = JobStore::open({folder.path(), u"/downloads", true, lock}, error);
    EXPECT_NE(store, nullptr) << error;
    return store;
}

std::unique_ptr<CJobNode> job(const std::string& address) {
    auto made = std::make_unique<CJobNode>();
    made->address = to_utf16(address);
    return made;
}

// Everything that a person would miss.
std::string picture(JobStore& store) {
    std::string text;
    for (CClassNode* node : store.tree().all()) {
        text += "[" + guid_text(node->identity).substr(0, 8) + " " + to_utf8(node->name) + " in " +
                (node->parent != nullptr ? to_utf8(node->parent->name) : "") + "]\n";
        for (const auto& filed : node->jobs) {
            text += "  " + guid_text(filed->identity).substr(0, 8) + " " + to_utf8(filed->address) + " " +
                    to_utf8(filed->comment) + " " + std::to_string(filed->order) + " " +
                    std::string(job_state_name(filed->state)) + "\n";
        }
    }
    return text;
}

TEST(Journal, takes_the_whole_frames_of_its_own_file_only) {
    const JournalFrames frames(Guid::from_numbers(1, 2));
    std::vector<std::byte> file = frames.head();
    std::vector<std::size_t> ends{file.size()};
    for (const std::size_t size : {1U, 40U, 3000U}) {
        const auto frame = frames.frame(file.size(), std::vector(size, std::byte{7}));
        file.insert(file.end(), frame.begin(), frame.end());
        ends.push_back(file.size());
    }
    for (std::size_t size = 0; size <= file.size(); size += size < ends[2] + 30 ? 1U : 97U) {
        const auto whole = std::count_if(ends.begin() + 1, ends.end(), [&](auto end) { return end <= size; });
        EXPECT_EQ(JournalFrames::read(std::span(file).first(size)).size(), static_cast<std::size_t>(whole));
    }
    ASSERT_EQ(JournalFrames::read(file).size(), 3U);
    for (const std::size_t at : {ends[0] + 1, ends[0] + 5, ends[0] + 20}) {
        std::vector<std::byte> damaged = file;
        damaged[at] ^= std::byte{1};
        EXPECT_TRUE(JournalFrames::read(damaged).empty()) << at;
    }
    // What an earlier file left at this place of the disk.
    const JournalFrames other(Guid::from_numbers(1, 3));
    std::vector<std::byte> mixed = other.head();
    mixed.insert(mixed.end(), file.begin() + static_cast<std::ptrdiff_t>(ends[0]), file.end());
    EXPECT_TRUE(JournalFrames::read(mixed).empty());
}

/// Keeps what a kill and what a power cut would leave at each moment, with how much was answered for then.
class Witness : public FaultHook {
  public:
    struct Moment {
        std::size_t answered = 0;
        std::map<std::u16string, std::string> files;
    };
    explicit Witness(const TempFolder& folder) : folder_(folder) {}

    int before(Operation operation, std::u16string_view path, std::int64_t offset,
               std::int64_t length) noexcept override {
        if (operation == Operation::start_thread && no_threads_) return EAGAIN;
        if (operation > Operation::rename || operation == Operation::size) return 0;
        const std::lock_guard guard(mutex_);
        keep();
        if (operation == Operation::write) unflushed_[std::u16string(path)].emplace_back(offset, length);
        if (operation == Operation::flush) unflushed_.erase(std::u16string(path));
        if (operation == Operation::open && path.ends_with(u".new")) unflushed_.erase(std::u16string(path));
        if (slow_ && operation == Operation::flush) std::this_thread::sleep_for(1ms);
        const bool breaks = operation == Operation::write || operation == Operation::flush;
        if (!breaks || fail_every_ == 0 || ++asked_ % fail_every_ != 0) return 0;
        return test::error_number(FileFault::no_space);
    }
    void set_answered(std::size_t count) {
        const std::lock_guard guard(mutex_);
        answered_ = count;
    }

    bool no_threads_ = false;
    bool slow_ = false;
    int fail_every_ = 0;
    std::vector<Moment> moments_;

  private:
    void keep() {
        Moment killed{answered_, {}};
        for (const auto name : {u".database", u".database.copy", u".database.journal"}) {
            std::ifstream in(to_utf8(folder_.path(name)), std::ios::binary);
            if (!in) continue;
            killed.files[name] = {std::istreambuf_iterator<char>(in), {}};
        }
        Moment cut = killed;
        for (auto& [name, bytes] : cut.files) {
            const auto at = unflushed_.find(folder_.path(name));
            if (at == unflushed_.end()) continue;
            for (const auto& [offset, length] : at->second) {
                for (std::int64_t i = offset; i < offset + length; ++i) {
                    if (static_cast<std::size_t>(i) < bytes.size()) bytes[static_cast<std::size_t>(i)] = '\0';
                }
            }
        }
        for (Moment& moment : {std::ref(killed), std::ref(cut)}) {
            const bool known = !moments_.empty() && moments_.back().answered == moment.answered &&
                               moments_.back().files == moment.files;
            if (!known) moments_.push_back(std::move(moment));
        }
    }

    const TempFolder& folder_;
    std::mutex mutex_;
    std::size_t answered_ = 0;
    int asked_ = 0;
    std::map<std::u16string, std::vector<std::pair<std::int64_t, std::int64_t>>> unflushed_;
};

/// Changes a store by chance.
class Changer {
  public:
    Changer(JobStore& store, unsigned seed) : store_(store), chance_(seed) {}

    void change() {
        const std::vector<CJobNode*> jobs = store_.jobs_below(nullptr);
        const std::vector<CClassNode*> categories = store_.tree().all();
        CClassNode& category = *categories[pick(categories.size())];
        CClassNode& other = *categories[pick(categories.size())];
        CJobNode* const some = jobs.empty() ? nullptr : jobs[pick(jobs.size())];
        switch (pick(some == nullptr ? 2 : 10)) {
            case 0:
            case 1:
                store_.add(job("http://h/" + std::to_string(++count_)), category);
                break;
            case 2:
                store_.remove(*some);
                break;
            case 3:
                store_.move(*some, category);
                break;
            case 4:
                store_.set_state(*some, static_cast<JobState>(2 + pick(3)));
                break;
            case 5:
                store_.queue_last(*some);
                break;
            case 6:
                if (categories.size() < 8)
                    store_.add_category(to_utf16("c" + std::to_string(++count_)), u"", category);
                break;
            case 7:
                if (pick(3) == 0) store_.remove_category(category);
                break;
            case 8:
                store_.move_category(category, other);
                break;
            default:
                some->comment = to_utf16(std::to_string(++count_));
                store_.changed(*some);
        }
    }
    std::size_t pick(std::size_t count) {
        return std::uniform_int_distribution<std::size_t>(0, count - 1)(chance_);
    }

  private:
    JobStore& store_;
    std::mt19937 chance_;
    int count_ = 0;
};

std::string reopened(const Witness::Moment& moment) {
    const TempFolder folder;
    for (const auto& [name, bytes] : moment.files) folder.write(name, bytes);
    const auto store = open(folder);
    return store == nullptr ? "" : picture(*store);
}

struct Weather {
    const char* name;
    bool no_threads;
    int fail_every;
};

TEST(Journal, brings_back_what_was_answered_for_after_a_kill_or_a_power_cut_at_any_moment) {
    for (const Weather& weather :
         {Weather{"", true, 0}, {"beside a save", false, 0}, {"that fails", true, 7}}) {
        SCOPED_TRACE(weather.name);
        const TempFolder folder;
        {
            std::string error;
            ASSERT_TRUE(open(folder)->save(Settings(), error)) << error;
        }
        const Settings settings;
        const auto store = open(folder);
        std::vector<std::string> pictures{picture(*store)};
        Witness witness(folder);
        witness.no_threads_ = weather.no_threads;
        witness.slow_ = !weather.no_threads;
        int refused = 0;
        {
            const HookInPlace hook(witness);
            store->write_behind(settings, [] {});
            Changer changer(*store, 11);
            witness.fail_every_ = weather.fail_every;
            for (int i = 0; i < 70; ++i) {
                for (std::size_t n = changer.pick(3) + 1; n > 0; --n) changer.change();
                pictures.push_back(picture(*store));
                const std::size_t number = pictures.size() - 1;
                store->commit(
                    [&, number](const std::string& error) {
                        if (error.empty()) witness.set_answered(number);
                        if (!error.empty()) ++refused;
                    },
                    JobStore::OnFailure::remove_added);
                if (i % 9 == 4) store->save_behind();
                store->work();
                pictures.push_back(picture(*store));  // where something was taken back
                if (witness.slow_) std::this_thread::sleep_for(std::chrono::milliseconds(changer.pick(8)));
            }
            store->stop_writing_behind();
        }
        EXPECT_EQ(refused > 0, weather.fail_every > 0);
        std::size_t behind = 0;
        for (const Witness::Moment& moment : witness.moments_) {
            const std::string found = reopened(moment);
            const auto from = pictures.begin() + static_cast<std::ptrdiff_t>(moment.answered);
            const auto at = std::find(from, pictures.end(), found);
            ASSERT_NE(at, pictures.end()) << moment.answered << " were answered for:\n"
                                          << *from << "found:\n"
                                          << found;
            if (at != from) ++behind;
        }
        // Beside a thread that writes, as many changes go out at once as came meanwhile.
        EXPECT_GT(witness.moments_.size(), weather.no_threads ? 50U : 10U);
        EXPECT_GT(behind, 0U);
    }
}

TEST(Journal, is_never_replayed_over_another_database_than_its_own) {
    const TempFolder folder;
    const Settings settings;
    std::string error;
    const auto store = open(folder);
    ASSERT_TRUE(store->save(settings, error)) << error;
    const std::string backup = folder.read(u".database");
    store->write_behind(settings, [] {});
    store->add(job("http://h/one"), *store->tree().root());
    ASSERT_TRUE(store->save(settings, error)) << error;
    store->add(job("http://h/two"), *store->tree().root());
    store->commit([](const std::string& failure) { EXPECT_EQ(failure, ""); });
    store->stop_writing_behind();
    ASSERT_TRUE(folder.has(u".database.journal"));
    EXPECT_EQ(open(folder)->size(), 2U);
    folder.write(u".database", backup);  // a person brings an old one back
    EXPECT_EQ(open(folder)->size(), 0U);
    folder.write(u".database", "");  // what may be left of all of them after a power cut
    folder.write(u".database.copy", "");
    const auto lost = open(folder);
    ASSERT_EQ(lost->size(), 1U) << "those that were added since it was begun";
    EXPECT_EQ(lost->jobs_below(nullptr).front()->address, u"http://h/two");
    EXPECT_FALSE(lost->notes().empty()) << "nothing was said";
}

TEST(Journal, is_folded_into_the_database_and_bounded) {
    const TempFolder folder;
    const Settings settings;
    std::string error;
    const auto store = open(folder);
    ASSERT_TRUE(store->save(settings, error)) << error;
    store->write_behind(settings, [] {});
    CJobNode& filed = store->add(job("http://h/" + std::string(60'000, 'x')), *store->tree().root());
    std::size_t longest = 0;
    for (int i = 0; i < 200; ++i) {
        store->queue_last(filed);
        bool settled = false;
        store->commit([&](const std::string&) { settled = true; });
        while (!settled) {
            store->work();
            std::this_thread::sleep_for(100us);
        }
        if (folder.has(u".database.journal"))
            longest = std::max(longest, folder.read(u".database.journal").size());
    }
    EXPECT_LT(longest, 6'000'000U);
    EXPECT_GT(longest, 1'000'000U);
    ASSERT_TRUE(store->save(settings, error)) << error;
    EXPECT_EQ(folder.names(), (std::vector<std::u16string>{u".database", u".database.copy"}));
}

TEST(JobStore, takes_back_a_job_whose_adding_cannot_be_made_safe) {
    const TempFolder folder;
    const Settings settings;
    std::string error;
    const auto store = open(folder);
    ASSERT_TRUE(store->save(settings, error)) << error;
    store->write_behind(settings, [] {});
    CJobNode& kept = store->add(job("http://h/kept"), *store->tree().root());
    EXPECT_TRUE(store->is_unsettled(kept));
    std::vector<std::string> answers;
    const auto commit = [&] {
        store->commit([&](const std::string& failure) { answers.push_back(failure); },
                      JobStore::OnFailure::remove_added);
        store->stop_writing_behind();
        store->write_behind(settings, [] {});
    };
    commit();
    EXPECT_FALSE(store->is_unsettled(kept));
    store->stop_writing_behind();
    for (const auto kind : {Operation::write, Operation::flush}) {
        test::FailNth fault(kind, 1, FileFault::no_space, 1000);
        const HookInPlace hook(fault);
        store->write_behind(settings, [] {});
        store->add(job("http://h/new"), *store->tree().root());
        commit();
        EXPECT_NE(answers.back(), "");
        EXPECT_EQ(store->size(), 1U);
        EXPECT_EQ(store->waiting().size(), 1U);
        store->stop_writing_behind();
    }
    EXPECT_EQ(open(folder)->size(), 1U);
    store->write_behind(settings, [] {});
    store->add(job("http://h/later"), *store->tree().root());
    commit();
    EXPECT_EQ(answers.back(), "") << "as soon as the disk takes something again";
    store->stop_writing_behind();
    EXPECT_EQ(open(folder)->size(), 2U);
}

TEST(JobStore, notices_that_its_folder_is_another_one) {
    const TempFolder outside;
    const Settings settings;
    const std::u16string folder = outside.path(u"data");
    int replaced = 0;  // as often as a store has said so
    const auto open_at = [&](DataFolderLock& lock) {
        FileError failed;
        EXPECT_EQ(lock.claim(folder, failed), DataFolderLock::Claim::mine);
        std::string error;
        return JobStore::open({folder, u"/downloads", true, &lock, [&replaced] { ++replaced; }}, error);
    };
    std::string error;
    DataFolderLock first_lock;
    const auto first = open_at(first_lock);
    ASSERT_TRUE(first_lock.publish("the first").ok());
    first->add(job("http://h/first"), *first->tree().root());
    ASSERT_TRUE(first->save(settings, error)) << error;
    if (const FileError moved = rename_no_replace(folder, outside.path(u"elsewhere")); !moved.ok()) {
        ASSERT_EQ(path_separator(), u'\\') << moved.text();
        GTEST_SKIP() << "this system moves no folder in which a file is open";
    }
    {
        DataFolderLock second_lock;
        const auto second = open_at(second_lock);
        CClassNode& music = second->add_category(u"Music", u"", *second->tree().root());
        second->add(job("http://h/second"), music);
        ASSERT_TRUE(second->save(settings, error)) << error;
        const std::string theirs = outside.read(u"data/.database");
        first->add(job("http://h/third"), *first->tree().root());
        EXPECT_FALSE(first->save(settings, error));
        EXPECT_NE(error.find("another Vantlow owns"), std::string::npos) << error;
        EXPECT_EQ(outside.read(u"data/.database"), theirs);
        EXPECT_FALSE(first->save(settings, error));
        EXPECT_EQ(replaced, 1) << "once while it stays so";
    }
    ASSERT_TRUE(first->save(settings, error)) << error;
    EXPECT_EQ(replaced, 2) << "it has the folder that is there now";
    EXPECT_EQ(DataFolderLock::read(folder), "the first");
    DataFolderLock third;
    FileError failed;
    EXPECT_EQ(third.claim(folder, failed), DataFolderLock::Claim::taken);
    EXPECT_EQ(first->size(), 3U);
    first_lock.release();
    const auto again = open_at(third);
    EXPECT_EQ(again->size(), 3U) << "those of both";
    EXPECT_EQ(again->tree().find_named(u"Music").size(), 1U);
}

}  // namespace
}  // namespace vantlow
