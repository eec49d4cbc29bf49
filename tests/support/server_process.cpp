#include "support/server_process.h"

#include <filesystem>
#include <stdexcept>

#include "base/text.h"
#include "platform/file.h"
#include "platform/process.h"
#include "platform/socket.h"
#include "support/scripted_server.h"

namespace vantlow::test {
namespace {

using std::chrono::milliseconds;

bool is_there(const std::u16string& program) {
    return path_separator() == u'/' && path_kind(program) == PathKind::file;
}

bool is_root() {
    return user_logon_name() == u"root";
}

// Where the tests' own copy of proftpd stands: its package and vsftpd's cannot be installed together.
std::u16string proftpd_root() {
    return join_path(folder_of(folder_of(folder_of(program_path()))), u"proftpd");
}

std::u16string encoded(std::string_view address) {
    return to_utf16(address);
}

}  // namespace

ServerProcess::~ServerProcess() {
    if (!program_) return;
    program_->terminate();
    (void)program_->wait(std::chrono::seconds(5));
}

void ServerProcess::start(const std::u16string& program, const std::string& host,
                          const std::function<std::vector<std::u16string>()>& arguments,
                          const RunOptions& options) {
    const std::uint16_t wanted = port_;
    for (int attempt = 0; attempt < 3; ++attempt) {
        port_ = wanted != 0 ? wanted : closed_port();
        program_ = std::make_unique<RunningProgram>(program, arguments(), options);
        const auto end = Clock::now() + std::chrono::seconds(10);
        while (program_->is_running() && Clock::now() < end) {
            if (accepts(port_, host)) return;
            std::this_thread::sleep_for(milliseconds(5));
        }
    }
    throw std::runtime_error(to_utf8(program) + " does not start: " + output());
}

std::string make_certificate(const TempFolder& folder) {
    const std::u16string file = folder.path(u"server.pem");
    const RunResult made = run_program(
        u"/usr/bin/openssl", {u"req", u"-x509", u"-newkey", u"rsa:2048", u"-nodes", u"-days", u"2", u"-subj",
                              u"/CN=127.0.0.1", u"-addext", u"subjectAltName=IP:127.0.0.1", u"-keyout",
                              folder.path(u"key.pem"), u"-out", folder.path(u"cert.pem")});
    if (made.status != 0) throw std::runtime_error("openssl: " + made.err);
    folder.write(u"server.pem", folder.read(u"key.pem") + folder.read(u"cert.pem"));
    std::filesystem::permissions(to_utf8(file),
                                 std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    return to_utf8(file);
}

bool Vsftpd::available() {
    return is_there(u"/usr/sbin/vsftpd") && is_root();
}

Vsftpd::Vsftpd(std::string_view lines, bool ipv6) : ipv6_(ipv6) {
    const std::u16string empty = prefix_.path(u"empty");
    if (!make_folders(empty).ok()) throw std::runtime_error("no folder for vsftpd");
    start(u"/usr/sbin/vsftpd", ipv6 ? "::1" : "127.0.0.1", [&] {
        std::string text = ipv6 ? "listen=NO\nlisten_ipv6=YES\nlisten_address6=::1\n"
                                : "listen=YES\nlisten_ipv6=NO\nlisten_address=127.0.0.1\n";
        text += "listen_port=" + std::to_string(port_) + "\nbackground=NO\nanonymous_enable=YES\n";
        text +=
            "local_enable=NO\nisolate=NO\nisolate_network=NO\nseccomp_sandbox=NO\npam_service_name=other\n";
        text += "anon_root=" + documents_.utf8_path() + "\nsecure_chroot_dir=" + to_utf8(empty) + "\n";
        text += std::string(lines) + "\n";
        return std::vector<std::u16string>{prefix_.write(u"vsftpd.conf", text)};
    });
}

std::u16string Vsftpd::url16(std::string_view path, std::string_view scheme) const {
    return encoded(std::string(scheme) + "://" + (ipv6_ ? "[::1]" : "127.0.0.1") + ":" +
                   std::to_string(port_) + std::string(path));
}

bool Proftpd::available() {
    return is_there(join_path(proftpd_root(), u"usr/sbin/proftpd"));
}

Proftpd::Proftpd(std::string_view lines) {
    const std::string root = to_utf8(proftpd_root());
    const std::string folder = prefix_.utf8_path();
    // It refuses to serve root; a file that everybody may read is enough for nobody.
    const std::string ids = is_root() ? "65534:65534" : "1000:1000";
    using std::filesystem::perms;
    const perms readable =
        perms::owner_all | perms::group_read | perms::group_exec | perms::others_read | perms::others_exec;
    std::filesystem::permissions(documents_.utf8_path(), readable);
    const auto users = prefix_.write(u"users", "joe:$1$vantlow0$yyhZ6UeBKPxCiTVmGlUI31:" + ids +
                                                   "::" + documents_.utf8_path() + ":/bin/sh\n");
    std::filesystem::permissions(to_utf8(users), perms::owner_read | perms::owner_write);
    RunOptions options;
    options.environment = {{"LD_LIBRARY_PATH", to_utf16(root + "/usr/lib/x86_64-linux-gnu")}};
    start(
        to_utf16(root + "/usr/sbin/proftpd"), "127.0.0.1",
        [&] {
            std::string text =
                "ServerType standalone\nServerName test\nDefaultAddress 127.0.0.1\nUseIPv6 off\n";
            text += "Port " + std::to_string(port_) + "\nUseReverseDNS off\nDelayEngine off\nWtmpLog off\n";
            text += "User nobody\nGroup nogroup\nTransferLog none\nRequireValidShell off\n";
            text += "AuthOrder mod_auth_file.c\nAllowRetrieveRestart on\n";
            text += "ModulePath " + root + "/usr/lib/proftpd\nPidFile " + folder + "/pid\n";
            text += "ScoreboardFile " + folder + "/scoreboard\nSystemLog " + folder + "/log\n";
            text += "AuthUserFile " + folder + "/users\n" + std::string(lines) + "\n";
            return std::vector<std::u16string>{u"-n", u"-c", prefix_.write(u"proftpd.conf", text)};
        },
        options);
}

std::u16string Proftpd::url16(std::string_view path, std::string_view scheme,
                              std::string_view password) const {
    return encoded(std::string(scheme) + "://joe:" + std::string(password) +
                   "@127.0.0.1:" + std::to_string(port_) + std::string(path));
}

bool Sshd::available() {
    return is_there(u"/usr/sbin/sshd") && is_there(u"/usr/bin/ssh-keygen");
}

void Sshd::make_key(const TempFolder& folder, const char16_t* name, const char16_t* kind) {
    (void)remove_file(folder.path(name));
    const RunResult made =
        run_program(u"/usr/bin/ssh-keygen", {u"-q", u"-t", kind, u"-N", u"", u"-f", folder.path(name)});
    if (made.status != 0) throw std::runtime_error("ssh-keygen: " + made.err);
}

Sshd::Sshd(std::string_view lines) {
    make_key(keys_, u"id_ed25519", u"ed25519");
    make_key(keys_, u"id_ecdsa", u"ecdsa");
    make_key(keys_, u"id_rsa", u"rsa");
    make_key(prefix_, u"host_key", u"ed25519");
    run(lines);
}

void Sshd::run(std::string_view lines) {
    (void)make_folders(u"/run/sshd");  // its packages' start would make it
    prefix_.write(u"authorized",
                  keys_.read(u"id_ed25519.pub") + keys_.read(u"id_ecdsa.pub") + keys_.read(u"id_rsa.pub"));
    start(u"/usr/sbin/sshd", "127.0.0.1", [&] {
        const std::string folder = prefix_.utf8_path();
        std::string text = "Port " + std::to_string(port_) + "\nListenAddress 127.0.0.1\nStrictModes no\n";
        text +=
            "HostKey " + folder + "/host_key\nPidFile none\nAuthorizedKeysFile " + folder + "/authorized\n";
        text += "UsePAM no\nPermitRootLogin yes\nSubsystem sftp internal-sftp\n" + std::string(lines) + "\n";
        return std::vector<std::u16string>{u"-D", u"-e", u"-f", prefix_.write(u"sshd_config", text)};
    });
}

void Sshd::change_key() {
    program_->terminate();
    (void)program_->wait(std::chrono::seconds(5));
    make_key(prefix_, u"host_key", u"ed25519");
    run({});
}

std::u16string Sshd::url16(std::string_view name) const {
    return encoded("sftp://127.0.0.1:" + std::to_string(port_) + documents_.utf8_path() + "/" +
                   std::string(name));
}

}  // namespace vantlow::test
