// What of a job's wishes each server gets to hear.
#include "transfer/http/errand.h"

#include <gtest/gtest.h>

#include "job_fixture.h"
#include "support/scripted_server.h"
#include "transfer/job/proxy_rules.h"

namespace vantlow::test {
namespace {

// "referer|user:password" of the request to an address.
std::string told(const HttpErrand& errand, const std::u16string& address) {
    HttpHop hop;
    hop.target = *parse_target(address);
    hop.origin = parse_target(errand.origin);
    const HttpRequest request = make_http_request(errand, hop, CookieJar());
    return request.referer + "|" + request.user + ":" + request.password;
}

TEST(JobRequest, TellsNobodyWhatIsForSomebodyElse) {
    const std::u16string page = u"http://site/page";
    const struct {
        std::u16string origin, user, password, referer, address;
        std::string told;
    } cases[] = {
        {u"http://h/a", u"", u"", page, u"http://h/b", "http://site/page|:"},
        {u"http://h/a", u"", u"", page, u"https://H:8443/b", "http://site/page|:"},
        {u"http://h/a", u"", u"", page, u"http://cdn/b", "|:"},
        {u"http://h/a", u"", u"", page, u"http://cdn.h/b", "|:"},
        {u"https://h/a", u"", u"", u"https://h/page", u"http://h/b", "|:"},
        // A user in the address and a password beside it belong together, whoever gave the half.
        {u"http://ann@h/a", u"ann", u"pw", u"", u"http://ann@h/a", "|ann:pw"},
        {u"http://ann@h/a", u"", u"pw", u"", u"http://ann@h/a", "|ann:pw"},
        {u"http://ann:x@h/a", u"ann", u"pw", u"", u"http://ann:x@h/a", "|ann:x"},
        {u"http://ann@h/a", u"bob", u"pw", u"", u"http://ann@h/a", "|ann:"},
        {u"http://ann@h/a", u"ann", u"pw", u"", u"http://ann@other/a", "|ann:"},
        {u"http://ann@h/a", u"ann", u"pw", u"", u"http://h/b", "|ann:pw"},
        {u"http://h/a", u"ann", u"pw", u"", u"http://other/a", "|:"},
    };
    for (const auto& one : cases) {
        HttpErrand plan;
        plan.origin = one.origin;
        plan.user = one.user;
        plan.password = one.password;
        plan.http.referer = one.referer;
        EXPECT_EQ(told(plan, one.address), one.told) << to_utf8(one.origin + u" " + one.address);
    }
}

using JobRequestTest = JobTest;

// Nobody has to resolve the names: a proxy is asked for them.
TEST_F(JobRequestTest, WritesInternationalNamesInAsciiEverywhere) {
    if (libraries.names.Names_ToAscii == nullptr) GTEST_SKIP() << "built without libidn2";
    ScriptedServer server([](Exchange& exchange) {
        if (exchange.request().target.find("moved") != std::string::npos) {
            exchange.answer(302, "Found", "", {{"Location", "http://\xC3\xBC.example/a/../caf\xE9.bin"}});
        } else {
            exchange.answer(200, "OK", "abc");
        }
    });
    const auto job = make_job(u"http://B\u00FCcher.example:81/./moved");
    const JobOutcome outcome = run(*job, through(ProxyPlan::http, server.port()));
    ASSERT_TRUE(outcome.result.ok()) << outcome.result.message() << log.all();
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 2U);
    EXPECT_EQ(requests[0].head.target, "http://xn--bcher-kva.example:81/moved");
    EXPECT_EQ(requests[0].head.field("Host"), "xn--bcher-kva.example:81");
    EXPECT_EQ(requests[1].head.target, "http://xn--tda.example/caf%E9.bin") << "the server's own bytes";
    EXPECT_EQ(requests[1].head.field("Host"), "xn--tda.example");
    EXPECT_TRUE(only({u"caf\u00e9.bin"}));
}

// Whatever becomes of its answer, a form is sent once.
TEST_F(JobRequestTest, SendsAFormOnceAndNoBlindSecondTime) {
    const std::string content = make_content(3, 100'000);
    const std::string body("a=1&b=\0\r\n", 9);
    const struct {
        const char* name;
        std::function<void(Exchange&)> answer;
        bool is_fetched;
        std::size_t requests = 1;
    } cases[] = {
        {"whole", [&](Exchange& e) { e.answer(200, "OK", content); }, true},
        {"cut",
         [&](Exchange& e) {
             e.send_head(200, "OK", {{"Content-Length", "100000"}});
             e.send("abc");
             e.close();
         },
         false},
        {"nothing", [](Exchange& e) { e.close(); }, false},
        {"busy", [](Exchange& e) { e.answer(503, "Later", ""); }, false},
        {"a part",
         [&](Exchange& e) {
             e.answer(206, "Part", "abc", {{"Content-Range", "bytes 0-2/100000"}});
         },
         false},
        {"elsewhere",
         [](Exchange& e) {
             e.answer(303, "See Other", "", {{"Location", "/there"}});
         },
         true, 2},
        {"to be sent elsewhere",
         [](Exchange& e) {
             e.answer(307, "Sent on", "", {{"Location", "/there"}});
         },
         false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::string received;
        ScriptedServer server([&](Exchange& exchange) {
            if (exchange.request().target == "/there") {
                exchange.answer(200, "OK", content);
            } else if (exchange.receive(body.size(), received)) {
                c.answer(exchange);
            }
        });
        const auto job = make_job(server.url16("/form"), 4);
        job->form = std::make_shared<const PostedForm>(PostedForm{"application/x-www-form-urlencoded", body});
        job->whole_file = 1;
        const JobOutcome outcome = run(*job);
        EXPECT_EQ(outcome.result.ok(), c.is_fetched) << outcome.result.message();
        if (c.is_fetched) {
            expect_file(outcome, content);
        } else {
            EXPECT_NE(outcome.result.message().find("The form was sent"), std::string::npos)
                << outcome.result.message();
        }
        clear_folder();
        const auto requests = server.requests();
        ASSERT_EQ(requests.size(), c.requests);
        EXPECT_EQ(requests[0].head.method, "POST");
        EXPECT_EQ(received, body);
        EXPECT_EQ(requests[0].head.field("Content-Type"), "application/x-www-form-urlencoded");
        EXPECT_EQ(requests.back().head.method, c.requests > 1 ? "GET" : "POST");
        EXPECT_FALSE(log.has("a=1"));
        log.clear();
    }
    const auto job = make_job(u"http://127.0.0.1:1/form");
    job->form = std::make_shared<const PostedForm>(PostedForm{"text/plain", body});
    job->retry_by_settings = 0;
    job->retries = 1;
    EXPECT_EQ(run(*job).result.message().find("The form was sent"), std::string::npos) << "nobody got it";
}

TEST_F(JobRequestTest, GoesNowhereWithoutTheProxyThatIsWanted) {
    ScriptedServer server([](Exchange& exchange) { exchange.answer(200, "OK", "abc"); });
    auto rules = std::make_shared<ProxyRules>();
    ProxyPlan broken;
    broken.kind = ProxyPlan::http_tunnel;
    broken.trouble = "ftp_proxy names no proxy.";
    rules->set("ftp", broken);
    RunOptions options;
    options.proxy_rules = rules;
    EXPECT_TRUE(run(*make_job(server.url16("/a")), options).result.ok()) << log.all();
    const auto job = make_job(u"ftp://127.0.0.1:" + to_utf16(std::to_string(server.port())) + u"/a");
    EXPECT_EQ(run(*job, options).result.message(), broken.trouble);
    EXPECT_EQ(server.request_count(), 1U);
    const JobOutcome misspelt = run(*make_job(u"http:/127.0.0.1/a"));
    EXPECT_EQ(misspelt.result.code, Code::unsupported);
    EXPECT_NE(misspelt.result.message().find("slash is missing"), std::string::npos);
}

}  // namespace
}  // namespace vantlow::test
