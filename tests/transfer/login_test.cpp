// Logins with servers and proxies: which scheme is taken, what is sent, when it ends.
#include <gtest/gtest.h>

#include "base/codes.h"
#include "support/recording_log.h"
#include "transfer/http/auth_scheme.h"
#include "transfer/job_fixture.h"

namespace vantlow::test {
namespace {

using Lines = std::vector<std::string>;

const std::string greeting = "NTLM TlRMTVNTUAABAAAAB4IAoAAAAAAAAAAAAAAAAAAAAAA=";

/// A challenge message of version 1.
std::string ntlm_challenge() {
    std::string message("NTLMSSP\0\x02\0\0\0\0\0\0\0\x38\0\0\0\x01\x82\0\xA0", 24);
    message += "\x01\x23\x45\x67\x89\xAB\xCD\xEF" + std::string(24, '\0');
    return to_base64(message);
}

TEST(Challenges, AreTakenApartHoweverTheyAreListed) {
    const auto read = [](std::string_view value) {
        std::string all;
        for (const AuthChallenge& one : read_challenges(value)) all += one.scheme + "[" + one.text + "]";
        return all;
    };
    EXPECT_EQ(read("NTLM"), "ntlm[]");
    EXPECT_EQ(read("NTLM TlRM=="), "ntlm[TlRM==]");
    EXPECT_EQ(read("Negotiate, NTLM , Basic realm=\"a, b\""), "negotiate[]ntlm[]basic[realm=\"a, b\"]");
    EXPECT_EQ(read("Digest realm=\"x\", nonce=abc,qop=\"auth,auth-int\", BASIC realm=y"),
              "digest[realm=\"x\", nonce=abc, qop=\"auth,auth-int\"]basic[realm=y]");
    EXPECT_EQ(read("Bearer realm=\"x\", scope=\"digest\", Basic realm=\"z\""), "basic[realm=\"z\"]");
    EXPECT_EQ(read("Digest realm = \"x\", nonce = abc"), "digest[realm = \"x\", nonce= abc]");
    EXPECT_EQ(read("Basic realm=\"never closed, Digest nonce=1"),
              "basic[realm=\"never closed, Digest nonce=1]");
    EXPECT_EQ(read(", ,=,\"\\"), "");
}

class LoginSchemes : public JobTest {
  protected:
    std::unique_ptr<SchemeLogin> login(const std::string& user = "us") {
        return std::make_unique<SchemeLogin>(LoginIdentity{"http://h:80", user, "secret"},
                                             LoginOperations::of(libraries), &memory);
    }
    static std::string value(HttpLogin& login) { return login.line("GET", "/dir/a"); }
    static std::string word(HttpLogin& login) {
        const std::string line = value(login);
        EXPECT_EQ(login.shown().find("secret"), std::string::npos);
        return line.substr(0, line.find(' '));
    }

