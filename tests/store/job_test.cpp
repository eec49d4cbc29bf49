#include "store/job.h"

#include <gtest/gtest.h>

#include "base/mem_file.h"
#include "sample_store.h"
#include "store/database.h"

namespace vantlow {
namespace {

std::string file_of(const CJobNode& job) {
    CQoMemFile file;
    save_single_job(job, file);
    return {reinterpret_cast<const char*>(file.bytes().data()), file.size()};
}

TEST(CJobNode, a_copy_differs_in_its_identity_and_keeps_only_the_ranges_of_its_segments) {
    const auto job = test::full_job();
    job->segments[0]->worker = 3;
    CJobNode copy(*job);
    EXPECT_TRUE(copy.identity.is_zero());
    EXPECT_EQ(copy.category, job->category);
    ASSERT_EQ(copy.segments.size(), 2U);
    EXPECT_EQ(copy.segments[0]->worker, 0);
    EXPECT_NE(copy.schedule[0], job->schedule[0]);

    // The database tells every member, so equal files are equal jobs.
    CJobNode expected(*test::full_job());
    for (auto& segment : job->segments) {
        auto plain = std::make_unique<CJobSeg>();
        plain->start = segment->start;
        plain->end = segment->end;
        segment = std::move(plain);
    }
    job->identity = {};
    EXPECT_EQ(file_of(copy), file_of(*job));
}

TEST(CJobNode, limits_are_held_whatever_a_file_says) {
    CJobNode job;
    EXPECT_EQ(job.thread_limit(), 5);
    job.connections = 1000;
    EXPECT_EQ(job.thread_limit(), 64);
    job.connections = -1;
    EXPECT_EQ(job.thread_limit(), 1);
    job.max_threads = 7;
    EXPECT_EQ(job.thread_limit(), 7);

    EXPECT_EQ(job.own_retry_limit(), std::nullopt);
    job.retry_by_settings = 0;
    EXPECT_EQ(job.own_retry_limit(), 10);
    job.retries = -500;
    EXPECT_EQ(job.own_retry_limit(), -1);
}

TEST(CategoryTree, sorts_without_regard_to_letter_case_and_behind_equals) {
    CategoryTree tree;
    CClassNode& root = tree.insert(test::category(u"Root", 0), nullptr, CategoryTree::Place::sorted);
    for (const auto& [name, number] :
         {std::pair(u"beta", 11), {u"Alpha", 12}, {u"Beta", 13}, {u"alpha2", 14}}) {
        CClassNode& node = tree.insert(test::category(name, static_cast<std::uint64_t>(number)), nullptr,
                                       CategoryTree::Place::sorted);
        EXPECT_EQ(node.parent, &root);
    }
    tree.insert(test::category(u"a", 15), &root);
    std::u16string order;
    for (const auto& child : root.children) order += child->name + u" ";
    EXPECT_EQ(order, u"Alpha alpha2 beta Beta a ");
}

TEST(CategoryTree, never_holds_a_category_that_the_database_would_take_for_a_marker) {
    CategoryTree tree;
    tree.insert(test::category(u"Root", 1), nullptr);
    tree.insert(test::category(u"Child", 2), tree.root());
    EXPECT_TRUE(tree.root()->identity.is_zero());
    EXPECT_TRUE(tree.root()->children[0]->identity.is_zero());
}

}  // namespace
}  // namespace vantlow
