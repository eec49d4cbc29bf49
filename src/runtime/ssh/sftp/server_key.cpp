// The server's key is checked against the known hosts: is this the server that it was?
#include <algorithm>
#include <array>
#include <memory>
#include <span>
#include <sstream>
#include <string>
#include <string_view>

#include "runtime/ssh/sftp/key_text.h"
#include "runtime/ssh/sftp/session.h"

namespace vantlow::ssh {
namespace {

struct KeyKind {
    const char* method;
    int session_type;  ///< LIBSSH2_HOSTKEY_TYPE_
    int known_type;    ///< LIBSSH2_KNOWNHOST_KEY_
    const char* shown;
};
constexpr std::array kinds{
    KeyKind{"ssh-ed25519", LIBSSH2_HOSTKEY_TYPE_ED25519, LIBSSH2_KNOWNHOST_KEY_ED25519, "ED25519"},
    KeyKind{"ecdsa-sha2-nistp256", LIBSSH2_HOSTKEY_TYPE_ECDSA_256, LIBSSH2_KNOWNHOST_KEY_ECDSA_256, "ECDSA"},
    KeyKind{"ecdsa-sha2-nistp384", LIBSSH2_HOSTKEY_TYPE_ECDSA_384, LIBSSH2_KNOWNHOST_KEY_ECDSA_384, "ECDSA"},
    KeyKind{"ecdsa-sha2-nistp521", LIBSSH2_HOSTKEY_TYPE_ECDSA_521, LIBSSH2_KNOWNHOST_KEY_ECDSA_521, "ECDSA"},
    KeyKind{"rsa-sha2-512", LIBSSH2_HOSTKEY_TYPE_RSA, LIBSSH2_KNOWNHOST_KEY_SSHRSA, "RSA"},
    KeyKind{"rsa-sha2-256", LIBSSH2_HOSTKEY_TYPE_RSA, LIBSSH2_KNOWNHOST_KEY_SSHRSA, "RSA"},
    KeyKind{"ssh-rsa", LIBSSH2_HOSTKEY_TYPE_RSA, LIBSSH2_KNOWNHOST_KEY_SSHRSA, "RSA"}};

struct FreeKnownHosts {
    void operator()(LIBSSH2_KNOWNHOSTS* hosts) const { libssh2_knownhost_free(hosts); }
};
using KnownHosts = std::unique_ptr<LIBSSH2_KNOWNHOSTS, FreeKnownHosts>;

// True when a line's key, its third word, has all its digits and padding: see base64_padded.
bool has_whole_key(std::string_view line) {
    constexpr std::string_view blanks = " \t\r";
    for (int word = 0; word < 2; ++word) {
        line.remove_prefix(std::min(line.find_first_not_of(blanks), line.size()));
        line.remove_prefix(std::min(line.find_first_of(blanks), line.size()));
    }
    line.remove_prefix(std::min(line.find_first_not_of(blanks), line.size()));
    const std::size_t size = std::min(line.find_first_of(blanks), line.size());
    return size > 0 && size % 4 == 0;
}

// True when a line with the marker "@revoked" names this key, for whichever hosts (sshd(8), SSH_KNOWN_HOSTS).
bool is_revoked(const VantlowSshLogin& login, const char* key, std::size_t size) {
    if (login.known_hosts == nullptr) return false;
    const std::string wanted = base64_padded(reinterpret_cast<const unsigned char*>(key), size);
    std::istringstream text(std::string(login.known_hosts, login.known_hosts_size));
    for (std::string line; std::getline(text, line);) {
        std::istringstream words(line);
        std::string marker;
        std::string hosts;
        std::string kind;
        std::string known;
        if (words >> marker >> hosts >> kind >> known && marker == "@revoked" && known == wanted) return true;
    }
    return false;
}

// Lines that cannot be read (markers, kinds of keys of later days) are skipped, as OpenSSH does.
KnownHosts read_known_hosts(VantlowSsh& ssh) {
    KnownHosts hosts(libssh2_knownhost_init(ssh.session));
    if (!hosts || ssh.login->known_hosts == nullptr) return hosts;
    const std::string text(ssh.login->known_hosts, ssh.login->known_hosts_size);
    for (std::size_t at = 0; at < text.size();) {
        const auto end = std::min(text.find('\n', at), text.size());
        if (text[at] != '#' && text[at] != '@' &&
            has_whole_key(std::string_view(text).substr(at, end - at))) {
            // The line goes with its line end, because libssh2 looks for one even behind the text that it was
            // given.
            libssh2_knownhost_readline(hosts.get(), text.data() + at, end - at + (end < text.size() ? 1 : 0),
                                       LIBSSH2_KNOWNHOST_FILE_OPENSSH);
        }
        at = end + 1;
    }
    return hosts;
}

int check(VantlowSsh& ssh, const KnownHosts& hosts, const char* key, std::size_t size, int type) {
    return libssh2_knownhost_checkp(hosts.get(), ssh.login->host, ssh.login->port, key, size,
                                    LIBSSH2_KNOWNHOST_TYPE_PLAIN | LIBSSH2_KNOWNHOST_KEYENC_RAW | type,
                                    nullptr);
}

// True when some key of that kind is known for the server.
bool is_known_kind(VantlowSsh& ssh, const KnownHosts& hosts, const KeyKind& kind) {
    return check(ssh, hosts, "?", 1, kind.known_type) == LIBSSH2_KNOWNHOST_CHECK_MISMATCH;
}

std::string known_hosts_name(const VantlowSshLogin& login) {
    if (login.port == 22) return login.host;
    return "[" + std::string(login.host) + "]:" + std::to_string(login.port);
}

std::string known_hosts_line(VantlowSsh& ssh, const KnownHosts& hosts, const char* key, std::size_t size,
                             int type) {
    struct libssh2_knownhost* added = nullptr;
    const std::string name = known_hosts_name(*ssh.login);
    if (libssh2_knownhost_addc(hosts.get(), name.c_str(), nullptr, key, size, nullptr, 0,
                               LIBSSH2_KNOWNHOST_TYPE_PLAIN | LIBSSH2_KNOWNHOST_KEYENC_RAW | type,
                               &added) != 0)
        return {};
    std::string line(size * 2 + name.size() + 256, '\0');
    std::size_t length = 0;
    if (libssh2_knownhost_writeline(hosts.get(), added, line.data(), line.size(), &length,
                                    LIBSSH2_KNOWNHOST_FILE_OPENSSH) != 0)
        return {};
    line.resize(length);
    while (!line.empty() && line.back() == '\n') line.pop_back();
    return line;
}

}  // namespace

void prefer_known_keys(VantlowSsh& ssh) {
    const KnownHosts hosts = read_known_hosts(ssh);
    if (!hosts) return;
    std::string known;
    std::string others;
    // Naming only the methods that the library supports also keeps it from striking out the others in its own
    // copy, which version 1.10 does with memcpy over overlapping bytes.
    const char** supported = nullptr;
    const int count = libssh2_session_supported_algs(ssh.session, LIBSSH2_METHOD_HOSTKEY, &supported);
    const std::span<const char* const> methods(supported, count > 0 ? static_cast<std::size_t>(count) : 0);
    const auto is_supported = [&](const KeyKind& kind) {
        return std::any_of(methods.begin(), methods.end(),
                           [&](const char* method) { return std::string_view(method) == kind.method; });
    };
    for (const KeyKind& kind : kinds) {
        if (!is_supported(kind)) continue;
        std::string& list = is_known_kind(ssh, hosts, kind) ? known : others;
        list += (list.empty() ? "" : ",") + std::string(kind.method);
    }
    if (!known.empty()) others = known + (others.empty() ? "" : "," + others);
    if (count > 0) libssh2_free(ssh.session, supported);
    if (!others.empty()) libssh2_session_method_pref(ssh.session, LIBSSH2_METHOD_HOSTKEY, others.c_str());
}

int check_server(VantlowSsh& ssh) {
    std::size_t size = 0;
    int type = 0;
    const char* const key = libssh2_session_hostkey(ssh.session, &size, &type);
    const char* const hash = libssh2_hostkey_hash(ssh.session, LIBSSH2_HOSTKEY_HASH_SHA256);
    const KnownHosts hosts = read_known_hosts(ssh);
    const KeyKind* kind = nullptr;
    bool any_known = false;
    for (const KeyKind& one : kinds) {
        if (kind == nullptr && one.session_type == type) kind = &one;
        any_known = any_known || (hosts && is_known_kind(ssh, hosts, one));
    }
    if (key == nullptr || hash == nullptr || !hosts || kind == nullptr)
        return ssh.fail(VANTLOW_SSH_UNTRUSTED, "The server's key is of an unknown kind.");
    if (is_revoked(*ssh.login, key, size))
        return ssh.fail(VANTLOW_SSH_UNTRUSTED, "The server's key was revoked.");
    if (check(ssh, hosts, key, size, kind->known_type) == LIBSSH2_KNOWNHOST_CHECK_MATCH)
        return VANTLOW_SSH_OK;
    const std::string fingerprint = std::string(kind->shown) + " SHA256:" +
                                    base64_unpadded(reinterpret_cast<const unsigned char*>(hash), 32);
    if (any_known) {
        return ssh.fail(VANTLOW_SSH_UNTRUSTED, "The server's key has changed: it is now " + fingerprint +
                                                   ". Somebody may be in between; if the change is known, "
                                                   "remove the old key from the known hosts.");
    }
    const std::string line = known_hosts_line(ssh, hosts, key, size, kind->known_type);
    if (ssh.login->accept != nullptr &&
        ssh.login->accept(ssh.login->accept_context, fingerprint.c_str(), line.c_str()) != 0)
        return VANTLOW_SSH_OK;
    return ssh.fail(VANTLOW_SSH_UNTRUSTED, "The server's key is not known: " + fingerprint + ".");
}

}  // namespace vantlow::ssh
