#include "store/job_store.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>

#include "base/text.h"
#include "sample_store.h"
#include "support/temp_folder.h"

namespace vantlow {
namespace {

using test::TempFolder;

std::unique_ptr<JobStore> open(const TempFolder& folder) {
    std::string error;
    auto store = JobStore::open({folder.path(), u"/downloads", true}, error);
    EXPECT_NE(store, nullptr) << error;
    return store;
}

void save(JobStore& store) {
    std::string error;
    EXPECT_TRUE(store.save(Settings(), error)) << error;
}

std::unique_ptr<CJobNode> job(std::u16string address, JobState state = JobState::waiting) {
    auto made = std::make_unique<CJobNode>();
    made->address = std::move(address);
    made->state = state;
    return made;
}

TEST(JobStore, begins_with_two_categories_and_brings_everything_back) {
    const TempFolder folder;
    Guid identity;
    {
        const auto store = open(folder);
        CClassNode& root = *store->tree().root();
        EXPECT_EQ(root.name, u"Downloading");
        EXPECT_TRUE(root.identity.is_zero());
        EXPECT_EQ(root.folder, u"/downloads");
        ASSERT_EQ(root.children.size(), 1U);
        EXPECT_FALSE(root.children[0]->identity.is_zero());
        CClassNode& music = store->add_category(u"Music", u"", root);
        CClassNode& live = store->add_category(u"Live", u"/live", music);
        identity = store->add(job(u"http://h/a", JobState::running), live).identity;
        save(*store);
        EXPECT_FALSE(store->is_dirty());
    }
    const auto store = open(folder);
    CJobNode* found = store->find(identity);
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(store->category_of(*found).name, u"Live");
    EXPECT_EQ(store->category_of(*found).parent->name, u"Music");
    EXPECT_EQ(found->state, JobState::waiting) << "nobody runs it";
    EXPECT_TRUE(store->interrupted().contains(identity));
    EXPECT_EQ(store->find_by_digits(*guid_digits(guid_text(identity).substr(0, 9))).size(), 1U);
    EXPECT_TRUE(store->find_by_digits("0123456789abcdef").empty());
}

TEST(JobStore, jobs_and_subcategories_of_a_removed_category_go_to_the_one_above) {
    const TempFolder folder;
    const auto store = open(folder);
    CClassNode& root = *store->tree().root();
    CClassNode& a = store->add_category(u"A", u"", root);
    CClassNode& b = store->add_category(u"B", u"", a);
    store->add_category(u"C", u"", b);
    store->add_category(u"Z", u"", root);
    CJobNode& filed = store->add(job(u"http://h/b"), b);
    EXPECT_FALSE(store->tree().move(a, b)) << "below itself";
    ASSERT_TRUE(store->remove_category(b));
    EXPECT_EQ(&store->category_of(filed), &a);
    EXPECT_EQ(filed.category, a.identity);
    EXPECT_EQ(store->tree().find_named(u"a/c").size(), 1U);
    ASSERT_TRUE(store->remove_category(a));
    EXPECT_FALSE(store->remove_category(root));
    std::vector<std::u16string> names;
    for (const CClassNode* node : store->tree().all()) names.push_back(node->name);
    EXPECT_EQ(names, (std::vector<std::u16string>{u"Downloading", u"Completed", u"C", u"Z"}));
    EXPECT_EQ(store->jobs_below(nullptr).size(), 1U);
    store->move(filed, store->completed());
    EXPECT_TRUE(store->jobs_below(store->tree().find_named(u"c").front()).empty());
    store->remove(filed);
    EXPECT_EQ(store->size(), 0U);
    EXPECT_TRUE(store->waiting().empty());
}

TEST(JobStore, keeps_the_order_of_those_that_wait) {
    const TempFolder folder;
    const auto store = open(folder);
    CClassNode& root = *store->tree().root();
    CJobNode* jobs[3] = {};
    for (auto& entry : jobs) entry = &store->add(job(u"http://h/x"), root);
    store->set_state(*jobs[0], JobState::stopped);
    store->queue_last(*jobs[0]);
    save(*store);
    std::vector<Guid> order;
    const auto again = open(folder);
    for (const auto& [place, waiting] : again->waiting()) order.push_back(waiting->identity);
    EXPECT_EQ(order, (std::vector{jobs[1]->identity, jobs[2]->identity, jobs[0]->identity}));
}

TEST(JobStore, tells_who_watches_and_keeps_its_records) {
    const TempFolder folder;
    const auto store = open(folder);
    CClassNode& root = *store->tree().root();
    std::vector<StoreChange> heard;
    auto watch = store->watch([&](const StoreChange& change) { heard.push_back(change); });
    int others = 0;
    const auto second = store->watch([&](const StoreChange&) { ++others; });
    CJobNode& filed = store->add(job(u"http://h/a"), root);
    const Guid id = filed.identity;
    auto newer = filed.twin();
    newer->state = JobState::finished;
    newer->path = u"/downloads/a";
    newer->append_segment(1, 2);
    store->update(filed, std::move(newer));
    EXPECT_EQ(store->find(id), &filed) << "a record stays what it is";
    EXPECT_EQ(filed.path, u"/downloads/a");
    EXPECT_EQ(filed.segments.size(), 1U);
    EXPECT_TRUE(store->waiting().empty());
    store->update_positions(filed, filed.twin());
    store->queue_last(filed);
    CClassNode& music = store->add_category(u"Music", u"", root);
    store->move(filed, music);
    store->remove_category(music);
    EXPECT_EQ(&store->category_of(filed), &root);
    store->remove(filed);
    using What = StoreChange::What;
    using Told = std::pair<What, std::uint32_t>;
    const std::vector<Told> expected{{What::job_added, StoreChange::all},
                                     {What::job_changed, StoreChange::all},
                                     {What::job_changed, StoreChange::positions},
                                     {What::job_changed, StoreChange::state | StoreChange::order},
                                     {What::category_added, 0},
                                     {What::job_changed, StoreChange::category},
                                     {What::category_removed, 0},
                                     {What::job_changed, StoreChange::category},
                                     {What::job_removed, 0}};
    std::vector<Told> told;
    for (const StoreChange& change : heard) told.emplace_back(change.what, change.fields);
    EXPECT_EQ(told, expected);
    for (std::size_t i = 1; i < heard.size(); ++i) EXPECT_GT(heard[i].revision, heard[i - 1].revision);
    EXPECT_EQ(others, static_cast<int>(expected.size()));
    watch.reset();
    store->add(job(u"http://h/b"), root);
    EXPECT_EQ(heard.size(), expected.size());
    EXPECT_EQ(others, static_cast<int>(expected.size()) + 1);
}

// Against a plain list.
TEST(JobSequence, keeps_the_order_whatever_is_put_in_and_taken_out) {
    JobSequence jobs;
    std::vector<const CJobNode*> plain;
    std::mt19937 chance(5);
    const auto pick = [&](std::size_t count) { return chance() % count; };
    const auto look = [&] {
        ASSERT_EQ(jobs.size(), plain.size());
        std::size_t at = 0;
        for (const auto& one : jobs) ASSERT_EQ(one.get(), plain[at++]);
        ASSERT_EQ(at, plain.size());
    };
    for (int i = 0; i < 6000; ++i) {
        // It grows, shrinks to nothing, and grows again.
        const bool put = (i / 2000) % 2 == 0 ? pick(4) > 0 : pick(4) == 0;
        if (put || plain.empty()) {
            const std::size_t place = pick(3) == 0 ? plain.size() : pick(plain.size() + 2);
            const CJobNode& added = jobs.insert(place, job(u"http://h/"));
            const auto at = std::min(place, plain.size());
            plain.insert(plain.begin() + static_cast<std::ptrdiff_t>(at), &added);
            ASSERT_EQ(jobs.place_of(added), at);
        } else {
            const std::size_t at = pick(plain.size());
            ASSERT_EQ(&jobs.at(at), plain[at]);
            ASSERT_EQ(jobs.take(*plain[at]).get(), plain[at]);
            plain.erase(plain.begin() + static_cast<std::ptrdiff_t>(at));
        }
        if (i % 97 == 0) look();
    }
    JobSequence more;
    for (int i = 0; i < 700; ++i) plain.push_back(&more.push_back(job(u"http://h/more")));
    jobs.append(std::move(more));
    look();
}

TEST(DatabaseSnapshot, is_a_whole_database_whatever_happens_while_it_is_made) {
    const TempFolder folder;
    const auto store = open(folder);
    CClassNode& root = *store->tree().root();
    CClassNode& music = store->add_category(u"Music", u"", root);
    store->add_category(u"Live", u"", music);
    std::vector<CJobNode*> jobs;
    for (int i = 0; i < 200; ++i) jobs.push_back(&store->add(job(u"http://h/x"), i % 2 == 0 ? root : music));
    DatabaseSnapshot snapshot(store->tree());
    const auto past = std::chrono::steady_clock::time_point::min();
    int steps = 0;
    std::size_t next = 0;
    // In between jobs go, come, change and move: of those that were written as of those that were not.
    while (!snapshot.go_on(past)) {
        ++steps;
        for (const std::size_t at : {next, jobs.size() - 1 - next}) {
            if (jobs[at] == nullptr || at == jobs.size() / 2) continue;
            snapshot.keep(*jobs[at]);
            store->remove(*jobs[at]);
            jobs[at] = nullptr;
        }
        ++next;
        store->move(*jobs[jobs.size() / 2], next % 2 == 0 ? root : music);
        store->add(job(u"http://h/later"), root);
    }
    EXPECT_GT(steps, 2);
    std::vector<std::byte> bytes;
    for (const auto& piece : snapshot.take_image()) bytes.insert(bytes.end(), piece.begin(), piece.end());
    CategoryTree tree;
    const DatabaseLoad load = load_database(bytes, tree);
    EXPECT_TRUE(load.complete);
    EXPECT_EQ(load.jobs, 200U);
    EXPECT_EQ(tree.root()->jobs.size(), 100U);
    EXPECT_EQ(tree.find_named(u"Music").at(0)->jobs.size(), 100U);
    EXPECT_EQ(tree.find_named(u"Music/Live").size(), 1U);
}

TEST(JobStore, a_new_job_is_the_last_one_whatever_orders_the_file_holds) {
    const TempFolder folder;
    {
        const auto store = open(folder);
        store->add(job(u"http://h/second"), *store->tree().root()).order = std::numeric_limits<int>::max();
        store->add(job(u"http://h/first"), *store->tree().root()).order = std::numeric_limits<int>::min();
        save(*store);
    }
    const auto store = open(folder);
    store->add(job(u"http://h/third"), *store->tree().root());
    std::u16string order;
    for (const auto& [place, waiting] : store->waiting()) order += waiting->address.substr(9) + u" ";
    EXPECT_EQ(order, u"first second third ");
}

TEST(JobStore, sends_no_form_again_that_a_process_may_have_sent) {
    const TempFolder folder;
    {
        const auto store = open(folder);
        for (const bool posts : {false, true}) {
            CJobNode& added = store->add(job(u"http://h/form"), *store->tree().root());
            if (posts) added.form = std::make_shared<const PostedForm>(PostedForm{"text/plain", "a"});
            store->set_state(added, JobState::running);
        }
        save(*store);
    }
    const auto store = open(folder);
    EXPECT_EQ(store->waiting().size(), 1U);
    const CJobNode& sent = *store->jobs_below(nullptr).back();
    EXPECT_EQ(sent.state, JobState::failed);
    EXPECT_NE(sent.error, "");
}

TEST(JobStore, mends_identities_that_two_records_share) {
    const TempFolder folder;
    CQoMemFile image;
    save_database(test::sample_tree(), image);  // the same job three times, and one without an identity
    folder.write(u".database", {reinterpret_cast<const char*>(image.bytes().data()), image.size()});
    const auto store = open(folder);
    EXPECT_EQ(store->size(), 4U);
    EXPECT_TRUE(store->is_dirty());
}

TEST(JobStore, never_writes_over_what_a_newer_version_wrote_nor_over_damage) {
    const TempFolder folder;
    folder.write(u".database", "Q!60 what only a newer version knows");
    {
        const auto store = open(folder);
        EXPECT_TRUE(store->is_newer());
        EXPECT_EQ(store->tree().root(), nullptr);
        std::string error;
        EXPECT_FALSE(store->save(Settings(), error));
    }
    EXPECT_EQ(folder.read(u".database"), "Q!60 what only a newer version knows");
    folder.write(u".database", "Q!59 damage");
    const auto store = open(folder);
    EXPECT_EQ(store->notes().size(), 2U);
    save(*store);
    EXPECT_EQ(store->notes().size(), 3U);
    ASSERT_EQ(folder.names().size(), 3U);
    EXPECT_EQ(folder.read(folder.names()[2]), "Q!59 damage");
}

TEST(JobStore, backs_up_once_a_day_where_the_settings_say) {
    const TempFolder folder;
    const TempFolder backups;
    const auto store = open(folder);
    Settings settings;
    std::string error;
    settings.override_value(u"Others", u"BackupTo", backups.path(u"missing"));
    EXPECT_TRUE(store->save(settings, error)) << "a backup that fails is ignored";
    settings.override_value(u"Others", u"BackupTo", join_path(backups.path(), u""));
    EXPECT_TRUE(store->save(settings, error));
    EXPECT_TRUE(store->save(settings, error));
    ASSERT_EQ(backups.names().size(), 1U);
    EXPECT_TRUE(backups.names()[0].ends_with(u".database"));
    EXPECT_EQ(backups.read(backups.names()[0]), folder.read(u".database"));
    EXPECT_FALSE(store->owes_files(settings));
    // A run in which nothing changes backs up all the same, and gives a lost copy back.
    EXPECT_TRUE(remove_file(folder.path(u".database.copy")).ok());
    for (const auto& where : {std::u16string(), backups.path(u"other")}) {
        settings.override_value(u"Others", u"BackupTo", where);
        const auto again = open(folder);
        EXPECT_TRUE(again->owes_files(settings));
        EXPECT_TRUE(again->save(settings, error));
        EXPECT_FALSE(again->owes_files(settings));
        EXPECT_TRUE(folder.has(u".database.copy"));
    }
}

}  // namespace
}  // namespace vantlow
