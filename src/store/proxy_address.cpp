#include "store/proxy_address.h"

#include <algorithm>
#include <array>

#include "base/text.h"
#include "store/address.h"

namespace vantlow {
namespace {

struct Scheme {
    std::u16string_view prefix;
    std::int32_t kind;
};

// Of several names for one kind the first is the one that is written.
constexpr std::array schemes{
    Scheme{u"http://", CProxyNode::http},     Scheme{u"connect://", CProxyNode::http_tunnel},
    Scheme{u"socks4://", CProxyNode::socks4}, Scheme{u"socks4a://", CProxyNode::socks4},
    Scheme{u"socks5://", CProxyNode::socks5}, Scheme{u"socks5h://", CProxyNode::socks5},
    Scheme{u"socks://", CProxyNode::socks5},
};
constexpr std::int32_t socks_port = 1080;

// A user name that ends nothing early: everything but letters, digits and "-._~" as %XX (RFC 3986, 2.3).
std::u16string escaped(const std::u16string& text) {
    std::string out;
    for (const char c : to_utf8(text)) {
        const bool plain = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
                           std::string_view("-._~").find(c) != std::string_view::npos;
        out +=
            plain ? std::string(1, c) : print("%%%02X", static_cast<unsigned>(static_cast<unsigned char>(c)));
    }
    return to_utf16(out);
}

}  // namespace

std::optional<CProxyNode> parse_proxy(std::u16string_view text) {
    CProxyNode proxy;
    proxy.kind = CProxyNode::http;
    if (const auto colon = text.find(u"://"); colon != std::u16string_view::npos) {
        const std::u16string_view prefix = text.substr(0, colon + 3);
        const auto found = std::find_if(schemes.begin(), schemes.end(),
                                        [&](const Scheme& one) { return iequals(one.prefix, prefix); });
        if (found == schemes.end()) return std::nullopt;
        proxy.kind = found->kind;
        text.remove_prefix(colon + 3);
    }
    // What stands behind the scheme is read as any server part is.
    const auto target = parse_target(u"http://" + std::u16string(text));
    if (!target || target->path != "/") return std::nullopt;
    const bool socks = proxy.kind == CProxyNode::socks4 || proxy.kind == CProxyNode::socks5;
    proxy.host = to_utf16(target->host);
    proxy.port = socks && !target->explicit_port ? socks_port : target->port;
    proxy.user = target->user;
    proxy.password = target->password;
    return proxy;
}

std::u16string proxy_text(const CProxyNode& proxy) {
    const auto found = std::find_if(schemes.begin(), schemes.end(),
                                    [&](const Scheme& one) { return one.kind == proxy.kind; });
    if (found == schemes.end()) return u"direct";
    std::u16string host = proxy.host;
    if (host.find(u':') != std::u16string::npos) {
        // A zone's "%" is escaped (RFC 6874): the digits of its name could be taken for an escape.
        if (const auto zone = host.find(u'%'); zone != std::u16string::npos) host.insert(zone + 1, u"25");
        host = u"[" + host + u"]";
    }
    const std::u16string user = proxy.user.empty() ? u"" : escaped(proxy.user) + u"@";
    return std::u16string(found->prefix) + user + host + u":" + to_utf16(std::to_string(proxy.port));
}

}  // namespace vantlow
