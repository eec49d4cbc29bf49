// FTP and SFTP jobs against real servers.
#include "job_fixture.h"
#include "support/server_process.h"

namespace vantlow::test {
namespace {

constexpr std::int64_t size = 3'000'000;
const std::string content = make_content(31, static_cast<std::size_t>(size));

class FtpServersTest : public JobTest {
  protected:
    void expect_fetched(const std::u16string& address, int connections = 3,
                        vantlow::RunOptions options = {}) {
        auto job = make_job(address, connections);
        expect_file(run(*job, std::move(options)), content);
    }
    // Stopped in the middle, then continued: nothing is fetched twice.
    void expect_continued(const std::u16string& address, const vantlow::RunOptions& options = {}) {
        set(setting::limit, 1);
        set(setting::speed_limit, 2'000'000);
        auto job = make_job(address, 2);
        {
            Run running(*this, *job, options);
            // A quarter, and what a connection may get of the rest past the place where its part is cut.
            ASSERT_TRUE(running.wait_for_done(size / 4 + 256 * 1024)) << log.all();
            running.thread().stop();
            EXPECT_EQ(running.end().result.code, Code::stopped);
        }
        set(setting::limit, 0);
        auto earlier = earlier_job(address, 2);
        ASSERT_NE(earlier, nullptr);
        earlier->address = address;  // with its credentials, which no state holds
        const JobOutcome outcome = run(*earlier, options);
        EXPECT_LT(outcome.received, size - size / 4 + 1);
        expect_file(outcome, content);
        EXPECT_TRUE(log.has("The file on the server is the same as the file on the local machine."));
    }
};

TEST_F(FtpServersTest, VsftpdAnonymous) {
    if (!Vsftpd::available()) GTEST_SKIP() << Vsftpd::missing;
    Vsftpd server;
    ASSERT_TRUE(make_folders(server.documents().path(u"a dir")).ok());
    server.documents().write(u"a dir/\u00e4 b.bin", content);
    expect_fetched(server.url16("/a%20dir/\xC3\xA4%20b.bin"));
    set(setting::ftp_passive, 0);
    expect_fetched(server.url16("/a%20dir/\xC3\xA4%20b.bin"));
    set(setting::ftp_passive, 1);
    expect_continued(server.url16("/a%20dir/\xC3\xA4%20b.bin"));
}

TEST_F(FtpServersTest, VsftpdOnIpv6AndWithFewLogins) {
    if (!Vsftpd::available()) GTEST_SKIP() << Vsftpd::missing;
    Vsftpd server("max_per_ip=2\nanon_max_rate=3000000", true);
    server.documents().write(u"x.bin", content);
    expect_fetched(server.url16("/x.bin"), 4);
    EXPECT_TRUE(log.has("EPSV"));
    EXPECT_TRUE(log.has("421")) << log.all();
}

TEST_F(FtpServersTest, ProftpdWithPasswordAndCompression) {
    if (!Proftpd::available()) GTEST_SKIP() << Proftpd::missing;
    Proftpd plain;
    plain.documents().write(u"x.bin", content);
    expect_fetched(plain.url16("/x.bin"));
    auto job = make_job(plain.url16("/x.bin", "ftp", "wrong"));
    EXPECT_EQ(run(*job).result.code, Code::credentials_refused);
    expect_continued(plain.url16("/x.bin"));
    Proftpd deflating("LoadModule mod_deflate.c\nDeflateEngine on");
    deflating.documents().write(u"z.bin", content);
    expect_fetched(deflating.url16("/z.bin"));
    EXPECT_TRUE(log.has("> MODE Z") || log.count("MODE Z") >= 2);
}

class FtpsTest : public FtpServersTest {
  protected:
    void SetUp() override {
        if (!Vsftpd::available() || !Proftpd::available())
            GTEST_SKIP() << Vsftpd::missing << Proftpd::missing;
        certificate = make_certificate(keys);
        proftpd_lines = "LoadModule mod_tls.c\nTLSEngine on\nTLSRequired on\nTLSRSACertificateFile " +
                        certificate + "\nTLSRSACertificateKeyFile " + certificate + "\nTLSLog none\n";
        vsftpd_lines =
            "ssl_enable=YES\nallow_anon_ssl=YES\nforce_anon_logins_ssl=YES\nforce_anon_data_ssl=YES\n"
            "require_ssl_reuse=YES\nrsa_cert_file=" +
            certificate;
    }
    void trust() { settings.override_value(u"Connection", u"CAFile", keys.path(u"cert.pem")); }
    // A server that wants a session resumed and cannot have it is told apart from one that is busy.
    void expect_refused(const std::u16string& address) {
        auto job = make_job(address, 2);
        const JobOutcome outcome = run(*job);
        EXPECT_EQ(outcome.result.code, Code::server_error) << log.all();
        EXPECT_NE(outcome.result.message().find("resume the TLS session"), std::string::npos)
            << outcome.result.message();
    }
    const TempFolder keys;
    std::string certificate;
    std::string proftpd_lines;
    std::string vsftpd_lines;
};

TEST_F(FtpsTest, DataConnectionsResumeTheSessionOfTheControlConnection) {
    Vsftpd strict(vsftpd_lines);
    Proftpd strict_too(proftpd_lines);
    for (const ServerProcess* server :
         {static_cast<ServerProcess*>(&strict), static_cast<ServerProcess*>(&strict_too)})
        server->documents().write(u"x.bin", content);
    auto untrusted = make_job(strict.url16("/x.bin", "ftps"));
    EXPECT_EQ(run(*untrusted).result.code, Code::not_trusted);
    trust();
    for (const std::u16string& address :
         {strict.url16("/x.bin", "ftps"), strict_too.url16("/x.bin", "ftps")}) {
        // Wine's TLS keeps no sessions.
        if (path_separator() == u'/') {
            expect_fetched(address, 4);
        } else {
            expect_refused(address);
        }
    }
    EXPECT_TRUE(log.has("PROT P"));
}

// A server of one file whose data connections cannot resume anything, and which refuses them for that: by
// closing or by resetting them after the handshake. Or it closes each after some bytes, without an end of
// TLS, and does not tell how many there are.
constexpr const char* refusing_server = R"py(
import socket, ssl, struct, sys, threading
port, certificate, reply, how = int(sys.argv[1]), sys.argv[2], sys.argv[3], sys.argv[4]
def context():
    made = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    made.load_cert_chain(certificate)
    return made
def refuse(listener):
    data = context().wrap_socket(listener.accept()[0], server_side=True)
    if how == "cut":
        data.sendall(b"x" * 1000)
    if how == "reset":
        data.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    data.close()
def serve(control):
    control.sendall(b"220 ready\r\n")
    answers = {"AUTH": "234 go", "USER": "331 password", "PASS": "230 in", "TYPE": "200 set", "SIZE": "213 3000000",
        "REST": "350 there", "PBSZ": "200 set", "PROT": "200 set", "CWD": "250 there"}
    if how == "cut":
        del answers["SIZE"]
    while line := control.recv(4096).decode():
        word = line.split()[0].upper()
        answer = answers.get(word, "502 no")
        if word == "PASV":
            listener = socket.create_server(("127.0.0.1", 0))
            at = listener.getsockname()[1]
            answer = f"227 (127,0,0,1,{at // 256},{at % 256})"
        if word == "RETR":
            control.sendall(b"150 here it comes\r\n")
            refuse(listener)
            answer = reply
        control.sendall(answer.encode() + b"\r\n")
        if word == "AUTH":
            control = context().wrap_socket(control, server_side=True)
def guarded(control):
    try:
        serve(control)
    except OSError:
        pass
server = socket.create_server(("127.0.0.1", port))
while True:
    threading.Thread(target=guarded, args=[server.accept()[0]], daemon=True).start()
)py";

TEST_F(FtpsTest, ServersThatWantNoSessionResumedOrCanHaveNone) {
    trust();
    Proftpd lax(proftpd_lines + "TLSOptions NoSessionReuseRequired");
    lax.documents().write(u"x.bin", content);
    expect_fetched(lax.url16("/x.bin", "ftps"), 4);
    for (const auto& [reply, how] :
         {std::pair{u"522 SSL connection failed; session reuse required", u"close"},
          {u"425 Unable to build data connection: Operation not permitted", u"reset"},
          {u"226 All of it", u"cut"}}) {
        const UnixServer refusing(unix_program("python3"), [&](const TempFolder& own, std::uint16_t port) {
            return std::vector<std::u16string>{own.write(u"server.py", refusing_server),
                                               to_utf16(std::to_string(port)), keys.path(u"server.pem"),
                                               reply, how};
        });
        const std::u16string address =
            u"ftps://127.0.0.1:" + to_utf16(std::to_string(refusing.port())) + u"/x.bin";
        if (how != std::u16string_view(u"cut")) {
            expect_refused(address);
            continue;
        }
        const auto job = make_job(address);
        job->retry_by_settings = job->retries = 0;
        EXPECT_FALSE(run(*job).result.ok()) << "a part counted as the whole";
        clear_folder();
    }
    Vsftpd plain;
    auto refused = make_job(plain.url16("/x.bin", "ftps"));
    EXPECT_EQ(run(*refused).result.code, Code::server_error) << "a server without TLS got the password";
    EXPECT_TRUE(log.has("AUTH SSL"));
}

class SftpTest : public FtpServersTest {
  protected:
    vantlow::RunOptions rules(const TempFolder& ssh, bool accept, const std::u16string& key = {}) {
        vantlow::RunOptions options;
        options.ssh.folder = ssh.path();
        options.ssh.key_file = key;
        options.ssh.hosts = std::make_shared<HostKeys>(
            ssh.path(),
            accept ? HostKeys::Ask([this](const std::string&, const std::string&) { return ++asked > 0; })
                   : HostKeys::Ask());
        return options;
    }
    JobOutcome fetch(const std::u16string& address, const vantlow::RunOptions& options) {
        auto job = make_job(address, 3);
        return run(*job, options);
    }
    std::atomic<int> asked{0};
};

TEST_F(SftpTest, KnownHostsAndKeys) {
    if (!Sshd::available()) GTEST_SKIP() << Sshd::missing;
    if (libraries.ssh.Sftp_Connect == nullptr) GTEST_SKIP() << "no SFTP in libssh";
    Sshd server;
    server.documents().write(u"x.bin", content);
    const TempFolder ssh;
    const std::u16string address = server.url16("x.bin");
    std::vector<const char16_t*> keys{u"id_ed25519", u"id_ecdsa"};
#ifdef VANTLOW_SSH_SIGNS_RSA
    keys.push_back(u"id_rsa");
#endif
    for (const char16_t* key : keys) {
        const std::u16string path = server.key_folder().path(key);
        EXPECT_EQ(fetch(address, rules(ssh, false, path)).result.code,
                  asked == 0 ? Code::not_trusted : Code::ok);
        (void)remove_file(folder.path(u"x.bin"));
        expect_fetched(address, 3, rules(ssh, true, path));
        EXPECT_EQ(asked, 1) << "a known server was asked about again";
    }
    EXPECT_TRUE(ssh.read(u"known_hosts").starts_with("[127.0.0.1]:"));
    // The keys of the folder are found without being named.
    const TempFolder& own = server.key_folder();
    own.write(u"known_hosts",
              "# a remark\ntorn ssh-ed25519 AAAAC3NzaC1lZDI1NTE5AAAAI9x\n" + ssh.read(u"known_hosts"));
    expect_continued(address, rules(own, false));

    // Whoever only asks about a file gets no byte of it, and is told of a server that is not known.
    for (const bool is_known : {true, false}) {
        const TempFolder empty;
        SourcePlan plan;
        plan.origin = plan.address = address;
        plan.ssh = rules(is_known ? own : empty, false, server.key_folder().path(keys.front())).ssh;
        plan.facts_only = true;
        const auto source = make_ftp_source({network, libraries, log, stop});
        SourceAnswer answer;
        network.reuse.clear();
        const Result result = source->open(plan, 0, answer);
        EXPECT_EQ(result.code, is_known ? Code::ok : Code::not_trusted) << result.message();
        EXPECT_EQ(answer.version.size, is_known ? static_cast<std::int64_t>(content.size()) : -1);
        EXPECT_EQ(answer.ranges_promised, is_known);
        source->close();
    }

    const TempFolder nobody;
    nobody.write(u"known_hosts", ssh.read(u"known_hosts"));
    EXPECT_EQ(fetch(address, rules(nobody, true)).result.code, Code::credentials_refused);
    const JobOutcome missing = fetch(server.url16("none.bin"), rules(own, false));
    EXPECT_EQ(missing.result.code, Code::server_error) << missing.result.message();
    ASSERT_TRUE(make_folders(server.documents().path(u"sub")).ok());
    for (const char* name : {"sub", "sub/"})
        EXPECT_EQ(fetch(server.url16(name), rules(own, false)).result.code, Code::unsupported) << name;
    network.reuse.clear();
    server.change_key();
    const JobOutcome changed = fetch(address, rules(own, true));
    EXPECT_EQ(changed.result.code, Code::not_trusted);
    EXPECT_NE(changed.result.message().find("has changed"), std::string::npos);
}

}  // namespace
}  // namespace vantlow::test
