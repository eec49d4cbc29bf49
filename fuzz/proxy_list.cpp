// The proxy list: what was read and written is read and written the same.
#include "fuzz.h"
#include "store/proxies.h"

void vantlow::fuzz::run(std::string_view input) {
    std::vector<CProxyNode> proxies;
    const std::size_t line = read_proxy_list(input, proxies);
    CHECK(line <= input.size() + 1 && proxies.size() <= most_proxies);
    const std::string written = write_proxy_list(proxies);
    std::vector<CProxyNode> again;
    CHECK(read_proxy_list(written, again) == 0 && again.size() == proxies.size());
    for (std::size_t i = 0; i < proxies.size(); ++i) {
        CHECK(again[i].host == proxies[i].host && again[i].port == proxies[i].port);
        CHECK(again[i].kind == proxies[i].kind && again[i].user == proxies[i].user);
        CHECK(again[i].password == proxies[i].password);
    }
    CHECK(write_proxy_list(again) == written);
}
