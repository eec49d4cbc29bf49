#include "store/database.h"

#include <gtest/gtest.h>

#include <string>

#include "sample_store.h"

namespace vantlow {
namespace {

using Place = CategoryTree::Place;

std::string saved(const CategoryTree& tree) {
    CQoMemFile file(database_growth_step);
    save_database(tree, file);
    return {reinterpret_cast<const char*>(file.bytes().data()), file.size()};
}

DatabaseLoad load(std::string_view bytes, CategoryTree& tree, Place place = Place::last) {
    return load_database(std::as_bytes(std::span(bytes)), tree, place);
}

// The layout once more, written by hand from its description: widths and order, nothing of the code's.
class Layout {
  public:
    Layout& raw(std::string_view text) {
        bytes += text;
        return *this;
    }
    Layout& n(int width, std::int64_t value) {
        for (int i = 0; i < width; ++i) {
            bytes.push_back(i < 8 ? static_cast<char>(static_cast<std::uint64_t>(value) >> (8 * i)) : '\0');
        }
        return *this;
    }
    Layout& text(std::u16string_view units) {
        for (const char16_t c : units) n(2, c);
        return n(2, 0);
    }
    std::string bytes;
};

std::string full_layout() {
    Layout out;
    out.raw("Q!59").n(16, 0).raw("<").text(u"Root").text(u"/folder/Root").n(4, 1);
    out.raw("[").text(u"http://h/\u00E4").text(u"agent/1").text(u"ann").text(u"secret");
    out.n(8, 0x1111).n(8, 0x2222).n(16, 0);  // the job's identity, the category's
    out.n(4, 604).text(u"/d/f.bin").text(u"#frag").text(u"http://r/").text(u"one\r\ntwo").text(u"wanted.bin");
    out.n(4, 602).n(8, 0x123456789ALL).n(8, 0x4000000001LL).n(4, 605).n(4, 2);
    out.raw("(").n(8, 1).n(8, 1000).n(8, 20).n(8, 30).n(8, 40).n(8, 0).n(8, 0).text(u"track").n(8, 0).n(8, 0);
    out.text(u"s0").n(4, 50).n(8, 51).text(u"").n(4, 0).n(8, 0).text(u"").n(4, -52).n(8, -53).raw(")");
    out.raw("(").n(8, 2000).n(8, 0x123456789ALL);
    for (int zero = 0; zero < 5; ++zero) out.n(8, 0);
    out.text(u"").n(8, 0).n(8, 0);
    for (int slot = 0; slot < 3; ++slot) out.text(u"").n(4, 0).n(8, 0);
    out.raw(")");
    out.n(8, 0x2000000001LL).n(8, -0x3000000001LL).n(16, 0);
    for (const int number : {612, 607, 609, 606, 613, 614, 603, 4}) out.n(4, number);  // 3 to 10
    out.n(4, -31).n(4, 9);                                                             // 11 and 12
    for (const int number : {601, 608, 610, 611}) out.n(4, number);                    // 13 to 16
    for (int unused = 17; unused <= 29; ++unused) out.n(4, 0);
    out.n(8, 0x5000000001LL).n(4, 0);
    out.n(4, 1).raw("{").n(4, 2).n(4, 0x41).n(8, 86399);
    out.raw("B\xA5\x01");
    Layout state;
    state.raw("E").n(4, 8).raw("W/\"\xE4tag\"").raw("M").n(4, 29).raw("Tue, 01 Jan 2030 00:00:00 GMT");
    state.raw("D").n(4, 1).n(1, 1).raw("I").n(4, 10).raw("text/plain");
    state.raw("X").n(4, 32).n(8, 0x6000000001).n(8, 7).n(8, 0x6000000000).raw("0123abcd");
    state.raw("C").n(4, 16);
    for (const char16_t c : std::u16string(u"a=b; c=\u20AC")) state.n(2, c);
    state.raw("P").n(4, 24);
    for (const char16_t c : std::u16string(u"socks5://p:1")) state.n(2, c);
    state.raw("K").n(4, 4).raw("mark");
    state.raw("A").n(4, 2).n(2, 'm').raw("A").n(4, 2).n(2, 'n').raw("S").n(4, 8).n(8, 620);
    state.raw("H").n(4, 17).n(1, 1).raw(std::string(16, 'h'));
    state.raw("G").n(4, 49).n(1, 2).n(8, 621).raw(std::string(40, 'p'));
    state.raw("R").n(4, 18).raw("HTTP/1.1 503 B\xC3\xBCsy");
    state.raw("O").n(4, 4).n(4, 630).raw("L").n(4, 8).n(8, 631);
    state.raw("F").n(4, 14);
    for (const char16_t c : std::u16string(u"/ca.pem")) state.n(2, c);
    state.raw("Y").n(4, 14);
    for (const char16_t c : std::u16string(u"/id_key")) state.n(2, c);
    state.raw("W").n(4, 3).raw("2-3").raw("h").n(4, 1).raw("2").raw("l").n(4, 1).raw("3").raw("u").n(4, 8).n(
        8, 633);
    state.raw("p").n(4, 8).n(8, 636);
    state.raw("V").n(4, 8).n(8, 1500).raw("Q").n(4, 8).n(8, 632);
    state.raw("N").n(4, 4).n(4, 63);
    state.raw("U").n(4, 25).n(8, 633).n(8, 634).n(8, 635).n(1, 1);
    state.raw("f").n(4, 14).raw("text/plain").n(1, 0).raw("a").n(1, 0).raw("b");
    out.raw("T").n(4, static_cast<std::int64_t>(state.bytes.size())).raw(state.bytes).raw("]");
    return out.bytes;
}

CategoryTree tree_of_one_job() {
    CategoryTree tree;
    tree.insert(test::category(u"Root", 0), nullptr);
    tree.root()->jobs.push_back(test::full_job());
    return tree;
}

TEST(Database, writes_every_field_of_a_job_in_its_place) {
    EXPECT_EQ(saved(tree_of_one_job()), full_layout());
}

TEST(Database, brings_back_everything_that_it_wrote) {
    CategoryTree tree;
    const DatabaseLoad found = load(full_layout(), tree);
    EXPECT_EQ(found.status, DatabaseLoad::Status::loaded);
    EXPECT_TRUE(found.complete);
    EXPECT_EQ(found.categories, 1U);
    EXPECT_EQ(found.jobs, 1U);
    // The writer tells every member (see above), so the same bytes again are the same job.
    EXPECT_EQ(saved(tree), full_layout());
    EXPECT_EQ(tree.root()->jobs.at(0).segments[1]->find_extra(), nullptr)
        << "no memory for what is not there";
}

TEST(Database, keeps_parents_and_order_of_a_deep_and_wide_tree) {
    const std::string bytes = saved(test::sample_tree());
    CategoryTree tree;
    EXPECT_TRUE(load(bytes, tree).complete);
    const CClassNode* root = tree.root();
    ASSERT_EQ(root->children.size(), 2U);
    EXPECT_EQ(root->children[0]->name, u"Music");
    EXPECT_EQ(root->children[1]->name, u"Completed");
    ASSERT_EQ(root->children[0]->children.size(), 1U);
    EXPECT_EQ(root->children[0]->children[0]->name, u"Live");
    EXPECT_EQ(root->children[0]->children[0]->parent, root->children[0].get());
    EXPECT_EQ(root->children[1]->parent, root);
    EXPECT_EQ(saved(tree), bytes);
}

TEST(Database, takes_older_versions_and_leaves_newer_ones_alone) {
    const std::string body = full_layout().substr(4);
    for (const char* header : {"Q!59", "Q!00", "Q!58",
                               "\xFF\xFF"
                               "07"}) {
        CategoryTree tree;
        EXPECT_EQ(load(header + body, tree).status, DatabaseLoad::Status::loaded) << header;
    }
    for (const char* header : {"Q!60", "Q!99"}) {
        CategoryTree tree;
        const DatabaseLoad found = load(header + body, tree);
        EXPECT_EQ(found.status, DatabaseLoad::Status::newer) << header;
        EXPECT_EQ(static_cast<std::uint32_t>(found.status), 0xFFFFFFFFU);
        EXPECT_EQ(tree.root(), nullptr);
    }
    for (const std::string& bytes : {"Q!5x" + body, "Q! 9" + body,
                                     "Q!\xFF"
                                     "9" +
                                         body,
                                     std::string("Q!5"), std::string()}) {
        CategoryTree tree;
        const DatabaseLoad found = load(bytes, tree);
        EXPECT_EQ(found.status, DatabaseLoad::Status::nothing);
        EXPECT_FALSE(found.complete);
    }
}

TEST(Database, of_no_category_is_a_header_and_of_no_job_a_count_of_zero) {
    CategoryTree empty;
    EXPECT_EQ(saved(empty), "Q!59");
    CategoryTree tree;
    EXPECT_EQ(load("Q!59", tree).status, DatabaseLoad::Status::nothing);

    auto job = std::make_unique<CJobNode>();
    CQoMemFile file;
    save_single_job(*job, file);
    const DatabaseLoad found = load_database(file.bytes(), tree);
    EXPECT_TRUE(found.complete);
    EXPECT_TRUE(tree.root()->jobs.at(0).segments.empty());
    EXPECT_TRUE(tree.root()->jobs.at(0).category.is_zero());
}

TEST(Database, merges_in_order_under_the_root_that_is_there) {
    CategoryTree tree;
    tree.insert(test::category(u"Mine", 0), nullptr);
    tree.insert(test::category(u"Zebra", 0x10), tree.root());
    EXPECT_TRUE(load(saved(test::sample_tree()), tree, Place::sorted).complete);
    const auto& children = tree.root()->children;
    ASSERT_EQ(children.size(), 2U);
    EXPECT_EQ(children[0]->name, u"Downloading");
    EXPECT_EQ(children[0]->children.at(0)->name, u"Completed");
    EXPECT_EQ(children[0]->children.at(1)->name, u"Music");
}

TEST(Database, ends_a_text_where_its_reader_would) {
    CategoryTree tree = tree_of_one_job();
    tree.root()->jobs.at(0).comment = std::u16string(u"seen\0unseen", 11);
    CategoryTree again;
    EXPECT_TRUE(load(saved(tree), again).complete);
    EXPECT_EQ(again.root()->jobs.at(0).comment, u"seen");
}

TEST(Database, passes_over_state_that_it_does_not_know) {
    Layout block;
    block.raw("z").n(4, 3).raw("???").raw("E").n(4, 2).raw("\"x");
    std::string bytes = full_layout();
    bytes.resize(bytes.rfind('T', bytes.rfind("W/")));
    const std::string head = bytes;
    Layout out;
    out.raw(head).raw("T").n(4, static_cast<std::int64_t>(block.bytes.size())).raw(block.bytes).raw("]");
    CategoryTree tree;
    EXPECT_TRUE(load(out.bytes, tree).complete);
    EXPECT_EQ(tree.root()->jobs.at(0).validators.etag, "\"x");

    // A value that is longer than its block would otherwise take the bytes of the records behind it.
    Layout broken;
    broken.raw(head).raw("T").n(4, 6).raw("E").n(4, 9).raw("x").raw("]").raw(std::string(100, 'x'));
    CategoryTree other;
    EXPECT_FALSE(load(broken.bytes, other).complete);
    EXPECT_TRUE(other.root()->jobs.empty());
}

}  // namespace
}  // namespace vantlow