    LoginMemory memory;
};

TEST_F(LoginSchemes, TheDigestLineIsAsServersKnowIt) {
    CAuthDigest challenge("realm=\"a, b\",nonce=n1,algorithm=MD5,qop=\"auth-int,auth\",opaque=\"\"");
    EXPECT_EQ(challenge.realm, "a, b");
    EXPECT_EQ(challenge.nonce, "n1");
    const auto operations = LoginOperations::of(libraries).digest;
    const DigestRequest request{"u\"s", "secret", "GET", "/x?y=\"1", 1};
    // The client nonce is MD5("1"); the response was computed with md5sum.
    EXPECT_EQ(challenge.answer(operations, request),
              "username=\"u\\\"s\",realm=\"a, b\",nonce=\"n1\",uri=\"/x?y=\"1\","
              "cnonce=\"c4ca4238a0b923820dcc509a6f75849b\",nc=00000001,response="
              "\"5b7bfb12ef66640ee05e319770b0cdb9\",qop=\"auth\","
              "algorithm=MD5,opaque=\"\"");
    CAuthDigest plain("nonce=\"n2\", realm=\"r\"");
    EXPECT_EQ(
        plain.answer(operations, {"us", "secret", "GET", "/", 1}),
        "username=\"us\",realm=\"r\",nonce=\"n2\",uri=\"/\",cnonce=\"c4ca4238a0b923820dcc509a6f75849b\","
        "nc=00000001,response=\"83e8604afa730c7e6854b6d95de4414c\",qop=\"\"");
    EXPECT_FALSE(CAuthDigest("realm=\"r\", qop=\"auth\"").can_answer(operations)) << "no nonce";
    EXPECT_FALSE(CAuthDigest("nonce=n, qop=\"other\"").can_answer(operations));
    EXPECT_FALSE(CAuthDigest("nonce=n, algorithm=SHA-512").can_answer(operations));
}

TEST_F(LoginSchemes, TheStrongestOfferThatWorksIsTaken) {
    struct Case {
        Lines offers;
        const char* taken;
        const char* holds;
    };
    const std::array cases{
        Case{{"Digest nonce=1,qop=\"auth\"", "NTLM", "Basic realm=x"}, "NTLM", "TlRMTVNTUAAB"},
        Case{{"Negotiate", "Basic realm=x"}, "Negotiate", "TlRMTVNTUAAB"},
        Case{{"Negotiate", "NTLM"}, "NTLM", ""},
        Case{{"Basic realm=x, Digest nonce=1,qop=\"auth\""}, "Digest", "uri=\"/dir/a\""},
        Case{{"Digest nonce=1,algorithm=SHA-256,qop=auth", "Digest nonce=1,algorithm=MD5"},
             "Digest",
             ",qop=auth,algorithm=SHA-256"},
        Case{{"Digest nonce=1,algorithm=SHA-512-256,qop=auth", "Digest nonce=1,algorithm=MD5-sess,qop=auth"},
             "Digest",
             "algorithm=MD5-sess"},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(one.offers.front());
        const auto session = login();
        session->connected(false);
        EXPECT_EQ(word(*session), "Basic") << "is sent unasked";
        ASSERT_TRUE(session->challenged(one.offers, true));
        const std::string line = value(*session);
        EXPECT_TRUE(line.starts_with(one.taken)) << line;
        EXPECT_NE(line.find(one.holds), std::string::npos) << line;
    }
    EXPECT_FALSE(login("")->challenged({"Basic realm=x"}, true)) << "nobody has no credentials";
}

TEST_F(LoginSchemes, WrongCredentialsAreTriedTwiceAtMost) {
    auto session = login();
    session->connected(false);
    EXPECT_EQ(word(*session), "Basic");
    EXPECT_FALSE(session->challenged({"Basic realm=x"}, true));

    const Lines both{"NTLM", "Digest nonce=1", "Basic realm=x"};
    session = login();
    session->connected(false);
    EXPECT_EQ(word(*session), "Basic");
    ASSERT_TRUE(session->challenged(both, true));
    EXPECT_EQ(value(*session), greeting);
    ASSERT_TRUE(session->challenged({"NTLM " + ntlm_challenge(), "Digest nonce=1", "Basic realm=x"}, true));
    EXPECT_EQ(word(*session), "NTLM");
    EXPECT_FALSE(session->challenged(both, true));

    // What was not offered was not looked at.
    session = login();
    session->connected(false);
    EXPECT_EQ(word(*session), "Basic");
    ASSERT_TRUE(session->challenged({"Digest nonce=1"}, true));
    EXPECT_EQ(word(*session), "Digest");
    ASSERT_TRUE(session->challenged({"Digest nonce=2,stale=TRUE"}, true)) << "the nonce was too old";
    EXPECT_NE(value(*session).find("nonce=\"2\""), std::string::npos);
    EXPECT_FALSE(session->challenged({"Digest nonce=3,stale=true"}, true)) << "but not for ever";
}

TEST_F(LoginSchemes, NtlmBelongsToItsConnection) {
    auto session = login();
    session->connected(false);
    (void)value(*session);
    ASSERT_TRUE(session->challenged({"NTLM"}, false));
    session->connected(false);
    EXPECT_EQ(value(*session), greeting);
    EXPECT_FALSE(session->challenged({"NTLM " + ntlm_challenge()}, false)) << "its connection is gone";
    EXPECT_NE(session->trouble().find("closed"), std::string::npos);

    session = login();
    session->connected(false);
    (void)value(*session);
    ASSERT_TRUE(session->challenged({"NTLM"}, true));
    (void)value(*session);
    ASSERT_TRUE(session->challenged({"NTLM " + ntlm_challenge()}, true));
    EXPECT_GT(value(*session).size(), greeting.size());
    session->accepted();
    EXPECT_FALSE(session->owner().empty());
    EXPECT_EQ(session->owner().find("secret"), std::string::npos);

    // A further connection knows, a kept one needs no line.
    session = login();
    session->connected(true);
    EXPECT_EQ(value(*session), "");
    session->connected(false);
    EXPECT_EQ(value(*session), greeting);
    EXPECT_NE(login("other")->owner(), session->owner());
}

TEST_F(LoginSchemes, ADamagedNtlmChallengeEndsTheLogin) {
    for (const char* damaged :
         {"NTLM TlRM", "NTLM !!!", "NTLM TlRMTVNTUAADAAAAB4IAoAAAAAAAAAAAAAAAAAAAAAA="}) {
        const auto session = login();
        session->connected(false);
        (void)value(*session);
        ASSERT_TRUE(session->challenged({"NTLM"}, true));
        (void)value(*session);
        EXPECT_FALSE(session->challenged({damaged}, true)) << damaged;
    }
}

/// A job against a server, or through a proxy, that wants a login.
class LoginJobs : public JobTest {
  protected:
    /// 401 (or 407) until the line for it begins with these words; then the content.
    ScriptedServer::Handler wants(std::string begin, Headers challenge, bool closes, bool proxy = false) {
        return [=](Exchange& exchange) {
            const auto line = exchange.request().field(proxy ? "proxy-authorization" : "authorization");
            if (line && line->starts_with(begin)) {
                exchange.answer(200, "OK", "content");
                return;
            }
            exchange.answer(proxy ? 407 : 401, "Login", "who?", challenge);
            if (closes) exchange.close();
        };
    }
    JobOutcome fetch(const std::u16string& address, RunOptions options = {}) {
        auto job = make_job(address);
        job->file_name = u"f";
        job->user = u"us";
        job->password = u"secret";
        return run(*job, std::move(options));
    }
};

TEST_F(LoginJobs, ALoginSurvivesAServerThatClosesWithItsChallenge) {
    ScriptedServer server(
        wants("Digest username=\"us\"",
              {{"WWW-Authenticate", "Digest nonce=1,qop=\"auth\""}, {"Connection", "close"}}, true));
    EXPECT_TRUE(fetch(server.url16("/a")).result.ok()) << log.all();
    EXPECT_EQ(server.request_count(), 2U);
    EXPECT_EQ(log.count("secret"), 0U);
    EXPECT_EQ(log.count("Digest username"), 0U) << log.all();
    // The next one knows.
    auto job = make_job(server.url16("/b"));
    job->user = u"us";
    job->password = u"secret";
    EXPECT_TRUE(run(*job).result.ok());
    EXPECT_EQ(server.request_count(), 3U);
}

TEST_F(LoginJobs, NtlmGoesOverOneConnection) {
    const std::string challenge = ntlm_challenge();
    ScriptedServer server([&](Exchange& exchange) {
        const std::string line = exchange.request().field("authorization").value_or("");
        if (line.starts_with("NTLM TlRMTVNTUAAD")) {
            exchange.answer(200, "OK", "content");
        } else {
            exchange.answer(401, "Login", "who?",
                            {{"WWW-Authenticate", line == greeting ? "NTLM " + challenge : "NTLM"}});
        }
    });
    EXPECT_TRUE(fetch(server.url16("/a")).result.ok()) << log.all();
    EXPECT_EQ(server.connection_count(), 1U);
    EXPECT_EQ(server.request_count(), 3U);
    EXPECT_TRUE(log.has("Authorization: " + greeting));
    EXPECT_EQ(log.count("TlRMTVNTUAAD"), 0U);
}

TEST_F(LoginJobs, AProxyAndAServerAreAnsweredAtOnce) {
    ScriptedServer proxy([](Exchange& exchange) {
        const std::string to_proxy = exchange.request().field("proxy-authorization").value_or("");
        const std::string to_server = exchange.request().field("authorization").value_or("");
        if (!to_proxy.starts_with("Digest username=\"pu\"")) {
            exchange.answer(407, "Proxy", "", {{"Proxy-Authenticate", "Digest nonce=p,qop=\"auth\""}});
        } else if (!to_server.starts_with("Digest username=\"us\"")) {
            exchange.answer(401, "Server", "", {{"WWW-Authenticate", "Digest nonce=s,qop=\"auth\""}});
        } else {
            exchange.answer(200, "OK", "content");
        }
    });
    const RunOptions options = through(ProxyPlan::http, proxy.port(), "pu", "pp");
    EXPECT_TRUE(fetch(u"http://server.example/a", options).result.ok()) << log.all();
    EXPECT_EQ(proxy.request_count(), 3U);
    EXPECT_EQ(proxy.requests().back().head.target, "http://server.example/a");
    EXPECT_NE(proxy.requests().back().head.raw.find("uri=\"/a\""), std::string::npos);
}

// A tunnel's login, over the same connection or a new one.
TEST_F(LoginJobs, ATunnelAnswersItsProxysChallenge) {
    const std::string challenge = ntlm_challenge();
    for (const bool closes : {false, true}) {
        ScriptedServer proxy([&](Exchange& exchange) {
            const std::string line = exchange.request().field("proxy-authorization").value_or("");
            if (exchange.request().method == "GET") {
                exchange.answer(200, "OK", "content");
            } else if (line.starts_with("NTLM TlRMTVNTUAAD")) {
                exchange.send_raw("HTTP/1.1 200 Connection established\r\n\r\n");
            } else if (line == greeting) {
                exchange.send_raw(
                    "HTTP/1.1 407 Proxy\nTransfer-Encoding: chunked\r\nProxy-Authenticate: NTLM " +
                    challenge + "\n\r\n4\r\nwho?\r\n0\r\nX: y\r\n\r\n\r\n");
            } else {
                exchange.answer(407, "Proxy", "who?", {{"Proxy-Authenticate", "NTLM"}});
                if (closes) exchange.close();
            }
        });
        RunOptions options = through(ProxyPlan::http_tunnel, proxy.port(), "pu", "pp");
        EXPECT_TRUE(
            fetch(u"http://server.example/a" + std::u16string(closes ? u"1" : u"2"), options).result.ok())
            << log.all();
        options.proxy.password = "other";
        proxy.set_handler([](Exchange& exchange) {
            exchange.answer(407, "Proxy", "", {{"Proxy-Authenticate", "Basic realm=x"}});
        });
        const std::size_t before = proxy.request_count();
        const JobOutcome outcome = fetch(u"http://server.example/b", options);
        EXPECT_EQ(outcome.result.code, Code::proxy_refused);
        EXPECT_TRUE(outcome.result.about_credentials);
        EXPECT_EQ(proxy.request_count(), before + 1);
    }
}

}  // namespace
}  // namespace vantlow::test
