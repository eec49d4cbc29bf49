// eDonkey links: the link that is made of a link's parts says the same.
#include <limits>

#include "base/text.h"
#include "ed2k/link.h"
#include "engine/documents.h"
#include "fuzz.h"

void vantlow::fuzz::run(std::string_view input) {
    const std::u16string text = to_utf16(input);
    plan_link(text);
    CED2KLink link;
    if (link.parse(text)) {
        CHECK(link.hash_text().size() == 2 * CED2KLink::hash_size);
        CED2KLink again;
        const bool read = again.parse(link.format());
        // A percent sign is written as it is, the bar cannot be, and a size below zero is an impossible one.
        if (link.file_size() > std::numeric_limits<std::int64_t>::max()) return;
        if (link.file_name().find_first_of(u"%|") != std::u16string::npos) return;
        CHECK(read && again.file_name() == link.file_name() && again.file_size() == link.file_size());
        CHECK(again.file_hash() == link.file_hash() && again.is_hash_valid() == link.is_hash_valid());
    }
}
