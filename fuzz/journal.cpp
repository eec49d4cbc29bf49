// The journal of the job database: the entries of a frame, whose check is not what is tried, change a tree
// that stays whole.
#include "store/journal.h"

#include "fuzz.h"
#include "store/database.h"

void vantlow::fuzz::run(std::string_view input) {
    const auto bytes = bytes_of(input);
    CHECK(JournalFrames::read(bytes).size() * 20 <= input.size());
    CategoryTree tree = CategoryTree::with_defaults(u"/downloads", Guid::from_numbers(5, 6));
    const std::vector<std::span<const std::byte>> payloads{bytes};
    static_cast<void>(has_changes(payloads));
    static_cast<void>(journal_since(payloads, {}));
    replay(payloads, tree);
    CHECK(tree.root() != nullptr);
    CQoMemFile written;
    save_database(tree, written);
    CHECK(written.size() <= 1000 + 4 * input.size());
    CategoryTree again;
    CHECK(load_database(written.bytes(), again).complete);
    CHECK(again.all().size() == tree.all().size());
}
