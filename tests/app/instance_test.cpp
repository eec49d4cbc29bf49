// The resident program, and what other starts of it hand over.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <thread>

#include "app/process/hand_over.h"
#include "platform/folder.h"
#include "store/data_folder_lock.h"
#include "store_run.h"
#include "support/file_server.h"
#include "support/scripted_server.h"

namespace vantlow::test {
namespace {

using nlohmann::json;
using namespace std::chrono_literals;

class Instance : public StoreRun {
  protected:
    void begin(const std::vector<std::u16string>& words = {}) { begin(vantlow_program(), words); }
    void begin(const std::u16string& path, const std::vector<std::u16string>& words) {
        program = std::make_unique<RunningProgram>(path, words, environment());
        ASSERT_TRUE(eventually([&] { return !data_file(u"data/.lock").empty(); })) << program->err();
    }
    std::string data_file(std::u16string_view name) const {
        return folder.has(name) ? folder.read(name) : std::string();
    }
    void quit() {
        ok({u"quit"});
        EXPECT_EQ(program->wait(20s).status, 0) << program->err();
    }
    // A save may take a file away while that is being removed.
    bool remove_data_folder() const {
        return eventually([&] {
            std::error_code error;
            std::filesystem::remove_all(folder.utf8_path("data"), error);
            return !error;
        });
    }
    static bool eventually(const std::function<bool()>& condition, std::chrono::seconds at_most = 20s) {
        const auto until = std::chrono::steady_clock::now() + at_most;
        while (!condition()) {
            if (std::chrono::steady_clock::now() > until) return false;
            std::this_thread::sleep_for(20ms);
        }
        return true;
    }
    bool comes_to(const std::string& id, const std::string& state) {
        return eventually([&] { return state_of(id) == state; });
    }
    std::string add_from(const FileServer& server, std::string_view path) {
        // One connection: each answer is held behind its first bytes.
        return add({u"-n", u"1", u"-d", folder.path(u"out"), server.url16(path)});
    }

