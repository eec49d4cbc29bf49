// Credentials of a .netrc.
#include <algorithm>

#include "engine/netrc.h"
#include "fuzz.h"

void vantlow::fuzz::run(std::string_view input) {
    const Netrc entries = parse_netrc(input);
    CHECK(entries.size() <= most_netrc_entries && entries.size() <= input.size());
    std::size_t bytes = 0;
    for (const NetrcEntry& entry : entries) {
        bytes += entry.machine.size() + entry.login.size() + entry.password.size();
        CHECK(!entry.is_default || entry.machine.empty());
        // A name that has no ASCII form is no host's.
        const bool is_ascii =
            std::ranges::all_of(entry.machine, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
        CHECK(!is_ascii || find_netrc(entries, entry.machine, entry.login).has_value());
    }
    CHECK(bytes <= input.size());
    const auto found = find_netrc(entries, "example.com", "me");
    CHECK(!found || found->login == "me");
}
