// Real proxies and a real server with logins, where they are installed.
#include <gtest/gtest.h>

#include "store/proxies.h"
#include "support/unix_server.h"
#include "transfer/job/proxy_rules.h"
#include "transfer/job_fixture.h"

namespace vantlow::test {
namespace {

class RealProxies : public JobTest {
  protected:
    RealProxies() {
        FileResource resource;
        resource.content = content;
        server.set("/f", resource);
    }

    /// Fetches the file through a proxy over several connections; its result.
    JobOutcome fetch(const std::string& proxy, const std::string& host = "127.0.0.1") {
        auto job =
            make_job(to_utf16("http://" + host + ":" + std::to_string(server.server().port()) + "/f"), 3);
        RunOptions options;
        options.proxy = proxy_plan(*parse_proxy(to_utf16(proxy)));
        return run(*job, options);
    }
    void expect_fetched(const std::string& proxy, const std::string& host = "127.0.0.1") {
        SCOPED_TRACE(proxy);
        expect_file(fetch(proxy, host), content);
        EXPECT_FALSE(log.has("secret"));
    }
    static std::string at(const std::string& scheme, const UnixServer& proxy) {
        return scheme + "127.0.0.1:" + std::to_string(proxy.port());
    }
    static std::string squid_lines(const TempFolder& own, std::uint16_t port, const std::string& login) {
        const std::string path = unix_path(own.path());
        return "http_port 127.0.0.1:" + std::to_string(port) +
               "\npid_filename none\naccess_log none\ncache_log /dev/stderr\ncache deny all\ncoredump_dir " +
               path + "\n" + login +
               "acl in proxy_auth REQUIRED\nhttp_access allow in\nhttp_access deny all\nvisible_hostname t\n"
               "shutdown_lifetime 0 seconds\n";
    }
    /// A squid with this login; null where it is not installed or its user may not use shared memory.
    static std::unique_ptr<UnixServer> start_squid(
        const std::function<std::string(const TempFolder&)>& login) {
        const std::u16string squid = unix_program("squid");
        if (squid.empty()) return nullptr;
        try {
            return std::make_unique<UnixServer>(squid, [&](const TempFolder& own, std::uint16_t port) {
                own.write(u"squid.conf", squid_lines(own, port, login(own)));
                return squid_words(own, port);
            });
        } catch (const std::runtime_error& error) {
            if (std::string(error.what()).find("shm_open") != std::string::npos) return nullptr;
            throw;
        }
    }
    static std::vector<std::u16string> squid_words(const TempFolder& own, std::uint16_t port) {
        // The name of its shared memory.
        return {u"-N", u"-f", own.path(u"squid.conf"), u"-n", u"vt" + to_utf16(std::to_string(port))};
    }

