// Addresses and proxies: the address that is made of a target's parts leads to the same target.
#include <algorithm>

#include "base/text.h"
#include "fuzz.h"
#include "store/address.h"
#include "store/proxies.h"

namespace vantlow::fuzz {
namespace {

bool is_clean(std::string_view text) {
    return std::none_of(text.begin(), text.end(), [](char c) { return c >= 0 && (c <= 0x20 || c == 0x7F); });
}

void look_at(const Target& target) {
    CHECK(!target.scheme.empty() && !target.host.empty() && target.port != 0);
    CHECK(target.path.starts_with('/') && is_clean(target.path) && is_clean(target.host));
    CHECK(target.host.find_first_of("/?#@\\") == std::string::npos);
    const std::string plain =
        target.scheme + "://" + target.host_text() + ":" + std::to_string(target.port) + target.path;
    const auto again = parse_target(to_utf16(plain));
    CHECK(again && again->port == target.port && again->path == target.path);
    CHECK(again->host_text() == target.host_text() && again->user.empty() && again->password.empty());
}

}  // namespace

void run(std::string_view input) {
    const std::u16string text = to_utf16(input);
    split_address(text);
    link_kind(text);
    const auto target = parse_target(text);
    if (target) look_at(*target);
    if (const auto ansi = parse_target(text, false)) look_at(*ansi);
    const std::u16string plain = without_credentials(text);
    const auto nobody = parse_target(plain);
    CHECK(!nobody || (nobody->user.empty() && nobody->password.empty()));
    if (target) CHECK(without_credentials(plain) == plain);
    if (target) CHECK(nobody && nobody->host == target->host && nobody->path == target->path);
    if (const auto proxy = parse_proxy(text)) {
        CHECK(!proxy->host.empty() && proxy->port > 0 && proxy->port <= 0xFFFF);
        const auto again = parse_proxy(proxy_text(*proxy));
        CHECK(again && again->host == proxy->host && again->port == proxy->port);
        CHECK(again->kind == proxy->kind && again->user == proxy->user);
    }
}

}  // namespace vantlow::fuzz
