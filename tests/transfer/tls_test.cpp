// Jobs over TLS: right servers, wrong certificates, broken handshakes.
#include <gtest/gtest.h>

#include <algorithm>

#include "job_fixture.h"
#include "support/certificates.h"
#include "support/cutting_relay.h"
#include "support/nginx.h"

namespace vantlow::test {
namespace {

using std::chrono::milliseconds;

class Tls : public JobTest {
  protected:
    void SetUp() override {
        if (!Certificates::available()) GTEST_SKIP() << Certificates::missing;
        certificates = std::make_unique<Certificates>();
        certificates->make("good");
        trust(certificates->authority());
    }
    void trust(const std::u16string& ca_file) { settings.override_value(u"Connection", u"CAFile", ca_file); }

    [[nodiscard]] static std::u16string at(std::uint16_t port, std::u16string_view path = u"/answer") {
        return u"https://localhost:" + to_utf16(std::to_string(port)) + std::u16string(path);
    }
    /// The job's end, and its file where it ended well.
    JobOutcome fetch(const std::u16string& address, std::string* content = nullptr) {
        const auto job = make_job(address);
        JobOutcome outcome = run(*job);
        if (outcome.result.ok() && content != nullptr) *content = folder.read(name_of(outcome.path));
        return outcome;
    }
    /// A second port of an nginx, with TLS.
    struct Secured {
        Secured(const Certificates& certificates, const std::string& lines)
            : port(closed_port()),
              server("listen 127.0.0.1:" + std::to_string(port) + " ssl;\nssl_certificate " +
                     certificates.file("good.pem") + ";\nssl_certificate_key " +
                     certificates.file("good.key") + ";\nssl_session_cache shared:sessions:1m;\n" + lines) {}
        std::uint16_t port;
        Nginx server;
    };

