// The job database: what was read and written is read and written the same.
#include "store/database.h"
#include "fuzz.h"

void vantlow::fuzz::run(std::string_view input) {
    CategoryTree sorted;
    load_database(bytes_of(input), sorted, CategoryTree::Place::sorted);
    CategoryTree tree;
    const DatabaseLoad load = load_database(bytes_of(input), tree);
    CHECK(load.categories + load.jobs <= input.size());
    if (load.status != DatabaseLoad::Status::loaded) return;
    CHECK(tree.root() != nullptr && tree.all().size() == load.categories);
    CQoMemFile written;
    save_database(tree, written);
    CategoryTree again;
    const DatabaseLoad second = load_database(written.bytes(), again);
    CHECK(second.complete && second.categories == load.categories && second.jobs == load.jobs);
    CQoMemFile twice;
    save_database(again, twice);
    CHECK(text_of(twice.bytes()) == text_of(written.bytes()));
}
