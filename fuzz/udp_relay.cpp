// A SOCKS5 proxy's relay: its datagrams, and the reply that names it.
#include "bt/udp_relay.h"

#include "fuzz.h"

void vantlow::fuzz::run(std::string_view input) {
    if (const auto content = relayed(input)) {
        CHECK(content->size() < input.size() && input.ends_with(*content));
        names_ipv6(input);
    }
    if (const auto relay = relay_of(input); relay && relay->address) {
        CHECK(relay->address->port() == relay->port);
        // The proxy's own words as a header carry any content.
        const std::string header = relay_header(relay->address->host(), relay->port);
        CHECK(names_ipv6(header) == relay->address->is_ipv6());
        CHECK(relayed(header + std::string(input)) == input);
    }
    const std::string named = relay_header(std::string(input.substr(0, 255)), 80);
    CHECK(relayed(named + "content") == "content");
}