    std::unique_ptr<Certificates> certificates;
};

TEST_F(Tls, SeveralConnectionsInEachVersionResumeTheFirstOnesSession) {
    if (!Nginx::available()) GTEST_SKIP() << Nginx::missing;
    const std::string content = make_content(7, 3 * 1024 * 1024);
    // Wine's TLS has neither version 1.3 nor sessions.
    const bool whole = path_separator() == u'/';
    const struct {
        const char* protocols;
        const char* told;
    } cases[] = {{"TLSv1.2", "TLS 1.2, "},
                 {"TLSv1.3", "TLS 1.3, "},
                 {"TLSv1.2 TLSv1.3", whole ? "TLS 1.3, " : "TLS 1.2, "}};
    for (const auto& one : cases) {
        if (!whole && one.protocols == std::string_view("TLSv1.3")) continue;
        SCOPED_TRACE(one.protocols);
        // Slowly enough that the other connections come while the first one is at it.
        Secured nginx(*certificates,
                      "ssl_protocols " + std::string(one.protocols) +
                          ";\nadd_header X-Protocol \"$ssl_alpn_protocol\";\nlimit_rate 2m;\n");
        nginx.server.put(u"file.bin", content);
        log.clear();
        const auto job = make_job(at(nginx.port, u"/file.bin"), 4);
        const JobOutcome outcome = run(*job);
        ASSERT_TRUE(outcome.result.ok()) << outcome.result.message() << log.all();
        EXPECT_EQ(folder.read(name_of(outcome.path)), content);
        EXPECT_TRUE(log.has(one.told)) << log.all();
        EXPECT_EQ(log.has(", an earlier session."), whole) << log.all();
        EXPECT_TRUE(log.has("X-Protocol: http/1.1")) << log.all();
    }
}

TEST_F(Tls, ACertificateThatIsWrongIsToldApartAndNothingIsAskedFor) {
    const struct {
        const char* name;
        CertificateWishes wishes;
        const char* told;
    } cases[] = {
        {"expired",
         {.begin = "20200101000000Z", .end = "20200201000000Z"},
         "of localhost expired on 2020-02-01"},
        {"early",
         {.begin = "20480101000000Z", .end = "20480201000000Z"},
         "not valid yet: it begins on 2048-01-01"},
        {"other", {.names = "DNS:other.example"}, "is for another host (other.example), not for localhost"},
        {"lone", {.self_signed = true}, "of localhost is self-signed"},
        {"revoked", {.revoked = true}, "of localhost was revoked on "},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.name);
        certificates->make(one.name, one.wishes);
        std::string stapled;
        if (one.wishes.revoked)
            stapled = "-status_file " + certificates->file(std::string(one.name) + ".der");
        // Wine's TLS does not ask for stapled answers.
        if (one.wishes.revoked && path_separator() == u'\\') continue;
        OpensslServer server(*certificates, one.name, stapled);
        log.clear();
        ScriptedServer plain([&](Exchange& exchange) {
            exchange.answer(302, "Found", "", {{"Location", to_utf8(server.url())}});
        });
        const JobOutcome refused = fetch(to_utf16(plain.url("/first")));
        EXPECT_EQ(refused.result.code, Code::not_trusted) << log.all();
        EXPECT_EQ(refused.distrusted, server.url());
        EXPECT_NE(refused.result.message().find(one.told), std::string::npos) << refused.result.message();
        EXPECT_FALSE(log.has("GET /answer")) << log.all();

        set(setting::verify_peer, 0);
        std::string content;
        EXPECT_TRUE(fetch(server.url(), &content).result.ok()) << log.all();
        EXPECT_EQ(content, OpensslServer::body);
        set(setting::verify_peer, 1);
        // What was accepted on those terms is not resumed on these.
        EXPECT_EQ(fetch(server.url()).result.code, Code::not_trusted) << log.all();
    }
}

TEST_F(Tls, OnlyTheNamedCertificatesAreTrusted) {
    OpensslServer server(*certificates, "good");
    std::string content;
    EXPECT_TRUE(fetch(server.url(u"127.0.0.1"), &content).result.ok()) << log.all();
    EXPECT_EQ(content, OpensslServer::body);
    certificates->make("lone", {.self_signed = true});
    OpensslServer lone(*certificates, "lone");
    folder.write(u"both.pem",
                 certificates->folder().read(u"ca.pem") + certificates->folder().read(u"lone.pem"));
    trust(folder.path(u"both.pem"));
    EXPECT_TRUE(fetch(lone.url()).result.ok()) << "a certificate that is named itself\n" << log.all();

    folder.write(u"empty.pem", "");
    folder.write(u"bad.pem", "-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----\n");
    for (const char16_t* name : {u"empty.pem", u"bad.pem", u"none.pem"}) {
        trust(folder.path(name));
        const JobOutcome outcome = fetch(server.url());
        EXPECT_EQ(outcome.result.code, Code::not_trusted) << to_utf8(name) << outcome.result.message();
        EXPECT_NE(outcome.result.message().find(to_utf8(name)), std::string::npos)
            << outcome.result.message();
    }
    trust({});
    const JobOutcome outcome = fetch(server.url());
    EXPECT_EQ(outcome.result.code, Code::not_trusted);
    EXPECT_NE(outcome.result.message().find("authority that is not trusted (Authority of the test)"),
              std::string::npos)
        << outcome.result.message();
}

TEST_F(Tls, AHandshakeThatIsCutAnywhereIsTriedAgain) {
    OpensslServer server(*certificates, "good");
    // Close and reset take turns.
    const std::int64_t places[] = {0, 1, 5, 100, 300, 600, 900, 901};
    CuttingRelay relay(server.port(), [&](int number) -> Cut {
        const auto at = static_cast<std::size_t>(number);
        if (at >= std::size(places)) return {};
        return {places[at], number % 2 == 0 ? Cut::How::close : Cut::How::reset};
    });
    std::string content;
    const JobOutcome outcome = fetch(at(relay.port()), &content);
    EXPECT_TRUE(outcome.result.ok()) << outcome.result.message() << log.all();
    EXPECT_EQ(content, OpensslServer::body);
    EXPECT_GE(relay.connections(), static_cast<int>(std::size(places)));
}

TEST_F(Tls, AnEndWithoutTlsOwnEndIsNoEndOfAFile) {
    // A body that ends with the connection, cut before its end: its size would be anybody's guess.
    OpensslServer server(*certificates, "good");
    const std::string whole = make_content(5, 300000);
    server.put(u"open", "HTTP/1.1 200 OK\r\n\r\n" + whole);
    CuttingRelay relay(server.port(), [](int number) -> Cut { return number < 2 ? Cut{100000} : Cut{}; });
    std::string content;
    const JobOutcome outcome = fetch(at(relay.port(), u"/open"), &content);
    ASSERT_TRUE(outcome.result.ok()) << outcome.result.message() << log.all();
    EXPECT_EQ(content, whole);
    EXPECT_TRUE(log.has("without ending TLS")) << log.all();
}

TEST_F(Tls, ServersThatSpeakSomethingElseAreToldAtOnce) {
    ScriptedServer plain([](Exchange& exchange) { exchange.send_raw("HTTP/1.1 400 Bad Request\r\n\r\n"); },
                         {.raw = true});
    EXPECT_EQ(fetch(at(plain.port())).result.message(), "localhost does not speak TLS at this port.");
    OpensslServer old(*certificates, "good", "-tls1_2 -cipher ECDHE-ECDSA-AES128-GCM-SHA256");
    EXPECT_TRUE(fetch(old.url()).result.ok()) << log.all();
    OpensslServer ancient(*certificates, "good", "-tls1_1 -cipher DEFAULT@SECLEVEL=0");
    const JobOutcome outcome = fetch(ancient.url());
    EXPECT_EQ(outcome.result.code, Code::server_error) << outcome.result.message();
    EXPECT_NE(outcome.result.message().find("The TLS handshake with localhost failed"), std::string::npos)
        << outcome.result.message();
}

TEST_F(Tls, NoCredentialsGoAlongARedirectIntoTheClear) {
    ScriptedServer plain([](Exchange& exchange) { exchange.answer(200, "OK", "moved"); });
    const std::string moved = "HTTP/1.1 302 Found\r\nLocation: " + plain.url("/there") +
                              "\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";
    OpensslServer server(*certificates, "good");
    server.put(u"away", moved);
    const auto job = make_job(at(server.port(), u"/away"));
    job->user = u"somebody";
    job->password = u"secret";
    job->cookie = u"session=12345";
    job->referer = u"https://localhost/private";
    ASSERT_TRUE(run(*job).result.ok()) << log.all();
    const auto requests = plain.requests();
    ASSERT_EQ(requests.size(), 1U);
    for (const char* told : {"Authorization", "Cookie", "private"})
        EXPECT_EQ(requests[0].head.raw.find(told), std::string::npos) << requests[0].head.raw;
    EXPECT_FALSE(log.has("secret") || log.has("12345")) << log.all();
}

// The host's own word counts for the run, where its certificate was checked; the job's login goes along.
TEST_F(Tls, AHostThatWantsTlsOnlyIsNotAskedInTheClear) {
    OpensslServer server(*certificates, "good");
    server.put(u"strict",
               "HTTP/1.1 200 OK\r\nStrict-Transport-Security: max-age=60\r\nContent-Length: 3\r\n"
               "Connection: close\r\n\r\nabc");
    const std::u16string plain =
        u"http://ann:pw@localhost:" + to_utf16(std::to_string(server.port())) + u"/strict";
    settings.override_value(u"Connection", u"VerifyPeer", u"0");
    ASSERT_TRUE(fetch(at(server.port(), u"/strict")).result.ok()) << log.all();
    const auto refused = make_job(plain);
    refused->retry_by_settings = 0;
    refused->retries = 0;
    EXPECT_FALSE(run(*refused).result.ok()) << "nobody's word made it TLS";
    settings.override_value(u"Connection", u"VerifyPeer", u"1");
    ASSERT_TRUE(fetch(at(server.port(), u"/strict")).result.ok()) << log.all();
    log.clear();
    std::string content;
    EXPECT_TRUE(fetch(plain, &content).result.ok()) << log.all();
    EXPECT_EQ(content, "abc");
    EXPECT_TRUE(log.has("TLS only")) << log.all();
    EXPECT_TRUE(log.has("Authorization: Basic")) << log.all();
}

TEST_F(Tls, WithoutTheLibraryTheMessageNamesIt) {
    const SecurTable none;
    ConnectionServices bare(&none);
    CBaseSocket socket(bare, log, stop);
    ScriptedServer server([](Exchange&) {}, {.raw = true});
    ConnectPlan plan;
    plan.host = "127.0.0.1";
    plan.port = server.port();
    plan.tls.emplace();
    const Result result = socket.open(plan);
    EXPECT_EQ(result.code, Code::unsupported);
    EXPECT_TRUE(result.message().starts_with(missing_library_text("libsecur"))) << result.message();
    EXPECT_FALSE(socket.is_open());
}

TEST_F(Tls, AKeptConnectionIsUsedAgainOnItsOwnTermsOnly) {
    if (!Nginx::available()) GTEST_SKIP() << Nginx::missing;
    Secured nginx(*certificates, "");
    nginx.server.put(u"small", "abc");
    const auto talk = [&](bool verify) {
        ConnectPlan plan;
        plan.scheme = "https";
        plan.host = "localhost";
        plan.port = nginx.port;
        plan.tls.emplace();
        plan.tls->verify = verify;
        plan.tls->ca_file = certificates->authority();
        CBaseSocket socket(network, log, stop);
        EXPECT_TRUE(socket.open(plan).ok()) << log.all();
        const std::string request = "GET /small HTTP/1.1\r\nHost: localhost\r\n\r\n";
        EXPECT_TRUE(socket.send_all(std::as_bytes(std::span(request))).ok());
        std::string answer;
        std::byte one{};
        while (!answer.ends_with("\r\n\r\nabc") && socket.receive_byte(one).ok())
            answer += static_cast<char>(one);
        const bool reused = socket.is_reused();
        socket.close(true);
        return reused;
    };
    EXPECT_FALSE(talk(true));
    // Tickets that came behind the answer are no reason to give the connection up.
    std::this_thread::sleep_for(milliseconds(20));
    EXPECT_TRUE(talk(true));
    EXPECT_FALSE(talk(false)) << "one that was verified for one that need not be is another connection";
    EXPECT_TRUE(talk(true));
}

using TimedTls = Tls;

TEST_F(TimedTls, AStopEndsAHandshakeAtOnceWhereverItStands) {
    OpensslServer server(*certificates, "good");
    for (const std::int64_t place : {0, 3, 200, 700}) {
        SCOPED_TRACE(place);
        CuttingRelay relay(server.port(), [&](int) { return Cut{place, Cut::How::stall}; });
        const auto job = make_job(at(relay.port()));
        Run running(*this, *job, {});
        const auto until = Clock::now() + std::chrono::seconds(5);
        while (relay.connections() == 0 && Clock::now() < until) std::this_thread::sleep_for(milliseconds(1));
        std::this_thread::sleep_for(milliseconds(100));
        const auto begun = Clock::now();
        running.thread().stop();
        EXPECT_TRUE(running.wait(milliseconds(1000)));
        EXPECT_LT(Clock::now() - begun, milliseconds(200));
    }
}

}  // namespace
}  // namespace vantlow::test
