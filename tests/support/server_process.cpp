#include "support/server_process.h"

#include <stdexcept>

#include "base/text.h"
#include "platform/file.h"
#include "platform/process.h"
#include "support/process_run.h"

namespace vantlow::test {
namespace {

using Words = std::vector<std::u16string>;

bool is_root() {
    return user_logon_name() == u"root";
}

// Where the tests' own copy of proftpd stands: its package and vsftpd's cannot be installed together.
std::u16string proftpd_root() {
    return to_utf16(unix_path(join_path(folder_of(folder_of(folder_of(program_path()))), u"proftpd")));
}

void change_mode(const char16_t* mode, const std::u16string& path) {
    const RunResult changed = run_program(u"/bin/chmod", {mode, path});
    if (changed.status != 0) throw std::runtime_error("chmod: " + changed.err);
}

void make_key(const TempFolder& folder, const char16_t* name, const char16_t* kind) {
    (void)remove_file(folder.path(name));
    const RunResult made =
        run_program(u"/usr/bin/ssh-keygen", {u"-q", u"-t", kind, u"-N", u"", u"-f", folder.path(name)});
    if (made.status != 0) throw std::runtime_error("ssh-keygen: " + made.err);
}

}  // namespace

std::string make_certificate(const TempFolder& folder) {
    run_in_shell(folder,
                 "umask 077; openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=127.0.0.1 "
                 "-addext subjectAltName=IP:127.0.0.1 -keyout key.pem -out cert.pem && "
                 "cat key.pem cert.pem >server.pem");
    return unix_path(folder.path(u"server.pem"));
}

bool Vsftpd::available() {
    return !unix_program("vsftpd").empty() && is_root();
}

Vsftpd::Vsftpd(std::string_view lines, bool ipv6) : ipv6_(ipv6) {
    const auto words = [&](const TempFolder& own, std::uint16_t port) {
        if (!make_folders(own.path(u"empty")).ok()) throw std::runtime_error("no folder for vsftpd");
        std::string text = ipv6 ? "listen=NO\nlisten_ipv6=YES\nlisten_address6=::1\n"
                                : "listen=YES\nlisten_ipv6=NO\nlisten_address=127.0.0.1\n";
        text += "listen_port=" + std::to_string(port) + "\nbackground=NO\nanonymous_enable=YES\n";
        text +=
            "local_enable=NO\nisolate=NO\nisolate_network=NO\nseccomp_sandbox=NO\npam_service_name=other\n";
        text += "anon_root=" + unix_path(documents_.path()) + "\n";
        text += "secure_chroot_dir=" + unix_path(own.path(u"empty")) + "\n" + std::string(lines) + "\n";
        return Words{own.write(u"vsftpd.conf", text)};
    };
    server_ = std::make_unique<UnixServer>(unix_program("vsftpd"), words,
                                           UnixServer::Options{.host = ipv6 ? "::1" : "127.0.0.1"});
}

std::u16string Vsftpd::url16(std::string_view path, std::string_view scheme) const {
    return to_utf16(std::string(scheme) + "://" + (ipv6_ ? "[::1]" : "127.0.0.1") + ":" +
                    std::to_string(port()) + std::string(path));
}

bool Proftpd::available() {
    return can_start_unix_programs() && has_unix_program(proftpd_root() + u"/usr/sbin/proftpd");
}

Proftpd::Proftpd(std::string_view lines) {
    const std::string root = to_utf8(proftpd_root());
    // It refuses to serve root; a file that everybody may read is enough for nobody.
    const std::string ids = is_root() ? "65534:65534" : "1000:1000";
    change_mode(u"755", documents_.path());
    const auto words = [&](const TempFolder& own, std::uint16_t port) {
        change_mode(u"600", own.write(u"users", "joe:$1$vantlow0$yyhZ6UeBKPxCiTVmGlUI31:" + ids +
                                                    "::" + unix_path(documents_.path()) + ":/bin/sh\n"));
        const std::string folder = unix_path(own.path());
        std::string text = "ServerType standalone\nServerName test\nDefaultAddress 127.0.0.1\nUseIPv6 off\n";
        text += "Port " + std::to_string(port) + "\nUseReverseDNS off\nDelayEngine off\nWtmpLog off\n";
        text += "User nobody\nGroup nogroup\nTransferLog none\nRequireValidShell off\n";
        text += "AuthOrder mod_auth_file.c\nAllowRetrieveRestart on\n";
        text += "ModulePath " + root + "/usr/lib/proftpd\nPidFile " + folder + "/pid\n";
        text += "ScoreboardFile " + folder + "/scoreboard\nSystemLog " + folder + "/log\n";
        text += "AuthUserFile " + folder + "/users\n" + std::string(lines) + "\n";
        return Words{u"-n", u"-c", own.write(u"proftpd.conf", text)};
    };
    UnixServer::Options options;
    options.environment = {{"LD_LIBRARY_PATH", to_utf16(root + "/usr/lib/x86_64-linux-gnu")}};
    server_ = std::make_unique<UnixServer>(to_utf16(root + "/usr/sbin/proftpd"), words, options);
}

std::u16string Proftpd::url16(std::string_view path, std::string_view scheme,
                              std::string_view password) const {
    return to_utf16(std::string(scheme) + "://joe:" + std::string(password) +
                    "@127.0.0.1:" + std::to_string(port()) + std::string(path));
}

bool Sshd::available() {
    return !unix_program("sshd").empty() && !unix_program("ssh-keygen").empty();
}

Sshd::Sshd(std::string_view lines) {
    make_key(keys_, u"id_ed25519", u"ed25519");
    make_key(keys_, u"id_ecdsa", u"ecdsa");
    make_key(keys_, u"id_rsa", u"rsa");
    make_key(host_key_, u"host_key", u"ed25519");
    run(lines);
}

void Sshd::run(std::string_view lines, std::uint16_t port) {
    run_in_shell(keys_, "mkdir -p /run/sshd");  // its package's start would make it
    const auto words = [&](const TempFolder& own, std::uint16_t at) {
        own.write(u"authorized",
                  keys_.read(u"id_ed25519.pub") + keys_.read(u"id_ecdsa.pub") + keys_.read(u"id_rsa.pub"));
        std::string text = "Port " + std::to_string(at) + "\nListenAddress 127.0.0.1\nStrictModes no\n";
        text += "HostKey " + unix_path(host_key_.path(u"host_key")) + "\nPidFile none\nAuthorizedKeysFile " +
                unix_path(own.path(u"authorized")) + "\n";
        text += "UsePAM no\nPermitRootLogin yes\nSubsystem sftp internal-sftp\n" + std::string(lines) + "\n";
        return Words{u"-D", u"-e", u"-f", own.write(u"sshd_config", text)};
    };
    server_ = std::make_unique<UnixServer>(unix_program("sshd"), words, UnixServer::Options{.port = port});
}

void Sshd::change_key() {
    const std::uint16_t same = port();
    server_.reset();
    make_key(host_key_, u"host_key", u"ed25519");
    run({}, same);
}

std::u16string Sshd::url16(std::string_view name) const {
    return to_utf16("sftp://127.0.0.1:" + std::to_string(port()) + unix_path(documents_.path()) + "/" +
                    std::string(name));
}

}  // namespace vantlow::test
