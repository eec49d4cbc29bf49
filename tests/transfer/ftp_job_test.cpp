// FTP jobs against a server that does what no real one does.
#include "job_fixture.h"
#include "support/fake_ftp.h"

namespace vantlow::test {
namespace {

const std::string content = make_content(21, 300'000);

class FtpJobTest : public JobTest {
  protected:
    JobOutcome fetch(const FakeFtp& server, int connections = 1, std::string_view path = "/dir/file.bin",
                     std::string_view login = {}) {
        auto job = make_job(server.url16(path, login), connections);
        job->silence_limit = 2;
        job->retry_by_settings = 0;
        job->retries = 20;
        return run(*job);
    }
    void expect_content(const JobOutcome& outcome) { expect_file(outcome, content); }
};

TEST_F(FtpJobTest, SpeaksInThisOrder) {
    FakeFtp server({.content = content,
                    .answers = {{"FEAT", "211-Features:\n UTF8\n SIZE\n211 End"}, {"CLNT", "200 Hello"}},
                    .bytes_at_once = 3});
    expect_content(fetch(server, 1, "/a%20dir/file.bin", "joe:s%20crt@"));
    auto commands = server.commands();
    const auto pasv = std::find(commands.begin(), commands.end(), "PASV");
    EXPECT_NE(pasv, commands.end());
    EXPECT_EQ(commands,
              (std::vector<std::string>{"USER joe", "PASS s crt", "FEAT", commands[3], "OPTS UTF8 ON",
                                        "CWD a dir", "MDTM file.bin", "TYPE I", "SIZE file.bin", "PASV",
                                        "REST 0", "RETR file.bin", "MDTM file.bin", "SIZE file.bin"}));
    EXPECT_TRUE(commands[3].starts_with("CLNT Vantlow "));
    EXPECT_TRUE(log.has("Socket connected, waiting for welcome message."));
    EXPECT_TRUE(log.has("PASS ********"));
    EXPECT_TRUE(log.has("Login successfully."));
    EXPECT_FALSE(log.has("s crt"));
}

TEST_F(FtpJobTest, AnonymousLoginAndOneTimePasswords) {
    FakeFtp anonymous({.content = content});
    set(setting::enable_feat, 0);
    expect_content(fetch(anonymous));
    EXPECT_EQ(anonymous.count("USER anonymous"), 1U);
    EXPECT_EQ(anonymous.count("PASS IEUser@"), 1U);
    EXPECT_EQ(anonymous.count("FEAT"), 0U);
    EXPECT_EQ(anonymous.count("OPTS"), 0U);
    FakeFtp beside({.content = content});
    auto job = make_job(beside.url16("/file.bin", "joe@"));
    job->password = u"beside it";
    expect_content(run(*job));
    EXPECT_EQ(beside.count("USER joe") + beside.count("PASS beside it"), 2U);
    FakeFtp otp({.content = content, .answers = {{"USER", "331 Response to otp-md5 99 TeSt required"}}});
    expect_content(fetch(otp, 1, "/file.bin", "joe:This%20is%20a%20test.@"));
    EXPECT_EQ(otp.count("PASS 50FE1962C4965880"), 1U);
}

TEST_F(FtpJobTest, RefusalsEndOrRepeatTheJob) {
    const struct {
        const char* command;
        const char* reply;
        Code code;
        bool again;  // the job goes on, asking again
    } cases[] = {{"PASS", "530 Login incorrect", Code::credentials_refused, false},
                 {"PASS", "530 Too many users", Code::busy, true},
                 {"USER", "530 No", Code::credentials_refused, false},
                 {"CWD", "550 None such", Code::server_error, false},
                 {"RETR", "550 None such", Code::server_error, false},
                 {"RETR", "450 In use", Code::busy, true},
                 {"RETR", "500 What?", Code::transient, true},
                 {"TYPE", "500 What?", Code::transient, true},
                 {"SIZE", "421 Good night", Code::busy, true},
                 {"MDTM", "!", Code::transient, true}};
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.command) + " " + c.reply);
        FakeFtp::Rules rules{.content = content};
        rules.answers[c.command] = c.reply;
        if (std::string(c.reply).starts_with("550") && rules.answers.count("CWD") == 0)
            rules.answers["CWD file.bin"] = "550 Not a folder";
        FakeFtp server(rules);
        auto job = make_job(server.url16("/dir/file.bin"));
        job->retry_by_settings = 0;
        job->retries = 1;
        const JobOutcome outcome = run(*job);
        EXPECT_EQ(outcome.result.code, c.code) << outcome.result.message();
        EXPECT_EQ(server.count("USER"), c.again ? 2U : 1U);
    }
    EXPECT_TRUE(log.has("Login unsuccessfully."));
    EXPECT_TRUE(log.has("FTP command error."));
    EXPECT_TRUE(only({}));
}

