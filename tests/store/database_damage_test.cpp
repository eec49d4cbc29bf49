// Databases that were cut short, damaged, or made to do harm.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "allocation_count.h"
#include "sample_store.h"
#include "store/database.h"

namespace vantlow {
namespace {

std::string saved(const CategoryTree& tree) {
    CQoMemFile file(database_growth_step);
    save_database(tree, file);
    return {reinterpret_cast<const char*>(file.bytes().data()), file.size()};
}

// A buffer of exactly the input's size, so that a sanitizer sees the first byte read beyond it.
DatabaseLoad load_exactly(std::string_view bytes, CategoryTree& tree) {
    const auto exact = std::make_unique<std::byte[]>(bytes.size());
    std::copy_n(reinterpret_cast<const std::byte*>(bytes.data()), bytes.size(), exact.get());
    const std::size_t before = test::allocated_bytes();
    const DatabaseLoad found = load_database({exact.get(), bytes.size()}, tree);
    EXPECT_LE(test::allocated_bytes() - before, 16 * bytes.size() + 4096);
    return found;
}

std::size_t jobs_in(const CategoryTree& tree) {
    std::size_t jobs = 0;
    std::vector<const CClassNode*> ahead;
    if (tree.root() != nullptr) ahead.push_back(tree.root());
    while (!ahead.empty()) {
        const CClassNode* node = ahead.back();
        ahead.pop_back();
        jobs += node->jobs.size();
        for (const auto& child : node->children) ahead.push_back(child.get());
    }
    return jobs;
}

TEST(DatabaseDamage, a_cut_loses_only_what_stands_behind_it) {
    const std::string whole = saved(test::sample_tree());
    DatabaseLoad before;
    for (std::size_t size = 0; size < whole.size(); ++size) {
        CategoryTree tree;
        const DatabaseLoad found = load_exactly(whole.substr(0, size), tree);
        ASSERT_EQ(jobs_in(tree), found.jobs) << size;
        ASSERT_GE(found.jobs, before.jobs) << size;
        ASSERT_GE(found.categories, before.categories) << size;
        // Right behind the header and the root nothing tells that there was more.
        if (found.complete) {
            ASSERT_TRUE(size == 4 || (found.categories == 1 && found.jobs == 2)) << size;
        }
        before = found;
    }
    EXPECT_EQ(before.jobs, 4U);
    EXPECT_EQ(before.categories, 4U);
}

TEST(DatabaseDamage, keeps_the_whole_jobs_of_a_category_whose_next_one_is_broken) {
    CategoryTree tree;
    tree.insert(test::category(u"Root", 0), nullptr);
    tree.root()->jobs.push_back(test::full_job());
    tree.root()->jobs.push_back(test::full_job());
    std::string bytes = saved(tree);
    bytes.back() = '!';  // the end of the second job
    CategoryTree again;
    const DatabaseLoad found = load_exactly(bytes, again);
    EXPECT_EQ(found.status, DatabaseLoad::Status::loaded);
    EXPECT_FALSE(found.complete);
    EXPECT_EQ(found.categories, 1U);
    ASSERT_EQ(found.jobs, 1U);
    EXPECT_EQ(again.root()->jobs.front()->address, tree.root()->jobs.front()->address);
}

TEST(DatabaseDamage, counts_that_promise_more_than_there_is_take_no_memory) {
    CategoryTree tree;
    tree.insert(test::category(u"R", 0), nullptr);
    tree.root()->jobs.push_back(test::full_job());
    const std::string whole = saved(tree);
    const std::size_t job_start = whole.find('[');
    const std::size_t segment_start = whole.find('(', job_start);
    const std::size_t second_group = whole.rfind(')') + 1;
    const std::size_t bit_count = second_group + 32 + 9 * 4;
    const std::size_t schedule_count = second_group + 152;
    const std::size_t state_length = whole.rfind('T', whole.rfind("W/")) + 1;
    for (const std::size_t at : {job_start - 4, segment_start - 4, bit_count, schedule_count, state_length}) {
        for (const char top : {'\x7F', '\x00', '\xFF'}) {
            if (at == job_start - 4 && top == '\xFF') continue;  // below zero: no jobs
            std::string bytes = whole;
            bytes.replace(at, 4, std::string("\xFF\xFF\xFF") + top);
            CategoryTree damaged;
            const DatabaseLoad found = load_exactly(bytes, damaged);
            EXPECT_EQ(found.categories, 1U) << at;
            EXPECT_FALSE(found.complete) << at;
        }
    }
}

TEST(DatabaseDamage, a_tree_of_any_depth_needs_no_stack) {
    constexpr int levels = 300000;
    std::string bytes = "Q!59";
    const std::string descend = std::string("\x01", 1) + std::string(15, '\0');
    const std::string ascend = std::string("\x02", 1) + std::string(15, '\0');
    const std::string record = std::string(16, 'g') + "<" + std::string(8, '\0');
    bytes += record;
    for (int i = 1; i < levels; ++i) bytes += descend + record;
    for (int i = 1; i < levels; ++i) bytes += ascend;
    CategoryTree tree;
    const DatabaseLoad found = load_exactly(bytes, tree);
    EXPECT_TRUE(found.complete);
    EXPECT_EQ(found.categories, static_cast<std::size_t>(levels));
    EXPECT_EQ(tree.find(Guid::from_numbers(5, 5)), nullptr);
    EXPECT_EQ(saved(tree), bytes);
}

TEST(DatabaseDamage, markers_without_their_partners_do_no_harm) {
    const std::string descend = std::string("\x01", 1) + std::string(15, '\0');
    const std::string ascend = std::string("\x02", 1) + std::string(15, '\0');
    const std::string one = std::string(16, 'a') + "<" + std::string(8, '\0');
    const std::string two = std::string(16, 'b') + "<" + std::string(8, '\0');
    for (const std::string& body :
         {descend + one, ascend + ascend + one + descend + two, descend + ascend + ascend + one,
          one + descend, one + ascend + ascend + two}) {
        CategoryTree tree;
        const DatabaseLoad found = load_exactly("Q!59" + body, tree);
        EXPECT_EQ(found.status, DatabaseLoad::Status::loaded);
        EXPECT_FALSE(found.complete);
        ASSERT_NE(tree.root(), nullptr);
        EXPECT_EQ(tree.root()->children.size(), found.categories - 1);
    }
}

// Whatever stands in the file: no crash, no memory out of proportion, and what was read can be written and
// read again.
TEST(DatabaseDamage, survives_thousands_of_random_mutations) {
    const std::string whole = saved(test::sample_tree());
    std::mt19937 random(20240607);
    const auto below = [&random](std::size_t limit) { return static_cast<std::size_t>(random() % limit); };
    constexpr std::uint8_t telling[] = {0, 1, 2, 0x28, 0x29, 0x42, 0x54, 0x5B, 0x5D, 0x7B, 0x7F, 0x80, 0xFF};
    std::size_t jobs = 0;
    for (int round = 0; round < 5000; ++round) {
        std::string bytes = whole;
        for (std::size_t changes = 1 + below(4); changes > 0; --changes) {
            const std::size_t at = 4 + below(bytes.size() - 4);
            const std::size_t length = 1 + below(std::min<std::size_t>(40, bytes.size() - at));
            switch (below(5)) {
                case 0:
                    bytes[at] = static_cast<char>(bytes[at] ^ (1 << below(8)));
                    break;
                case 1:
                    bytes[at] = static_cast<char>(telling[below(std::size(telling))]);
                    break;
                case 2:
                    bytes.erase(at, std::min(length, bytes.size() - 8));
                    break;
                case 3:
                    bytes.insert(at, whole.substr(below(whole.size()), length));
                    break;
                default:
                    bytes.replace(at, length, whole, below(whole.size() - length), length);
            }
        }
        CategoryTree tree;
        const DatabaseLoad found = load_exactly(bytes, tree);
        ASSERT_EQ(jobs_in(tree), found.jobs) << round;
        const std::string again = saved(tree);
        CategoryTree second;
        ASSERT_TRUE(load_exactly(again, second).complete) << round;
        ASSERT_EQ(saved(second), again) << round;
        jobs += found.jobs;
    }
    // Most jobs outlive most mutations: a reader that gives up at once would pass everything above.
    EXPECT_GT(jobs, 5000U);
}

}  // namespace
}  // namespace vantlow