    const std::string content = make_content(7, 300'000);
    FileServer server;
};

TEST_F(RealProxies, SquidWithBasic) {
    const auto proxy = start_squid([](const TempFolder& own) {
        own.write(u"login.sh",
                  "#!/bin/sh\nwhile read user password; do\n"
                  "[ \"$user $password\" = 'us secret' ] && echo OK || echo ERR\ndone\n");
        return "auth_param basic program /bin/sh " + unix_path(own.path(u"login.sh")) + "\n";
    });
    if (!proxy) GTEST_SKIP() << "squid does not run here";
    expect_fetched(at("http://us:secret@", *proxy));
    EXPECT_EQ(fetch(at("http://us:wrong@", *proxy)).result.code, Code::credentials_refused);
    EXPECT_EQ(fetch(at("http://", *proxy)).result.code, Code::credentials_refused);
}

TEST_F(RealProxies, SquidWithNtlm) {
    const std::u16string ntlm = unix_program("ntlm_auth");
    const auto proxy = ntlm.empty() ? nullptr : start_squid([&](const TempFolder&) {
        return "auth_param ntlm program " + to_utf8(ntlm) +
               " --helper-protocol=squid-2.5-ntlmssp --password=secret --configfile=/dev/null\n"
               "auth_param ntlm children 3\n";
    });
    if (!proxy) GTEST_SKIP() << "squid does not run here, or there is no ntlm_auth";
    expect_fetched(at("http://us:secret@", *proxy));
    expect_fetched(at("connect://us:secret@", *proxy));
    EXPECT_EQ(fetch(at("http://us:wrong@", *proxy)).result.code, Code::credentials_refused);
    const Result tunnel = fetch(at("connect://us:wrong@", *proxy)).result;
    EXPECT_EQ(tunnel.code, Code::proxy_refused);
    EXPECT_TRUE(tunnel.about_credentials);
}

TEST_F(RealProxies, MicrosocksWithALogin) {
    const std::u16string microsocks = unix_program("microsocks");
    if (microsocks.empty()) GTEST_SKIP() << "microsocks is not installed";
    const UnixServer proxy(microsocks, [](const TempFolder&, std::uint16_t port) {
        return std::vector<std::u16string>{u"-i", u"127.0.0.1", u"-p", to_utf16(std::to_string(port)),
                                           u"-u", u"us",        u"-P", u"secret"};
    });
    expect_fetched(at("socks5://us:secret@", proxy));
    expect_fetched(at("socks5://us:secret@", proxy), "localhost");
    EXPECT_TRUE(fetch(at("socks5://us:wrong@", proxy)).result.about_credentials);
}

TEST_F(RealProxies, DanteSpeaksBothVersions) {
    const std::u16string danted = unix_program("danted");
    if (danted.empty()) GTEST_SKIP() << "dante-server is not installed";
    const UnixServer proxy(danted, [](const TempFolder& own, std::uint16_t port) {
        own.write(u"danted.conf", "logoutput: stderr\ninternal: 127.0.0.1 port = " + std::to_string(port) +
                                      "\nexternal: lo\nsocksmethod: none\nclientmethod: none\n"
                                      "client pass { from: 0.0.0.0/0 to: 0.0.0.0/0 }\nsocks pass { from: "
                                      "0.0.0.0/0 to: 0.0.0.0/0 }\n");
        return std::vector<std::u16string>{u"-f", own.path(u"danted.conf")};
    });
    expect_fetched(at("socks4://", proxy));
    expect_fetched(at("socks5://", proxy), "localhost");
}

TEST_F(RealProxies, SshResolvesNamesForSocks4a) {
    const std::u16string sshd = unix_program("sshd");
    const std::u16string ssh = unix_program("ssh");
    if (sshd.empty() || ssh.empty()) GTEST_SKIP() << "OpenSSH is not installed";
    TempFolder keys;
    for (const std::string name : {"host", "user"})
        run_in_shell(keys, "ssh-keygen -q -t ed25519 -N '' -f " + name);
    const UnixServer host(sshd, [&](const TempFolder& own, std::uint16_t port) {
        own.write(u"sshd_config", "ListenAddress 127.0.0.1\nPort " + std::to_string(port) + "\nHostKey " +
                                      unix_path(keys.path(u"host")) + "\nAuthorizedKeysFile " +
                                      unix_path(keys.path(u"user.pub")) +
                                      "\nStrictModes no\nUsePAM no\nPidFile none\nPermitRootLogin yes\n");
        return std::vector<std::u16string>{u"-D", u"-e", u"-f", own.path(u"sshd_config")};
    });
    const UnixServer proxy(ssh, [&](const TempFolder&, std::uint16_t port) {
        const std::string words =
            "-N -F none -o StrictHostKeyChecking=no -o UserKnownHostsFile=/dev/null -D " +
            ("127.0.0.1:" + std::to_string(port)) + " -p " + std::to_string(host.port()) + " 127.0.0.1";
        std::vector<std::u16string> arguments{u"-i", keys.path(u"user")};
        for (const std::string_view word : split(words, ' ')) arguments.push_back(to_utf16(word));
        return arguments;
    });
    expect_fetched(at("socks4://", proxy), "localhost");
    EXPECT_TRUE(log.has("Socks4: 04 01"));
}

TEST_F(RealProxies, ADyingProxyIsTriedAgain) {
    const std::u16string microsocks = unix_program("microsocks");
    if (microsocks.empty()) GTEST_SKIP() << "microsocks is not installed";
    FileResource resource;
    resource.content = content;
    resource.rate = 200'000;
    server.set("/f", resource);
    const auto words = [](const TempFolder&, std::uint16_t port) {
        return std::vector<std::u16string>{u"-i", u"127.0.0.1", u"-p", to_utf16(std::to_string(port))};
    };
    auto proxy = std::make_unique<UnixServer>(microsocks, words);
    const std::uint16_t port = proxy->port();
    auto job = make_job(to_utf16(server.url("/f")), 2);
    RunOptions options;
    options.proxy = proxy_plan(*parse_proxy(u"socks5://127.0.0.1:" + to_utf16(std::to_string(port))));
    Run running(*this, *job, options);
    ASSERT_TRUE(running.wait_for_done(50'000)) << log.all();
    proxy.reset();
    ASSERT_TRUE(log.wait_for("Socket error = "));
    const UnixServer again(microsocks, words, {.port = port});
    expect_file(running.end(), content);
}

TEST_F(RealProxies, ApacheWithDigest) {
    const std::u16string apache = unix_program("apache2");
    if (apache.empty()) GTEST_SKIP() << "apache2 is not installed";
    const UnixServer real(apache, [&](const TempFolder& own, std::uint16_t port) {
        const std::string path = unix_path(own.path());
        const std::string modules = "/usr/lib/apache2/modules/mod_";
        std::string lines = "ServerRoot " + path + "\nListen 127.0.0.1:" + std::to_string(port) +
                            "\nServerName localhost\nPidFile " + path + "/pid\nErrorLog " + path +
                            "/error.log\nDocumentRoot " + path + "\nMutex file:" + path + "\n";
        for (const char* name :
             {"mpm_event", "authn_core", "authz_core", "authn_file", "auth_digest", "authz_user"})
            lines += std::string("LoadModule ") + name + "_module " + modules + name + ".so\n";
        lines += "<Directory " + path + ">\nAuthType Digest\nAuthName \"a, b\"\nAuthUserFile " + path +
                 "/users\nAuthDigestNonceLifetime 1\nRequire valid-user\n</Directory>\n";
        // MD5("us:a, b:secret")
        own.write(u"users", "us:a, b:235f8f27126a3a10cd304ef81e0298f2\n");
        own.write(u"f", content);
        own.write(u"apache.conf", lines);
        return std::vector<std::u16string>{u"-f", own.path(u"apache.conf"), u"-D", u"FOREGROUND"};
    });
    const std::string address = "http://127.0.0.1:" + std::to_string(real.port()) + "/f";
    const auto get = [&](const char16_t* password) {
        auto job = make_job(to_utf16(address), 4);
        job->user = u"us";
        job->password = password;
        return run(*job);
    };
    expect_file(get(u"secret"), content);
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    EXPECT_TRUE(get(u"secret").result.ok()) << "the nonce is stale by now\n" << log.all();
    EXPECT_EQ(get(u"wrong").result.code, Code::credentials_refused);
}

}  // namespace
}  // namespace vantlow::test