    std::unique_ptr<RunningProgram> program;
};

TEST_F(Instance, gets_the_words_of_other_starts_exactly) {
    begin();
    const std::u16string words =
        u"say \"it's\" \\\"back\\\\slash\\ \u00E4\u20AC\U0001F600 %1 $HOME *  two  blanks " +
        std::u16string(30000, u'x');
    const std::string id = add({u"--paused", u"-d", u"below here", u"--referer", words, u"http://h/a"});
    const json job = list()[0];
    EXPECT_EQ(job["referer"], to_utf8(words));
    EXPECT_EQ(job["folder"], folder.utf8_path("below here")) << "relative to where the words were said";
    const RunResult wrong = run({u"show", u"zz"});
    EXPECT_EQ(wrong.status, 1);
    EXPECT_NE(wrong.err.find("no job zz"), std::string::npos);
    RunOptions piped = environment();
    piped.input = "http://h/one\r\n# not this\nhttp://h/two\n";
    EXPECT_EQ(run_vantlow({u"add", u"--paused", u"-i", u"-"}, piped).status, 0);
    EXPECT_EQ(list().size(), 3U);
    EXPECT_NE(data_file(u"data/.database"), "") << "what was filed is saved when the command is answered";
    quit();
    EXPECT_EQ(list().size(), 3U);
    EXPECT_EQ(run({u"quit"}).status, 1) << "there is none any more";
}

TEST_F(Instance, tells_what_its_jobs_wait_for) {
    FileServer server;
    for (const char* path : {"/a", "/b"}) {
        server.set(path, FileResource{.content = make_content(1, 500'000), .hold_after = 1000});
    }
    server.set("/busy", FileResource{.status = 503, .reason = "Later"});
    begin({u"--set", u"Connection/MaxPerServer=1"});
    const std::string first = add_from(server, "/a");
    ASSERT_TRUE(comes_to(first, "running"));
    ASSERT_TRUE(eventually([&] { return list()[0]["done"] > 0; }));
    const std::string second = add_from(server, "/b");
    // It is started, but its server is the first one's.
    EXPECT_TRUE(
        eventually([&] { return ok({u"list"}).find("waits for a free connection") != std::string::npos; }));
    EXPECT_EQ(state_of(second), "waiting");
    server.release();
    EXPECT_TRUE(comes_to(second, "finished"));
    const std::string busy = add_from(server, "/busy");
    const auto waits = [&] {
        const json job = json::parse(ok({u"show", u"--json", to_utf16(busy)}));
        return job.value("waitingFor", "").find("503 Later") != std::string::npos && job["attempts"] >= 1 &&
               job.contains("nextTry");
    };
    EXPECT_TRUE(eventually(waits));
    EXPECT_NE(ok({u"list"}).find("503 Later"), std::string::npos);
    quit();
}

TEST_F(Instance, takes_the_links_of_a_second_start) {
    FileServer server;
    server.set("/a.bin", {"the content"});
    server.set("/x.asx", {"<asx><entry><ref href=\"mms://127.0.0.1/x\"/></entry></asx>"});
    begin();
    const auto second = [&](const std::vector<std::u16string>& words) { return run(words).status; };
    EXPECT_EQ(second({}), 0);
    EXPECT_EQ(second({server.url16("/a.bin")}), 0);
    folder.write(
        u"two.meta4",
        "<metalink xmlns=\"urn:ietf:params:xml:ns:metalink\"><file name=\"x\"><url>http://127.0.0.1:1/x</url>"
        "</file></metalink>");
    EXPECT_EQ(second({u"two.meta4"}), 0);
    EXPECT_EQ(second({u"lits"}), 2) << "a mistyped command";
    EXPECT_EQ(second({server.url16("/x.asx")}), 0);
    ASSERT_EQ(list().size(), 3U);
    EXPECT_TRUE(eventually([&] {
        return list({u"--category", u"Completed"}).size() == 2;
    })) << "a document that leads nowhere is a file";
    quit();
}

TEST_F(Instance, asks_what_it_cannot_decide_and_goes_on_with_the_answer) {
    ScriptedServer server([](Exchange& exchange) {
        const auto login = exchange.request().field("Authorization");
        if (exchange.request().target == "/locked" && login != "Basic YW5uOnNlY3JldA==") {
            exchange.answer(401, "Unauthorized", {}, {{"WWW-Authenticate", "Basic realm=\"x\""}});
        } else {
            exchange.answer(200, "OK", "content");
        }
    });
    begin();
    const std::u16string out = folder.path(u"out");
    ASSERT_TRUE(make_folders(out).ok());
    folder.write(u"out/there", "mine");
    const std::string there = add({u"--overwrite", u"cancel", u"-d", out, to_utf16(server.url("/there"))});
    EXPECT_TRUE(comes_to(there, "failed"));
    const auto questions = [&] { return json::parse(ok({u"questions", u"--json"})); };
    EXPECT_TRUE(eventually([&] { return questions().size() == 1; }));
    EXPECT_EQ(questions()[0]["kind"], "overwrite");
    EXPECT_EQ(questions()[0]["job"], there);
    const auto id = [&] { return to_utf16(questions()[0]["id"].dump()); };
    EXPECT_EQ(run({u"answer", id(), u"perhaps"}).status, 1);
    ok({u"answer", id(), u"rename"});
    EXPECT_TRUE(comes_to(there, "finished"));
    EXPECT_EQ(folder.read(u"out/there"), "mine");

    const std::string locked = add({u"-d", out, to_utf16(server.url("/locked"))});
    EXPECT_TRUE(comes_to(locked, "failed"));
    EXPECT_TRUE(eventually([&] { return questions().size() == 1; }));
    EXPECT_EQ(questions()[0]["kind"], "credentials");
    const auto says = [&](const char* words) {
        const json open = questions();
        return open.size() == 1 && open[0]["text"].get<std::string>().find(words) != std::string::npos;
    };
    EXPECT_TRUE(says("wants a user name"));
    ok({u"answer", id(), u"ann:wrong"});
    EXPECT_TRUE(eventually([&] { return says("refuses this user name"); }));
    ok({u"answer", id(), u"ann:secret"});
    EXPECT_TRUE(comes_to(locked, "finished"));
    EXPECT_EQ(folder.read(u"out/locked"), "content");

    // Which files of a document are meant: asked, or said before it was fetched.
    const auto list_of = [&](const char* name) {
        std::string text = "<metalink xmlns=\"urn:ietf:params:xml:ns:metalink\">";
        for (const char* file : {"x", "y", "z"})
            text += std::string("<file name=\"") + name + file + "\"><url>" + server.url("/file") +
                    "</url></file>";
        return text + "</metalink>";
    };
    FileServer lists;
    lists.set("/ask.meta4", FileResource{.content = list_of("ask")});
    lists.set("/say.meta4", FileResource{.content = list_of("say")});
    add({u"--select", u"ask", u"-d", out, lists.url16("/ask.meta4")});
    EXPECT_TRUE(eventually([&] { return questions().size() == 1; }));
    EXPECT_EQ(questions()[0]["kind"], "which-files");
    EXPECT_NE(questions()[0]["text"].get<std::string>().find("2  asky"), std::string::npos);
    EXPECT_EQ(run({u"answer", id(), u"4"}).status, 1);
    ok({u"answer", id(), u"2"});
    add({u"--select", u"1,3", u"-d", out, lists.url16("/say.meta4")});
    for (const char16_t* name : {u"out/asky", u"out/sayx", u"out/sayz"})
        EXPECT_TRUE(eventually([&] { return folder.has(name); }));
    for (const char16_t* name : {u"out/askx", u"out/askz", u"out/sayy"}) EXPECT_FALSE(folder.has(name));
    EXPECT_TRUE(questions().empty());
    quit();
}

TEST_F(Instance, runs_so_many_jobs_at_once_and_the_next_move_up) {
    FileServer server;
    FileResource held{make_content(3, 400'000)};
    held.hold_after = 100'000;
    for (const char* path : {"/a", "/b", "/c"}) server.set(path, held);
    begin({u"--set", u"Performance/MaxJobs=2"});
    const std::string a = add_from(server, "/a");
    const std::string bad = add({u"--retries", u"0", u"http://127.0.0.1:1/x"});
    EXPECT_TRUE(comes_to(bad, "failed"));
    const std::string b = add_from(server, "/b");
    const std::string c = add_from(server, "/c");
    EXPECT_TRUE(comes_to(b, "running"));
    EXPECT_EQ(state_of(a), "running");
    EXPECT_EQ(state_of(c), "waiting");
    ok({u"stop", to_utf16(a)});
    EXPECT_EQ(state_of(a), "stopped") << "when the command is answered";
    EXPECT_TRUE(comes_to(c, "running"));
    ok({u"start", to_utf16(a)});
    EXPECT_EQ(state_of(a), "waiting");
    ok({u"remove", u"--files", to_utf16(b)});
    EXPECT_TRUE(comes_to(a, "running"));
    server.release();
    EXPECT_TRUE(comes_to(a, "finished"));
    EXPECT_TRUE(comes_to(c, "finished"));
    EXPECT_TRUE(file_has_content(folder.path(u"out/a"), 3, 400'000));
    EXPECT_FALSE(folder.has(u"out/b.vantlow"));
    EXPECT_NE(ok({u"log", to_utf16(a)}).find("Download completed."), std::string::npos);
    quit();
}

TEST_F(Instance, goes_on_where_it_was_ended_or_killed) {
    FileServer server;
    FileResource held{make_content(4, 3'000'000)};
    held.hold_after = 1'000'000;
    server.set("/a", held);
    begin();
    const std::string id = add_from(server, "/a");
    const auto has_some = [&] { return list()[0]["done"].get<int>() >= 500'000; };
    EXPECT_TRUE(eventually(has_some));
    quit();
    EXPECT_EQ(state_of(id), "waiting") << "it was not the user who stopped it";
    EXPECT_TRUE(has_some());
    begin();
    EXPECT_TRUE(comes_to(id, "running"));
    std::this_thread::sleep_for(1500ms);  // its positions are saved
    program->kill();
    program->wait();
    server.release();
    begin();
    EXPECT_TRUE(comes_to(id, "finished"));
    EXPECT_TRUE(file_has_content(folder.path(u"out/a"), 4, 3'000'000));
    quit();
}

TEST_F(Instance, loses_nothing_when_it_is_killed_on_a_slow_disk) {
    std::u16string slow = vantlow_program();
    slow.insert(slow.rfind(u"vantlow") + 7, u"_slow_disk");
    FileServer server;
    std::vector<std::string> ids;
    const auto fetch_one = [&] {
        const std::string name = "f" + std::to_string(ids.size());
        server.set("/" + name, {make_content(static_cast<unsigned>(ids.size()), 300'000)});
        ids.push_back(add_from(server, "/" + name));
    };
    for (const auto pause : {0ms, 350ms, 800ms, 1600ms}) {
        begin(slow, {});
        fetch_one();
        fetch_one();
        std::this_thread::sleep_for(pause);
        program->kill();
        program->wait();
        EXPECT_EQ(list().size(), ids.size());
    }
    begin();
    for (const std::string& id : ids) EXPECT_TRUE(comes_to(id, "finished"));
    quit();
    std::vector<FolderEntry> entries;
    ASSERT_TRUE(list_folder(folder.path(u"out"), entries).ok());
    EXPECT_EQ(entries.size(), ids.size()) << "nothing was fetched twice, under another name";
    for (std::size_t i = 0; i < ids.size(); ++i) {
        const std::u16string path = folder.path(u"out/" + to_utf16("f" + std::to_string(i)));
        EXPECT_TRUE(file_has_content(path, static_cast<unsigned>(i), 300'000));
    }
}

TEST_F(Instance, files_nothing_that_cannot_be_saved) {
    const auto block = [&](bool blocked) {
        // Folders where new files are to be made, with something in them.
        for (const char* name : {"data/.database.new", "data/.database.journal.new"}) {
            const std::filesystem::path path = folder.utf8_path(name);
            std::filesystem::remove_all(path);
            if (blocked) std::filesystem::create_directories(path / "x");
        }
    };
    const auto refused = [&](const std::vector<std::u16string>& words) {
        const RunResult result = run(words);
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.out, "");
        EXPECT_NE(result.err.find("job database"), std::string::npos) << result.err;
    };
    folder.write(u"list.txt", "http://h/listed\n");
    add({u"--paused", u"http://h/first"});
    for (const bool resident : {false, true}) {
        if (resident) begin();
        block(true);
        refused({u"add", u"--paused", u"http://h/a"});
        refused({u"add", u"--json", u"http://h/a"});
        refused({u"import", folder.path(u"list.txt")});
        EXPECT_EQ(list().size(), 1U);
        block(false);
        EXPECT_EQ(list().size(), 1U);
    }
    add({u"--paused", u"http://h/second"});
    EXPECT_EQ(list().size(), 2U);
    quit();
    EXPECT_EQ(list().size(), 2U);
}

TEST_F(Instance, takes_its_folder_again_when_that_was_removed) {
    if (path_separator() == u'\\') GTEST_SKIP() << "Windows removes no folder in which a file is open";
    begin();
    add({u"--paused", u"http://h/first"});
    ASSERT_TRUE(remove_data_folder());
    EXPECT_TRUE(eventually([&] { return !data_file(u"data/.lock").empty(); })) << "it is reached again";
    add({u"--paused", u"http://h/second"});
    EXPECT_EQ(list().size(), 2U);
    quit();
    EXPECT_NE(program->err().find("was removed or replaced"), std::string::npos) << program->err();
    EXPECT_EQ(list().size(), 2U);
}

TEST_F(Instance, another_data_folder_that_is_chosen_gets_its_jobs_in_the_end) {
    if (path_separator() == u'\\') GTEST_SKIP() << "other tests may be the one instance of the session";
    RunOptions options = environment();
    options.environment[0].second = u"";  // VANTLOW_DATA_DIR
    const auto said = [&](const std::vector<std::u16string>& words) {
        const RunResult result = run_vantlow(words, options);
        EXPECT_EQ(result.status, 0) << result.err;
        return result.out;
    };
    const auto in = [&](const char16_t* base) {
        std::vector<FolderEntry> entries;
        static_cast<void>(list_folder(folder.path(base), entries));
        return entries.empty() ? std::u16string(base) : join_path(base, entries.front().name);
    };
    said({u"settings", u"set", u"Settings/DataFolder", folder.path(u"one")});
    program =
        std::make_unique<RunningProgram>(vantlow_program(), std::vector<std::u16string>{u"serve"}, options);
    ASSERT_TRUE(eventually([&] { return !data_file(in(u"one") + u"/.lock").empty(); })) << program->err();
    said({u"add", u"--paused", u"http://h/a"});
    said({u"settings", u"set", u"Settings/DataFolder", folder.path(u"two")});
    EXPECT_NE(data_file(in(u"two") + u"/.database"), "") << "it is saved there at once";
    said({u"add", u"--paused", u"http://h/b"});
    EXPECT_EQ(json::parse(said({u"list", u"--json"})).size(), 2U) << "both from the running one";
    said({u"quit"});
    EXPECT_EQ(program->wait(20s).status, 0) << program->err();
    EXPECT_FALSE(folder.has(in(u"one") + u"/.database"));
    EXPECT_EQ(json::parse(said({u"list", u"--json"})).size(), 2U);
    // A kill leaves it to the next start.
    program =
        std::make_unique<RunningProgram>(vantlow_program(), std::vector<std::u16string>{u"serve"}, options);
    ASSERT_TRUE(eventually([&] { return !data_file(in(u"two") + u"/.lock").empty(); })) << program->err();
    said({u"settings", u"set", u"Settings/DataFolder", folder.path(u"three")});
    said({u"add", u"--paused", u"http://h/c"});
    program->kill();
    program->wait(20s);
    EXPECT_EQ(json::parse(said({u"list", u"--json"})).size(), 3U);
    EXPECT_FALSE(folder.has(in(u"two") + u"/.database"));
}

TEST_F(Instance, a_start_in_the_foreground_answers_other_terminals) {
    FileServer server;
    FileResource held{make_content(5, 400'000)};
    held.hold_after = 100'000;
    server.set("/a", held);
    const std::string id = add_from(server, "/a");
    const std::string other = add_from(server, "/a");
    begin({u"start", to_utf16(id)});
    EXPECT_TRUE(comes_to(id, "running"));
    EXPECT_EQ(state_of(other), "waiting") << "only the job that was named";
    ok({u"start", to_utf16(other)});
    EXPECT_TRUE(comes_to(other, "running"));
    server.release();
    const RunResult result = program->wait();
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(state_of(other), "finished");
}

TEST_F(Instance, serves_in_the_background_until_it_is_told_to_quit) {
    const RunResult started = run({u"serve", u"--background"});
    EXPECT_EQ(started.status, 0) << started.err;
    EXPECT_NE(started.err.find("Vantlow is running"), std::string::npos) << started.err;
    EXPECT_EQ(std::count(started.err.begin(), started.err.end(), '\n'), 1) << started.err;
    EXPECT_EQ(run({u"serve", u"--background"}).err, started.err) << "the one that runs already";
    add({u"--paused", u"http://h/a"});
    ok({u"quit"});
    EXPECT_EQ(run({u"quit"}).status, 1);
    EXPECT_EQ(list().size(), 1U);
    folder.write(u"data/.database", "Q!60");
    const RunResult newer = run({u"serve", u"--background"});
    EXPECT_EQ(newer.status, 1);
    EXPECT_NE(newer.err.find("newer version"), std::string::npos) << "what it says while it starts";
    ASSERT_TRUE(remove_file(folder.path(u"data/resident.log")).ok());
    ASSERT_TRUE(make_folders(folder.path(u"data/resident.log")).ok());
    const RunResult refused = run({u"serve", u"--background"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_NE(refused.err.find("resident.log: "), std::string::npos) << refused.err;
}

TEST_F(Instance, its_messages_go_on_in_the_folder_that_it_took_again) {
    if (path_separator() == u'\\') GTEST_SKIP() << "Windows removes no folder in which a file is open";
    const RunResult started = run({u"serve", u"--background"});
    ASSERT_EQ(started.status, 0) << started.err;
    ASSERT_TRUE(remove_data_folder());
    const auto says = [&](const char* text) {
        return eventually([&] { return data_file(u"data/resident.log").find(text) != std::string::npos; });
    };
    EXPECT_TRUE(says("was removed or replaced. The jobs are saved in the folder that is there now."));
    // Another folder takes its place, and somebody else owns that.
    DataFolderLock other;
    FileError error;
    ASSERT_EQ(other.claim(folder.path(u"next"), error), DataFolderLock::Claim::mine);
    std::filesystem::rename(folder.utf8_path("data"), folder.utf8_path("old"));
    std::filesystem::rename(folder.utf8_path("next"), folder.utf8_path("data"));
    EXPECT_TRUE(says("another Vantlow owns the folder that is there now: nothing is saved."));
    other.release();
    EXPECT_TRUE(says("The jobs are saved in the folder that is there now."));
    ok({u"quit"});
}

TEST(HandOver, survives_bytes_of_every_kind) {
    const HandedOver words{{"", "a b", std::string("\xFF\0\"", 3)}, "/f", "in\nput"};
    const std::string bytes = encode(words);
    const auto back = decode_words(bytes);
    ASSERT_TRUE(back.has_value());
    EXPECT_EQ(back->words, words.words);
    EXPECT_EQ(back->folder, words.folder);
    EXPECT_EQ(back->input, words.input);
    for (std::size_t i = 0; i < bytes.size(); ++i) EXPECT_FALSE(decode_words(bytes.substr(0, i)).has_value());
    EXPECT_FALSE(decode_words("VW1\xFF\xFF\xFF\xFF").has_value());
    EXPECT_FALSE(decode_answer(bytes).has_value());
}

}  // namespace
}  // namespace vantlow::test
