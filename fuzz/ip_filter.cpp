// Lists of addresses that are no peers.
#include "bt/ip_filter.h"

#include "fuzz.h"

void vantlow::fuzz::run(std::string_view input) {
    const std::size_t portion = take_byte(input) + std::size_t{1};
    IpFilterReader whole;
    whole.feed(input);
    const IpFilter filter = whole.finish();
    IpFilterReader divided;
    for (std::string_view rest = input; !rest.empty(); rest.remove_prefix(std::min(portion, rest.size())))
        divided.feed(rest.substr(0, portion));
    const IpFilter same = divided.finish();
    CHECK(filter.ranges() == same.ranges());
    CHECK(filter.reading().bad_lines == same.reading().bad_lines);
    CHECK(filter.reading().first_bad == same.reading().first_bad);
    CHECK(filter.ranges() + filter.reading().bad_lines <= input.size());
    for (const char* const address : {"0.0.0.0", "10.1.2.3", "255.255.255.255", "::", "2001:db8::1"}) {
        const auto one = *SocketAddress::from_literal(address, 1);
        CHECK(filter.blocks(one) == same.blocks(one));
    }
}
