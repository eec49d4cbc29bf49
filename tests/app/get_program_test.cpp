// `vantlow get` as its user meets it: the words, what is printed, the exit status, what is left in the
// folder.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <chrono>
#include <ctime>
#include <string>
#include <vector>

#include "app/terminal/quantities.h"
#include "base/codes.h"
#include "base/text.h"
#include "get_fixture.h"
#include "platform/file.h"
#include "platform/socket.h"
#include "support/content.h"
#include "support/fake_ftp.h"
#include "support/file_server.h"

namespace vantlow::test {
namespace {

TEST_F(GetProgram, PrintsWhereTheFileIsAndLeavesNothingElse) {
    FileServer server(FileResource{.content = content});
    const RunResult result = get({server.url16()});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(lines_of(result.out), std::vector<std::string>{to_utf8(folder.path(u"file.bin"))});
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(folder.names(), std::vector<std::u16string>{u"file.bin"});
    EXPECT_TRUE(file_has(folder.path(u"file.bin"), content));
}

TEST_F(GetProgram, TellsProgramsWhatHappens) {
    FileServer server(FileResource{.content = content, .rate = 2'500'000});
    server.set("/none", FileResource{.status = 404, .reason = "Nowhere"});
    const RunResult result = get({u"--json", u"-n", u"1", server.url16(), server.url16("/none")});
    EXPECT_EQ(result.status, 4) << result.err;
    int ends = 0;
    int progress = 0;
    int connected = 0;
    for (const std::string& line : lines_of(result.out)) {
        const auto event = nlohmann::json::parse(line, nullptr, false);
        ASSERT_TRUE(event.is_object()) << line;
        if (event["event"] == "progress") {
            ++progress;
            const auto received = event["done"].get<std::size_t>();
            const bool runs =
                received > 0 && received < content.size();  // else there may be none yet, or any more
            EXPECT_TRUE(event["connections"] == 1 || (event["connections"] == 0 && !runs)) << line;
            connected += event["connections"].get<int>();
        }
        if (event["event"] != "end") continue;
        ++ends;
        const bool good = event["address"] == server.url();
        EXPECT_EQ(event["error"].is_null(), good) << line;
        EXPECT_EQ(event["result"] == 0, good) << line;
        if (good) {
            EXPECT_EQ(event["size"], content.size());
            EXPECT_EQ(event["received"], content.size());
            EXPECT_EQ(event["path"], to_utf8(folder.path(u"file.bin")));
            EXPECT_GT(event["seconds"].get<double>(), 0.3);
        } else {
            EXPECT_NE(event["error"].get<std::string>().find("Nowhere"), std::string::npos) << line;
        }
    }
    EXPECT_EQ(ends, 2);
    EXPECT_GT(connected, 0);
    EXPECT_GE(progress, 1);
    EXPECT_LE(progress, 4) << "at most twice a second";
}

TEST_F(GetProgram, EndsWithTheStatusOfWhatWentWrong) {
    FileServer server(FileResource{.content = content});
    server.set("/401", FileResource{.status = 401, .reason = "Unauthorized"});
    server.set("/404", FileResource{.status = 404, .reason = "Not Found"});
    folder.write(u"a-file", "x");
    const std::u16string url = server.url16();
    const struct {
        Words words;
        int status;
        const char* says;
    } cases[] = {
        {{}, 2, "no link"},
        {{u"--nonsense", url}, 2, "--nonsense"},
        {{u"-n", u"65", url}, 2, "64"},
        {{u"-o", u"one", url, url}, 2, "--output"},
        {{u"--limit", u"fast", url}, 2, "--limit"},
        {{u"--hash", u"sha256:12", url}, 2, "--hash"},
        {{u"--set", u"nonsense", url}, 2, "--set"},
        {{u"-i", folder.path(u"missing"), u"-q"}, 2, "missing"},
        {{u"--overwrite", u"cancel", u"-o", u"a-file", url}, 1, "a-file"},
        {{u"-d", folder.path(u"a-file"), url}, 3, "a-file"},
        {{server.url16("/404")}, 4, "Not Found"},
        {{server.url16("/401")}, 5, "Unauthorized"},
        {{u"--hash", u"md5:00000000000000000000000000000000", url}, 7, "hash"},
        {{server.url16("/404"), server.url16("/401")}, 1, "Unauthorized"},
        {{u"gopher://127.0.0.1/x"}, 1, "gopher"},
    };
    for (const auto& c : cases) {
        std::string said;
        for (const auto& word : c.words) said += to_utf8(word) + " ";
        SCOPED_TRACE(said);
        const RunResult result = get(c.words);
        EXPECT_EQ(result.status, c.status) << result.err;
        EXPECT_NE(result.err.find(c.says), std::string::npos) << result.err;
    }
    EXPECT_EQ(folder.read(u"a-file"), "x");
    EXPECT_EQ(get({u"-o", folder.path(u"whole path"), url}).status, 0);
    EXPECT_TRUE(file_has(folder.path(u"whole path"), content));
}

TEST_F(GetProgram, ReadsAListOfLinks) {
    FileServer server;
    std::string list = "# three of them\r\n\r\n";
    for (const char* name : {"/a", "/b", "/c"}) {
        server.set(name, FileResource{.content = std::string(name) + content});
        list += "  " + server.url(name) + "\r\n";
    }
    const RunResult result = get({u"-q", u"-i", u"-"}, {.input = list});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(folder.names(), (std::vector<std::u16string>{u"a", u"b", u"c"}));
    EXPECT_TRUE(file_has(folder.path(u"c"), "/c" + content));
    // As Windows' shells write it.
    std::string wide = "\xFF\xFE";
    for (const char c : list) (wide += c) += '\0';
    EXPECT_EQ(get({u"-q", u"--overwrite", u"overwrite", u"-i", u"-"}, {.input = wide}).status, 0);
    EXPECT_EQ(folder.names().size(), 3U);
}

TEST_F(GetProgram, ContinuesAfterBeingKilledAgainAndAgain) {
    FileServer server(FileResource{.content = content, .rate = 200'000});
    const Words words = {u"--json", u"-n", u"2", server.url16()};
    for (const std::int64_t bytes : {300'000, 900'000}) {
        const auto program = begin(words);
        ASSERT_TRUE(reached(*program, bytes)) << program->err();
        ASSERT_TRUE(state_was_saved());  // a busy disk may keep a save waiting
        program->kill();
        (void)program->wait();
        EXPECT_FALSE(folder.has(u"file.bin"));
    }
    server.change("/file.bin", [](FileResource& resource) { resource.rate = 0; });
    const RunResult result = get(words);
    EXPECT_EQ(result.status, 0) << result.err;
    const std::vector<std::string> lines = lines_of(result.out);
    const auto end = nlohmann::json::parse(lines.back(), nullptr, false);
    ASSERT_TRUE(end.is_object()) << result.out;
    EXPECT_LT(end.value("received", 0LL), 1'200'000) << result.out;
    EXPECT_TRUE(file_has(folder.path(u"file.bin"), content));
    EXPECT_EQ(folder.names(), std::vector<std::u16string>{u"file.bin"});
}

TEST_F(GetProgram, StopsAtCtrlCAndContinues) {
    FileServer server(FileResource{.content = content, .rate = 500'000});
    const auto program = begin({u"--json", u"-n", u"2", server.url16()});
    ASSERT_TRUE(reached(*program, 300'000)) << program->err();
    if (!program->interrupt()) GTEST_SKIP() << "Ctrl-C cannot be sent here";
    const RunResult stopped = program->wait();
    EXPECT_EQ(stopped.status, 130) << stopped.err;
    EXPECT_NE(stopped.out.find("\"event\":\"end\""), std::string::npos) << stopped.out;
    EXPECT_TRUE(folder.has(u"file.bin.vantlow"));
    server.change("/file.bin", [](FileResource& resource) { resource.rate = 0; });
    EXPECT_EQ(get({server.url16()}).status, 0);
    EXPECT_TRUE(file_has(folder.path(u"file.bin"), content));
}

TEST_F(GetProgram, BeginsAndStopsByTheClock) {
    FileServer server(FileResource{.content = content, .rate = 100'000});
    const auto in = [](std::int64_t seconds) { return to_utf16(iso_time(std::time(nullptr) + seconds)); };
    const auto began = Clock::now();
    const RunResult stopped = get({u"-n", u"1", u"--at", in(3), u"--until", in(6), server.url16()});
    EXPECT_EQ(stopped.status, 1) << stopped.err;
    EXPECT_GE(Clock::now() - began, std::chrono::seconds(4));
    EXPECT_NE(stopped.err.find("The time is over."), std::string::npos) << stopped.err;
    EXPECT_TRUE(folder.has(u"file.bin.vantlow"));
    EXPECT_EQ(get({u"--at", in(-60), server.url16()}).status, 2) << "a moment that has passed";
}

TEST_F(GetProgram, TwoAtOnceOfTheSameAddressMakeTwoFiles) {
    FileServer server(FileResource{.content = content, .rate = 1'000'000});
    const auto first = begin({u"--json", server.url16()});
    ASSERT_TRUE(first->wait_for_output("\"start\"")) << first->err();
    const RunResult second = get({server.url16()});
    EXPECT_EQ(second.status, 0) << second.err;
    EXPECT_EQ(first->wait().status, 0);
    ASSERT_EQ(folder.names().size(), 2U);
    for (const auto& name : folder.names()) EXPECT_TRUE(file_has(folder.path(name), content));
}

TEST_F(GetProgram, ShowsNoSecret) {
    FileServer server(FileResource{.content = content});
    std::u16string url = server.url16();
    url.insert(url.find(u"//") + 2, u"jo:pass-in-address@");
    for (const Words& more :
         {Words{url}, Words{u"--user", u"jo", u"--password", u"pass-in-option", server.url16()}}) {
        for (const char16_t* how : {u"-v", u"--json"}) {
            Words all = more;
            all.insert(all.end(), {how, u"--cookie", u"id=pass-in-cookie", u"--overwrite", u"overwrite"});
            const RunResult result = get(all);
            EXPECT_EQ(result.status, 0) << result.err;
            EXPECT_EQ((result.out + result.err).find("pass-in"), std::string::npos)
                << result.out << result.err;
        }
    }
    bool asked_with = false;
    for (const auto& request : server.server().requests()) {
        asked_with = asked_with || request.head.raw.find("pass-in-cookie") != std::string::npos;
    }
    EXPECT_TRUE(asked_with) << "the cookie is the server's to see";
}

// The metafile's own name, what the server says of it, or the address's scheme tells.
TEST_F(GetProgram, FollowsMetafilesThatItFetches) {
    FileServer server(FileResource{.content = content});
    const std::string link =
        "<?xml version=\"1.0\"?><metalink xmlns=\"urn:ietf:params:xml:ns:metalink\"><file "
        "name=\"film.bin\"><url>" +
        server.url() + "</url></file></metalink>";
    server.set("/by-name.meta4", FileResource{.content = link});
    server.set("/by-type",
               FileResource{.content = link, .more = {{"Content-Type", "application/metalink4+xml"}}});
    server.set("/by-scheme", FileResource{.content = link});
    server.set("/self.asx", FileResource{.content = "<asx><entry><ref href=\"" + server.url("/self.asx") +
                                                    "\"/></entry></asx>"});
    server.set("/film.asf", FileResource{.content = std::string("0&\0\0http://x/", 12),
                                         .more = {{"Content-Type", "video/x-ms-asf"}}});
    std::u16string by_scheme = server.url16("/by-scheme");
    by_scheme.replace(0, 7, u"metalink://");
    for (const std::u16string& address :
         {server.url16("/by-name.meta4"), server.url16("/by-type"), by_scheme}) {
        const RunResult result = get({u"--user", u"jo", u"--password", u"secret", address});
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(folder.names(), std::vector<std::u16string>{u"film.bin"}) << to_utf8(address);
        EXPECT_TRUE(file_has(folder.path(u"film.bin"), content));
        ASSERT_TRUE(remove_file(folder.path(u"film.bin")).ok());
    }
    EXPECT_EQ(get({server.url16("/self.asx")}).status, 0);
    EXPECT_EQ(get({server.url16("/film.asf")}).status, 0);
    EXPECT_EQ(folder.names(), (std::vector<std::u16string>{u"film.asf", u"self.asx"}));
}

// A document that leads nowhere is the file that was asked for; one that leads half the way is kept for the
// rest.
TEST_F(GetProgram, KeepsDocumentsThatItCannotFollow) {
    FileServer server(FileResource{.content = content});
    const std::string nowhere = "<asx><entry><ref href=\"mms://127.0.0.1/x\"/></entry></asx>";
    const std::string halfway = "<asx><entry><ref href=\"" + server.url() +
                                "\"/></entry><entry><ref href=\"mms://127.0.0.1/x\"/></entry></asx>";
    server.set("/x.torrent", FileResource{.content = "no torrent"});
    server.set("/nowhere.asx", FileResource{.content = nowhere});
    server.set("/halfway.asx", FileResource{.content = halfway});
    EXPECT_EQ(get({server.url16("/x.torrent"), server.url16("/nowhere.asx")}).status, 0);
    EXPECT_EQ(folder.names(), (std::vector<std::u16string>{u"nowhere.asx", u"x.torrent"}));
    EXPECT_NE(get({server.url16("/halfway.asx")}).status, 0) << "it names what cannot be fetched";
    EXPECT_TRUE(file_has(folder.path(u"file.bin"), content));
    EXPECT_TRUE(file_has(folder.path(u"halfway.asx"), halfway));
}

// Credentials for the server of a metafile are not for those that it names.
TEST_F(GetProgram, KeepsCredentialsFromTheServersThatAMetafileNames) {
    FileServer other(FileResource{.content = content});
    FileServer server;
    server.set("/list.asx",
               FileResource{.content = "<asx><entry><ref href=\"" + other.url() + "\"/></entry></asx>"});
    const RunResult result =
        get({u"--user", u"jo", u"--password", u"secret", u"--cookie", u"a=b", server.url16("/list.asx")});
    EXPECT_EQ(result.status, 0) << result.err;
    ASSERT_GE(other.server().request_count(), 1U);
    for (const auto& request : other.server().requests()) {
        EXPECT_EQ(request.head.field("Authorization"), std::nullopt);
        EXPECT_EQ(request.head.field("Cookie"), std::nullopt);
    }
    // What the user's own file says of that server is.
    own.write(path_separator() == u'\\' ? u"_netrc" : u".netrc", "machine 127.0.0.1 login ann password pw\n");
    const RunOptions at_home{.environment = {{"HOME", own.path()}, {"USERPROFILE", own.path()}}};
    EXPECT_EQ(get({u"--user", u"jo", u"--password", u"secret", server.url16("/list.asx")}, at_home).status,
              0);
    EXPECT_EQ(other.server().requests().back().head.field("Authorization"), "Basic " + to_base64("ann:pw"));
}

TEST_F(GetProgram, AProxyVariableThatCannotBeUsedStopsOnlyWhatGoesThroughIt) {
    FileServer server(FileResource{.content = "abc"});
    const RunOptions broken{.environment = {{"ftp_proxy", u"gopher://proxy:70"}}};
    const RunResult web = get({server.url16()}, broken);
    EXPECT_EQ(web.status, 0) << web.err;
    const RunResult ftp =
        get({u"ftp://127.0.0.1:" + to_utf16(std::to_string(server.server().port())) + u"/a"}, broken);
    EXPECT_EQ(ftp.status, 4) << ftp.err;
    EXPECT_NE(ftp.err.find("ftp_proxy in the environment"), std::string::npos) << ftp.err;
    EXPECT_EQ(server.server().request_count(), 1U);
}

TEST_F(GetProgram, AProxyVariableOfSocksIsVersion5) {
    ScriptedServer proxy(
        [](Exchange& exchange) {
            std::string greeting;
            std::string request;
            std::string http;
            // Version, count of methods, methods; then version, command, zero, kind of address (RFC 1928).
            if (!exchange.receive(2, greeting) || greeting[0] != 5) return exchange.close();
            if (!exchange.receive(static_cast<std::size_t>(greeting[1]), greeting)) return;
            exchange.send_raw(std::string("\5\0", 2));
            const std::string name = "somewhere.example";
            if (!exchange.receive(4 + 1 + name.size() + 2, request) || request.substr(5, name.size()) != name)
                return exchange.close();
            exchange.send_raw(std::string("\5\0\0\1\0\0\0\0\0\0", 10));
            if (exchange.receive(16, http)) exchange.answer(200, "OK", "through it");
            exchange.close();
        },
        {.raw = true});
    RunOptions options;
    options.environment = {{"all_proxy", u"socks://127.0.0.1:" + to_utf16(std::to_string(proxy.port()))}};
    const RunResult result = get({u"--retries", u"0", u"http://somewhere.example/file.bin"}, options);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(file_has(folder.path(u"file.bin"), "through it"));
}

TEST_F(GetProgram, AFolderOfAnFtpServerHasOneStatusWithAndWithoutItsSlash) {
    FakeFtp server({.content = "abc", .answers = {{"RETR", "550 Not a plain file"}, {"SIZE", "550 No"}}});
    for (const char* path : {"/folder", "/folder/"}) {
        const RunResult result = get({server.url16(path)});
        EXPECT_EQ(result.status, 1) << path << result.err;
        EXPECT_NE(result.err.find("names a folder"), std::string::npos) << result.err;
    }
    EXPECT_EQ(folder.names().size(), 0U);
}

TEST_F(GetProgram, ExplainsItself) {
    const RunResult version = run_vantlow({u"--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_TRUE(version.out.starts_with("Vantlow 2.95\n")) << version.out;
    EXPECT_NE(version.out.find("libssh"), std::string::npos);
    const RunResult help = run_vantlow({u"get", u"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("--connections"), std::string::npos);
    const RunResult nothing = run_vantlow({u"frobnicate"});
    EXPECT_EQ(nothing.status, 2);
    EXPECT_NE(nothing.err, "");
}

// The limit holds for all connections together, and may change while they run.
class TimedGetProgram : public GetProgram {};

TEST_F(TimedGetProgram, KeepsTheSpeedLimitAndFollowsTheSettings) {
    FileServer server(FileResource{.content = make_content(4, 9'000'000)});
    own.write(u"settings.ini", "[Connection]\nLimit=1\nSpeed Limit=1000000\n");
    const auto program = begin({u"--json", u"-n", u"4", server.url16()});
    ASSERT_TRUE(program->wait_for_output("\"start\"")) << program->err();
    const auto begun = Clock::now();
    const auto done = [&] {
        std::int64_t last = 0;
        const std::string told = program->out();
        for (const std::string_view line : split(told, '\n')) {
            const auto event = nlohmann::json::parse(line, nullptr, false);
            if (event.is_object() && event.contains("done")) last = event["done"];
        }
        return last;
    };
    std::this_thread::sleep_until(begun + milliseconds(5000));
    const std::int64_t after = done();
    EXPECT_GT(after, 4'000'000);
    EXPECT_LT(after, 5'300'000);
    own.write(u"settings.ini", "[Connection]\nLimit=0\n");
    EXPECT_EQ(program->wait(std::chrono::seconds(4)).status, 0) << "the limit was to be lifted";
}

}  // namespace
}  // namespace vantlow::test
