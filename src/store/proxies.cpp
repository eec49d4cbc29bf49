#include "store/proxies.h"

#include <algorithm>
#include <array>
#include <span>

#include "base/codes.h"
#include "base/text.h"
#include "platform/system_services.h"
#include "store/address.h"

namespace vantlow {
namespace {

struct Scheme {
    std::u16string_view prefix;
    std::int32_t kind;
};

// The first of several names for one kind is the one that is written.
constexpr std::array schemes{
    Scheme{u"http://", CProxyNode::http},     Scheme{u"connect://", CProxyNode::http_tunnel},
    Scheme{u"socks4://", CProxyNode::socks4}, Scheme{u"socks4a://", CProxyNode::socks4},
    Scheme{u"socks5://", CProxyNode::socks5}, Scheme{u"socks5h://", CProxyNode::socks5},
    Scheme{u"socks://", CProxyNode::socks5},
};
constexpr std::int32_t socks_port = 1080;

// Escapes a user name or a password so that it ends nothing early: everything but letters, digits and "-._~"
// becomes %XX (RFC 3986, 2.3).
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

constexpr std::string_view first_line = "# Vantlow proxy list 1";
constexpr std::size_t largest_file = 4 * 1024 * 1024;

std::string text_of(std::span<const std::byte> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// "kind:bytes in Base64", or nothing for no password.
bool append_password(const CProxyNode& proxy, std::string& line) {
    if (proxy.password.empty()) {
        if (!proxy.sealed_password.empty()) line += "\t" + proxy.sealed_password;
        return true;
    }
    const std::string password = to_utf8(proxy.password);
    const auto kept = protect_secret(std::as_bytes(std::span(password)));
    if (!kept) return false;
    line += "\t" + std::string(secret_kind()) + ":" + to_base64(text_of(*kept));
    return true;
}

std::u16string read_password(std::string_view text) {
    const auto colon = text.find(':');
    if (colon == std::string_view::npos) return {};
    const std::string_view kind = text.substr(0, colon);
    const auto kept = from_base64(text.substr(colon + 1));
    if (!kept || (kind != secret_kind() && kind != "plain")) return {};
    const auto secret = kind == "plain" ? kept : unprotect_secret(*kept);
    return secret ? to_utf16(text_of(*secret)) : std::u16string();
}

// `login`: in the form in which it stands in an address.
std::u16string text_with(const std::u16string& login, const CProxyNode& proxy) {
    const auto found = std::find_if(schemes.begin(), schemes.end(),
                                    [&](const Scheme& one) { return one.kind == proxy.kind; });
    if (found == schemes.end()) return u"direct";
    std::u16string host = proxy.host;
    if (host.find(u':') != std::u16string::npos) {
        // A zone's "%" is escaped (RFC 6874): the digits of its name could be taken for an escape.
        if (const auto zone = host.find(u'%'); zone != std::u16string::npos) host.insert(zone + 1, u"25");
        host = u"[" + host + u"]";
    }
    const std::u16string before = login.empty() ? u"" : login + u"@";
    return std::u16string(found->prefix) + before + host + u":" + to_utf16(std::to_string(proxy.port));
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
    // The text behind the scheme is read like the server part of any address.
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
    return text_with(escaped(proxy.user), proxy);
}

std::u16string proxy_text_with_password(const CProxyNode& proxy) {
    const bool has_both = !proxy.user.empty() && !proxy.password.empty();
    return text_with(escaped(proxy.user) + (has_both ? u":" + escaped(proxy.password) : u""), proxy);
}

std::string write_proxy_list(const std::vector<CProxyNode>& proxies) {
    std::string text = std::string(first_line) + "\n";
    for (const CProxyNode& proxy : proxies) {
        text += to_utf8(proxy_text(proxy));
        if (!append_password(proxy, text)) return {};
        text += "\n";
    }
    return text;
}

std::size_t read_proxy_list(std::string_view text, std::vector<CProxyNode>& proxies) {
    std::size_t number = 0;
    for (std::string_view line : split(text, '\n')) {
        ++number;
        while (line.ends_with('\r')) line.remove_suffix(1);
        if (line.empty() || line.front() == '#') continue;
        const auto tab = line.find('\t');
        auto proxy = parse_proxy(to_utf16(line.substr(0, tab)));
        if (!proxy || proxies.size() == most_proxies) return number;
        if (tab != std::string_view::npos) {
            proxy->password = read_password(line.substr(tab + 1));
            if (proxy->password.empty()) proxy->sealed_password = line.substr(tab + 1);
        }
        proxies.push_back(*std::move(proxy));
    }
    return 0;
}

bool load_proxies(const std::u16string& data_folder, std::vector<CProxyNode>& proxies, std::string& error) {
    const std::u16string path = join_path(data_folder, proxy_list_name);
    std::vector<std::byte> bytes;
    if (const FileError fault = read_file(path, largest_file, bytes); !fault.ok()) {
        if (fault.fault == FileFault::not_found) return true;
        error = to_utf8(path) + " cannot be read: " + fault.text();
        return false;
    }
    const std::size_t bad = read_proxy_list(text_of(bytes), proxies);
    if (bad != 0) error = to_utf8(path) + ", line " + std::to_string(bad) + ": this is not a proxy.";
    return bad == 0;
}

bool save_proxies(const std::u16string& data_folder, const std::vector<CProxyNode>& proxies,
                  std::string& error) {
    const std::u16string path = join_path(data_folder, proxy_list_name);
    const std::string text = write_proxy_list(proxies);
    if (text.empty()) {
        error = "The system refused to store the password.";
        return false;
    }
    FileError fault = make_folders(data_folder);
    if (fault.ok()) fault = write_file_atomically(path, std::as_bytes(std::span(text)), Privacy::owner_only);
    if (!fault.ok()) error = to_utf8(path) + " cannot be written: " + fault.text();
    return fault.ok();
}

}  // namespace vantlow