TEST_F(FtpJobTest, DataConnectionsInEveryWay) {
    const struct {
        const char* name;
        int passive;
        const char* command;
        std::map<std::string, std::string> answers{};
        bool ipv6 = false;
        const char* host = "";
    } cases[] = {
        {"passive", 1, "PASV"},
        {"a private address announced", 1, "PASV", {}, false, "10,1,2,3"},
        {"EPSV where PASV is refused", 1, "EPSV", {{"PASV", "502 No"}}},
        {"PORT where both are", 1, "PORT 127,0,0,1,", {{"PASV", "502 No"}, {"EPSV", "502 No"}}},
        {"PORT where nobody listens", 1, "PORT", {{"PASV", "227 (127,0,0,1,0,1)"}}},
        {"active", 0, "PORT"},
        {"passive where PORT is refused", 0, "PASV", {{"PORT", "500 No"}}},
        {"IPv6", 1, "EPSV", {}, true},
        {"active on IPv6", 0, "EPRT |2|::1|", {}, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        set(setting::ftp_passive, c.passive);
        FakeFtp server({.content = content, .answers = c.answers, .passive_host = c.host}, c.ipv6);
        expect_content(fetch(server, 2));
        EXPECT_GT(server.count(c.command), 0U);
    }
    settings.override_value(u"Transfer", u"NATAddress", u"203.0.113.7");
    set(setting::ftp_passive, 0);
    FakeFtp mapped({.content = content});
    expect_content(fetch(mapped));
    EXPECT_EQ(mapped.count("PORT 203,0,113,7,"), 1U);
    set(setting::nat_in_port, 0);
    FakeFtp local({.content = content});
    expect_content(fetch(local));
    EXPECT_EQ(local.count("PORT 127,0,0,1,"), 1U);
}

TEST_F(FtpJobTest, BrokenTransfersGoOn) {
    const FakeFtp::Rules cases[] = {{.content = content, .cut_after = 70'000},
                                    {.content = content, .cut_after = 70'000, .silent_cut = true}};
    for (const auto& rules : cases) {
        FakeFtp server(rules);
        expect_content(fetch(server, 2));
        EXPECT_GE(server.count("REST 53616"), 1U) << "16 KiB in front of the joint are compared";
    }
}

// No answer of FTP says where it begins.
TEST_F(FtpJobTest, AServerThatBeginsElsewhereIsFoundOut) {
    const struct {
        const char* name;
        FakeFtp::Rules rules;
        int connections;
    } cases[] = {
        {"several connections", {.content = content, .rate = 300'000, .shift = true}, 4},
        {"after a cut", {.content = content, .cut_after = 250'000, .shift = true}, 1},
        {"no time", {.content = content, .answers = {{"MDTM", "502 No"}}, .rate = 300'000, .shift = true}, 4},
        {"no time, cut",
         {.content = content, .answers = {{"MDTM", "502 No"}}, .cut_after = 250'000, .shift = true},
         1},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.name);
        log.clear();
        FakeFtp server(one.rules);
        const JobOutcome outcome = fetch(server, one.connections);
        // What is cut each time never comes whole, and no other file does.
        if (one.rules.cut_after < 0) {
            expect_content(outcome);
        } else {
            EXPECT_EQ(outcome.result.code, Code::server_error) << outcome.result.message();
        }
        EXPECT_TRUE(log.has("the server does not begin where it is asked to"));
    }
}

TEST_F(FtpJobTest, ServersWithoutRestSizeOrTime) {
    FakeFtp no_rest({.content = content, .answers = {{"REST", "502 No"}}, .rate = 1'000'000});
    expect_content(fetch(no_rest, 4));
    EXPECT_EQ(no_rest.count("RETR"), 1U);
    FakeFtp no_size({.content = content, .answers = {{"SIZE", "502 No"}, {"MDTM", "502 No"}}});
    expect_content(fetch(no_size, 4));
    EXPECT_TRUE(log.has("File size unknown, can't start other parts."));
    FakeFtp listed(
        {.content = content,
         .answers = {{"SIZE", "550 No"},
                     {"MDTM", "502 No"},
                     {"STAT", "213-Status\n-rw-r--r-- 1 u g 300000 Jan 1 10:00 file.bin\n213 End"}},
         .rate = 300'000});
    expect_content(fetch(listed, 3));
    EXPECT_GE(listed.count("RETR"), 3U) << "the size in the listing was not used";
}

// What is made while it is read tells no size, or zero.
TEST_F(FtpJobTest, ASizeOfZeroIsFoundOut) {
    FakeFtp made({.content = content, .answers = {{"SIZE", "213 0"}}});
    expect_content(fetch(made, 4));
    FakeFtp empty({.answers = {{"SIZE", "213 0"}}});
    const JobOutcome nothing = fetch(empty, 4);
    EXPECT_EQ(nothing.result.code, Code::finished_empty) << log.all();
    EXPECT_TRUE(file_has(nothing.path, ""));
}

TEST_F(FtpJobTest, AFileThatNeverRestsIsTakenAsASingleConnectionBringsIt) {
    for (const int connections : {1, 4}) {
        SCOPED_TRACE(connections);
        FakeFtp server({.content = content, .restless = true});
        expect_content(fetch(server, connections));
        EXPECT_LT(server.count("RETR"), 40U);
    }
}

TEST_F(FtpJobTest, AControlConnectionServesSeveralSegmentsAndFiles) {
    FakeFtp server({.content = content});
    expect_content(fetch(server));
    expect_content(fetch(server));
    EXPECT_EQ(server.count("USER"), 1U) << log.all();
    // A server that does not take ABOR gets a new login.
    FakeFtp strict({.content = make_content(21, 4'000'000), .answers = {{"ABOR", "!"}}, .rate = 4'000'000});
    auto job = make_job(strict.url16(), 3);
    expect_file(run(*job), make_content(21, 4'000'000));
}

TEST_F(FtpJobTest, FoldersAndTextFiles) {
    FakeFtp server({.content = "one\r\ntwo\r\n\rthree\r"});
    const JobOutcome folder_outcome = fetch(server, 1, "/dir/");
    EXPECT_EQ(folder_outcome.result.code, Code::unsupported);
    EXPECT_NE(folder_outcome.result.message().find("names a folder"), std::string::npos);
    FakeFtp refusing({.content = content, .answers = {{"RETR", "550 Not a plain file"}}});
    const JobOutcome without_slash = fetch(refusing, 1, "/dir");
    EXPECT_EQ(without_slash.result.code, Code::unsupported) << "the same, however it is written";
    EXPECT_NE(without_slash.result.message().find("names a folder"), std::string::npos);

    const JobOutcome text = fetch(server, 2, "/notes.txt;type=a");
    EXPECT_EQ(text.result.code, Code::ok) << log.all();
    EXPECT_EQ(server.count("TYPE A"), 1U);
    const bool windows = path_separator() == u'\\';
    EXPECT_TRUE(
        file_has(folder.path(u"notes.txt"), windows ? "one\r\ntwo\r\n\rthree\r" : "one\ntwo\n\rthree\r"));
    EXPECT_EQ(fetch(server, 1, "/a.zip;type=a").result.code, Code::ok);
    EXPECT_EQ(server.count("TYPE A"), 1U) << "an archive was transferred as text";
}

TEST_F(FtpJobTest, AChangedFileIsFetchedAnew) {
    auto rules = FakeFtp::Rules{.content = content, .rate = 300'000};
    FakeFtp old_server(rules);
    auto job = make_job(old_server.url16());
    {
        Run running(*this, *job, {});
        ASSERT_TRUE(running.wait_for_done(60'000));
        running.thread().stop();
    }
    const std::uint16_t port = old_server.server().port();
    old_server.server().stop();
    // The same address with another time, and bytes that differ from the first on.
    const std::string other = make_content(22, content.size());
    rules.content = other;
    rules.answers["MDTM"] = "213 20250101000000";
    rules.rate = 0;
    FakeFtp new_server(rules, false, port);
    auto earlier = earlier_job(new_server.url16());
    ASSERT_NE(earlier, nullptr);
    expect_file(run(*earlier), other);
}

TEST_F(FtpJobTest, RedirectsFromHttpLeadHere) {
    FakeFtp server({.content = content});
    ScriptedServer http([&](Exchange& exchange) {
        exchange.answer(302, "Found", "", {{"Location", server.url("/dir/file.bin")}});
    });
    auto job = make_job(http.url16("/go"), 3);
    job->user = u"joe";
    job->password = u"not for others";
    expect_content(run(*job));
    EXPECT_EQ(server.count("USER joe"), 0U) << "credentials went to another server";
    // Through a proxy that takes requests it is the proxy that speaks FTP.
    ScriptedServer proxy([&](Exchange& exchange) {
        EXPECT_TRUE(exchange.request().target.starts_with("ftp://joe:pw@127.0.0.1:"));
        exchange.answer(200, "OK", content);
    });
    auto by_proxy = make_job(server.url16("/file.bin", "joe:pw@"));
    expect_content(run(*by_proxy, through(ProxyPlan::http, proxy.port())));
}

TEST_F(FtpJobTest, StopsAtOnceWhereverItWaits) {
    for (const char* command : {"USER", "PASV", "RETR", "FEAT"}) {
        SCOPED_TRACE(command);
        FakeFtp::Rules rules{.content = content};
        rules.answers[command] = "";
        FakeFtp server(rules);
        auto job = make_job(server.url16());
        Run running(*this, *job, {});
        ASSERT_TRUE(server.server().wait_for_connections(1));
        while (server.count(command) == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        const auto asked = Clock::now();
        running.thread().stop();
        EXPECT_EQ(running.end().result.code, Code::stopped);
        EXPECT_LT(Clock::now() - asked, std::chrono::milliseconds(500));
    }
}

}  // namespace
}  // namespace vantlow::test
