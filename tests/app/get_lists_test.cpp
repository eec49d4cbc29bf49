// What `vantlow get` remembers and skips, what it says while nothing comes, and the standard output as the
// place of the file.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <chrono>
#include <string>
#include <vector>

#include "app/cli/get/get_run.h"
#include "app/cli/get/list_memory.h"
#include "slow_list.h"
#include "support/file_server.h"

namespace vantlow::test {
namespace {

using nlohmann::json;
using std::chrono::hours;
using std::chrono::seconds;

class GetLists : public GetProgram {
  protected:
    // The events of one kind among the lines of --json.
    static std::vector<json> events(const std::string& out, const std::string& kind) {
        std::vector<json> found;
        for (const std::string& line : lines_of(out)) {
            json event = json::parse(line, nullptr, false);
            if (event.is_object() && event.value("event", "") == kind) found.push_back(std::move(event));
        }
        return found;
    }
    static bool contains(const std::string& text, const std::string& part) {
        return text.find(part) != std::string::npos;
    }
};

TEST_F(GetLists, TheSameListAgainSkipsWhatIsFinishedUntilAllIs) {
    FileServer server;
    for (const char* name : {"/a", "/b", "/c"}) server.set(name, FileResource{.content = name + content});
    server.set("/c", FileResource{.status = 404, .reason = "Not yet"});
    own.write(u"list", server.url("/a") + "\n" + server.url("/b") + "\n" + server.url("/c") + "\n");
    const Words words = {u"-i", own.path(u"list")};
    EXPECT_EQ(get(words).status, 4);
    EXPECT_EQ(folder.names().size(), 3U) << "a, b and what is remembered";

    ASSERT_TRUE(remove_file(folder.path(u"b")).ok());
    const auto asked = server.server().request_count();
    const RunResult again = get({u"-i", own.path(u"list"), u"--json"});
    EXPECT_EQ(again.status, 4);
    for (std::size_t i = asked; i < server.server().requests().size(); ++i)
        EXPECT_NE(server.server().requests()[i].head.target, "/a") << "it is there";
    EXPECT_TRUE(folder.has(u"b")) << "it was not there any more";
    int skipped = 0;
    for (const json& end : events(again.out, "end")) {
        const bool is_a = end["address"] == server.url("/a");
        EXPECT_EQ(end.value("skipped", false), is_a) << end;
        if (!is_a) continue;
        ++skipped;
        EXPECT_EQ(end["result"], 0);
        EXPECT_EQ(end["received"], 0);
        EXPECT_EQ(end["path"], to_utf8(folder.path(u"a")));
    }
    EXPECT_EQ(skipped, 1);

    // A list that grows is the same list; through at last, nothing is left of it but its files.
    server.set("/c", FileResource{.content = "/c" + content});
    server.set("/d", FileResource{.content = "/d" + content});
    own.write(u"list", own.read(u"list") + server.url("/d") + "\n");
    const RunResult last = get(words);
    EXPECT_EQ(last.status, 0) << last.err;
    EXPECT_EQ(lines_of(last.out).size(), 4U) << last.out;
    EXPECT_TRUE(contains(last.err, "not fetched again")) << last.err;
    EXPECT_EQ(folder.names(), (std::vector<std::u16string>{u"a", u"b", u"c", u"d"}));
    EXPECT_EQ(get(words).status, 0);
    EXPECT_TRUE(folder.has(u"a(1)")) << "what was finished is fetched anew";
}

TEST_F(GetLists, WhatIsLeftOfAListWithoutTheLinksThatFailedIsTheSameList) {
    FileServer server;
    for (const char* name : {"/a", "/b", "/c"}) server.set(name, FileResource{.content = name + content});
    server.set("/c", FileResource{.status = 404, .reason = "Not there"});
    RunOptions options;
    options.input = server.url("/a") + "\n" + server.url("/b") + "\n" + server.url("/c") + "\n";
    EXPECT_EQ(get({u"-i", u"-"}, options).status, 4);
    options.input = server.url("/b") + "\n" + server.url("/a") + "\n";
    const RunResult again = get({u"-i", u"-"}, options);
    EXPECT_EQ(again.status, 0) << again.err;
    EXPECT_FALSE(folder.has(u"a(1)") || folder.has(u"b(1)")) << again.err;
    EXPECT_EQ(get({server.url16("/a"), server.url16("/d")}).status, 4);
    EXPECT_TRUE(folder.has(u"a(1)")) << "another list";
}

TEST_F(GetLists, AListThatWasKilledGoesOn) {
    FileServer server;
    server.set("/a", FileResource{.content = content});
    server.set("/b", FileResource{.content = content, .hold_after = 1000});
    const Words words = {u"-j", u"1", server.url16("/a"), server.url16("/b")};
    const auto program = begin(words);
    ASSERT_TRUE(program->wait_for_output(to_utf8(folder.path(u"a")))) << program->err();
    program->kill();
    (void)program->wait();
    server.set("/b", FileResource{.content = content});
    const RunResult result = get(words);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(folder.names(), (std::vector<std::u16string>{u"a", u"b"}));
}

TEST_F(GetLists, AKillWhileFilesGetTheirNamesFetchesNoneOfThemAgain) {
    std::uint64_t last = 0;
    const auto job_of = [&last](const char16_t* address) {
        CJobNode job;
        job.identity = Guid::from_numbers(7, ++last);
        job.address = address;
        return job;
    };
    const CJobNode a = job_of(u"http://h/a");
    const CJobNode b = job_of(u"http://h/b");
    const CJobNode c = job_of(u"http://h/c");
    {
        ListMemory memory(folder.path(), {"list", {}});
        memory.naming({a.identity, folder.path(u"a"), 4, a.address});
        memory.naming({b.identity, folder.path(u"b"), 4, b.address});
        memory.naming({c.identity, folder.path(u"c"), 4, c.address});
        memory.naming({c.identity, folder.path(u"c(1)"), 4, c.address});
    }
    folder.write(u"a", "mine");
    folder.write(u"b.vantlow", "mine");  // it has not got its name
    folder.write(u"b", "old.");
    folder.write(u"c", "old.");  // which is why c got another
    folder.write(u"c(1)", "mine");
    ListMemory memory(folder.path(), {"list", {}});
    ASSERT_TRUE(memory.take(a));
    EXPECT_FALSE(memory.take(b));
    const auto other = memory.take(c);
    ASSERT_TRUE(other);
    EXPECT_EQ(other->path, folder.path(u"c(1)"));
}

TEST_F(GetLists, SkipExistingGoesBySizeAndDate) {
    const struct {
        const char* there;     // in the folder
        const char* modified;  // as the server says
        bool with_length;
        bool skipped;
    } cases[] = {
        {"same size", "Sun, 06 Nov 1994 08:49:37 GMT", true, true},
        {"same size", "Thu, 06 Nov 2098 08:49:37 GMT", true, false},
        {"another size", "Sun, 06 Nov 1994 08:49:37 GMT", true, false},
        {"same size", "", true, true},
        {"another size", "", false, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.there) + " " + c.modified);
        FileServer server(
            FileResource{.content = "same bulk", .last_modified = c.modified, .with_length = c.with_length});
        folder.write(u"file.bin", c.there);
        const RunResult result = get({u"--skip-existing", u"--overwrite", u"overwrite", server.url16()});
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(folder.read(u"file.bin"), c.skipped ? c.there : "same bulk");
        EXPECT_EQ(contains(result.err, "not fetched again"), c.skipped) << result.err;
        EXPECT_EQ(folder.names().size(), 1U);
        EXPECT_EQ(lines_of(result.out).size(), 1U) << "where the file is";
    }
    // The copy that an earlier run made beside another file counts too.
    FileServer server(FileResource{.content = "same bulk"});
    folder.write(u"file.bin", "something else");
    for (int i = 0; i < 2; ++i) EXPECT_EQ(get({u"--skip-existing", server.url16()}).status, 0);
    EXPECT_EQ(folder.names(), (std::vector<std::u16string>{u"file(1).bin", u"file.bin"}));
}

TEST_F(GetLists, SayWhyNothingComesAndGiveUp) {
    FileServer server;
    server.set("/busy", FileResource{.status = 503, .reason = "Out to lunch"});
    const Words more = {u"--give-up-after", u"3s", server.url16("/busy")};
    const RunResult told = get(more);
    EXPECT_EQ(told.status, 4);
    EXPECT_TRUE(contains(told.err, "retry 1 in 0:0")) << told.err;
    EXPECT_TRUE(contains(told.err, "Given up after")) << told.err;
    EXPECT_TRUE(contains(told.err, "503 Out to lunch")) << told.err;
    Words as_json = more;
    as_json.push_back(u"--json");
    const RunResult machine = get(as_json);
    const auto retries = events(machine.out, "retry");
    ASSERT_GE(retries.size(), 2U) << machine.out;
    EXPECT_TRUE(contains(retries[0]["waitingFor"], "503 Out to lunch")) << retries[0];
    EXPECT_EQ(retries[0]["attempts"], 1);
    EXPECT_TRUE(retries[0]["nextTry"].is_string()) << retries[0];
    EXPECT_GT(retries.back()["attempts"], 1);
}

TEST_F(GetLists, PatienceEndsWithTimeWithoutAByteAlone) {
    const Guid one = Guid::from_numbers(1, 0);
    const Guid another = Guid::from_numbers(2, 0);
    Patience patience(hours(24));
    const Clock::time_point start{};
    JobProgress progress;
    progress.waiting_for = "The server is busy.";
    EXPECT_FALSE(patience.is_over(one, progress, start));
    EXPECT_FALSE(patience.is_over(one, progress, start + hours(23)));
    progress.received = 1;
    EXPECT_FALSE(patience.is_over(one, progress, start + hours(25))) << "a byte came";
    progress.awaits_place = true;
    EXPECT_FALSE(patience.is_over(one, progress, start + hours(70))) << "others fetch from there";
    progress.awaits_place = false;
    EXPECT_FALSE(patience.is_over(another, progress, start + hours(70))) << "another job";
    EXPECT_FALSE(patience.is_over(one, progress, start + hours(93)));
    EXPECT_TRUE(patience.is_over(one, progress, start + hours(94)));
    Patience endless(seconds(0));
    EXPECT_FALSE(endless.is_over(one, progress, start));
    EXPECT_FALSE(endless.is_over(one, progress, start + hours(1000)));
}

TEST_F(GetLists, ARestartIsSaidWithoutBeingAsked) {
    FileServer server(FileResource{.content = content, .rate = 400'000});
    const auto program = begin({u"--json", u"-n", u"1", server.url16()});
    ASSERT_TRUE(reached(*program, 300'000)) << program->err();
    ASSERT_TRUE(state_was_saved());
    program->kill();
    (void)program->wait();
    const std::string newer = make_content(9, 2'100'000);
    server.set(
        "/file.bin",
        FileResource{.content = newer, .etag = "\"v2\"", .last_modified = "Mon, 07 Nov 1994 08:49:37 GMT"});
    const RunResult result = get({server.url16()});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(contains(result.err, "The file on the server is newer, download it again.")) << result.err;
    EXPECT_TRUE(file_has(folder.path(u"file.bin"), newer));
}

// Further connections were refused: that is no reason to report anything of jobs that only end.
TEST_F(GetLists, JobsThatAreStoppedReportNoTrouble) {
    constexpr int jobs = 12;
    FileServer server;
    own.write(u"list", serve_slow_list(server, jobs));
    const auto program = begin({u"-n", u"16", u"-j", u"30", u"-i", own.path(u"list")});
    ASSERT_TRUE(server.server().wait_for_requests(jobs));
    std::this_thread::sleep_for(milliseconds(1500));  // further connections are asked for, and refused
    const std::string before = program->err();
    if (!program->interrupt()) GTEST_SKIP() << "Ctrl-C cannot be sent here";
    const RunResult result = program->wait();
    EXPECT_EQ(result.status, 130);
    EXPECT_EQ(result.err.substr(before.size()), "");
}

// All connections that were asked for are made, also to one server.
TEST_F(GetLists, TheNumbersOfThisRunRaiseTheLimitOfTheServer) {
    FileServer server(FileResource{.content = make_content(5, 24'000'000), .rate = 200'000});
    const auto most_of = [&](const Words& more) {
        Words all = {u"--json", u"-n", u"20", server.url16(), u"--overwrite", u"overwrite"};
        all.insert(all.end(), more.begin(), more.end());
        const auto program = begin(all);
        int most = 0;
        const auto until = Clock::now() + seconds(20);
        while (most < 20 && Clock::now() < until) {
            std::this_thread::sleep_for(milliseconds(100));
            for (const json& event : events(program->out(), "progress"))
                most = std::max(most, event["connections"].get<int>());
            if (most >= 16 && !more.empty()) break;
        }
        return most;
    };
    EXPECT_EQ(most_of({}), 20);
    EXPECT_EQ(most_of({u"--set", u"Connection/MaxPerServer=16"}), 16) << "said for this run as well";
}

TEST_F(GetLists, TheStandardOutputGetsTheFile) {
    FileServer server(FileResource{.content = content});
    const RunOptions here{.environment = {{"TMPDIR", folder.path()}}};
    const auto to_output = [&](Words more) {
        more.insert(more.end(), {u"-o", u"-", server.url16()});
        more.insert(more.begin(), {u"get", u"--settings", own.path(u"settings.ini")});
        return run_vantlow(more, here);
    };
    RunResult result = to_output({});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(result.out == content) << result.out.size();
    EXPECT_EQ(folder.names().size(), 0U);
    result = to_output({u"--hash", u"md5:00000000000000000000000000000000"});
    EXPECT_EQ(result.status, 7) << result.err;
    EXPECT_EQ(result.out, "") << "nothing of a wrong file";
    EXPECT_EQ(to_output({u"--json"}).status, 2);
    // It comes while it is fetched.
    server.change("/file.bin", [](FileResource& resource) { resource.hold_after = 1'500'000; });
    Words words = {u"get", u"--settings", own.path(u"settings.ini"), u"-n", u"1", u"-o",
                   u"-",   server.url16()};
    RunningProgram program(vantlow_program(), words, here);
    const auto until = Clock::now() + seconds(20);
    while (program.out().size() < 1'000'000 && Clock::now() < until)
        std::this_thread::sleep_for(milliseconds(50));
    EXPECT_GE(program.out().size(), 1'000'000U) << program.err();
    server.release();
    EXPECT_TRUE(program.wait().out == content);
}

TEST_F(GetLists, AnEmptyFileIsDoneAsAnyOther) {
    FileServer server(FileResource{});
    const RunResult result = get({u"--json", server.url16()});
    EXPECT_EQ(result.status, 0) << result.err;
    const auto ends = events(result.out, "end");
    ASSERT_EQ(ends.size(), 1U) << result.out;
    EXPECT_EQ(ends[0]["result"], 0);
}

TEST_F(GetLists, HelpAndComplaintsNameTheProgramAndTheAddressOnce) {
    const std::string help = run_vantlow({u"category", u"add", u"--help"}).out;
    EXPECT_TRUE(contains(help, "Usage: vantlow category add [OPTIONS]")) << help;
    EXPECT_TRUE(contains(help, "--data-dir")) << help;
    EXPECT_FALSE(contains(run_vantlow({u"remove"}).err, "--all"));
    EXPECT_TRUE(contains(run_vantlow({u"stop"}).err, "--all"));
    const std::string err = get({u"ftp://127.0.0.1/folder/"}).err;
    const auto first = err.find("ftp://127.0.0.1/folder/");
    ASSERT_NE(first, std::string::npos) << err;
    EXPECT_EQ(err.find("ftp://127.0.0.1/folder/", first + 1), std::string::npos) << err;
    const struct {
        Words words;
        const char* says;
    } cases[] = {
        {{u"./none.torrent"}, "none.torrent: The file does not exist"},
        {{u"none.meta4"}, "none.meta4: The file does not exist"},
        {{own.path(u"text")}, "neither a torrent nor a metafile"},
        {{u" "}, "A link is empty."},
        {{u"--retries", u"1", u"--retries", u"2", u"http://h/"},
         "vantlow get: --retries may be given only once.\nTry 'vantlow get --help'."},
        {{u"http://h/", u"--retries"}, "vantlow get: --retries needs a value."},
        {{u"http://h/", u"--frobnicate"}, "vantlow get: "},
    };
    own.write(u"text", "no document");
    for (const auto& one : cases) EXPECT_TRUE(contains(get(one.words).err, one.says)) << get(one.words).err;
}

}  // namespace
}  // namespace vantlow::test
