// The engine's operations, with sessions that do what the test says.
#include "engine/engine.h"

#include <gtest/gtest.h>

#include <future>

#include "engine_fixture.h"
#include "platform/file.h"
#include "support/fake_ftp.h"
#include "support/file_server.h"

namespace vantlow {
namespace {

using test::EngineTest;
using Fault = Done::Fault;

constexpr const char* magnet = "magnet:?xt=urn:btih:0123456789abcdef0123456789abcdef01234567&dn=";

TEST_F(EngineTest, RunsJobsInTheirOrderAndSoManyAtOnce) {
    const auto jobs = add({"http://a/1", "http://a/2", "http://a/3", "http://a/4"});
    engine->pump();
    EXPECT_TRUE(sessions.contains(jobs[0]) && sessions.contains(jobs[1]));
    EXPECT_EQ(sessions.size(), 2U);
    EXPECT_TRUE(engine->reorder(jobs[3], Order::first).ok());
    end(jobs[0]);
    EXPECT_TRUE(sessions.contains(jobs[3]));
    EXPECT_EQ(state(jobs[0]), JobState::finished);
    EXPECT_EQ(engine->reorder(jobs[3], Order::last).fault, Fault::not_waiting);

    const auto more = add({"http://a/5", "http://a/6"});  // behind 3
    EXPECT_TRUE(engine->reorder(more[1], Order::earlier).ok());
    EXPECT_TRUE(engine->reorder(jobs[2], Order::later).ok());
    EXPECT_TRUE(engine->reorder(more[1], Order::earlier).ok());  // is the first already
    std::vector<Guid> started;
    for (int i = 0; i < 3; ++i) {
        end(sessions.begin()->first);
        for (const auto& [job, session] : sessions) {
            if (std::find(started.begin(), started.end(), job) == started.end()) started.push_back(job);
        }
    }
    const auto place = [&](const Guid& job) { return std::find(started.begin(), started.end(), job); };
    EXPECT_LT(place(more[1]), place(jobs[2]));
    EXPECT_LT(place(jobs[2]), place(more[0]));
}

TEST_F(EngineTest, StoppingAsksAndGoesOnAtOnce) {
    const Guid job = add_one("http://a/1");
    engine->pump();
    session(job).ends_when_stopped = false;
    EXPECT_TRUE(engine->stop(job).ok());
    EXPECT_EQ(state(job), JobState::running);  // until its threads are gone
    EXPECT_TRUE(engine->start(job).ok());      // said meanwhile: it goes on behind its end
    end(job, Code::stopped);
    EXPECT_EQ(state(job), JobState::running);
    ASSERT_TRUE(engine->stop(job).ok());
    engine->wait_for_ends({job});
    EXPECT_EQ(state(job), JobState::stopped);

    set(setting::max_jobs, 1);
    const auto two = add({"http://a/2", "http://a/3"});
    EXPECT_TRUE(engine->stop(two[1]).ok());  // it waits
    EXPECT_EQ(state(two[1]), JobState::stopped);
    EXPECT_EQ(engine->stop(Guid{}).fault, Fault::no_job);
}

TEST_F(EngineTest, AJobThatRunsIsRemovedBehindItsEnd) {
    const Guid job = add_one("http://a/1");
    engine->pump();
    session(job).ends_when_stopped = false;
    session(job).twin().path = folder.path(u"f");
    folder.write(u"f" + std::u16string(partial_suffix), "part");
    folder.write(u"other", "stays");
    EXPECT_EQ(engine->remove(job, true).fault, Fault::running);
    EXPECT_NE(engine->find(job), nullptr);
    end(job, Code::stopped);
    EXPECT_EQ(engine->find(job), nullptr);
    EXPECT_EQ(folder.names(), (std::vector<std::u16string>{u"data", u"other"}));
    EXPECT_NE(ears.fields[job] & job_field::removed, 0U);
}

// Whoever looks at a job holds its record: it stays the same one, and what a person said of it meanwhile too.
TEST_F(EngineTest, ARecordKeepsItsIdentityAndItsEdits) {
    const Guid job = add_one("http://a/1");
    engine->pump();
    const CJobNode* const record = engine->find(job);
    JobEdit edit;
    edit.comment = u"mine";
    edit.user = u"u";
    edit.connections = 7;
    EXPECT_TRUE(engine->change(job, edit).ok());
    session(job).safe_size = 5;
    std::string error;
    EXPECT_TRUE(engine->save(error)) << error;
    EXPECT_EQ(engine->find(job), record);
    EXPECT_EQ(record->file_size, 5);
    session(job).twin().file_size = 10;
    end(job, Code::server_error);
    EXPECT_EQ(engine->find(job), record);
    EXPECT_EQ(record->comment, u"mine");
    EXPECT_EQ(record->user, u"u");
    EXPECT_EQ(record->connections, 7);
    EXPECT_EQ(record->file_size, 10);
    EXPECT_EQ(record->result, Code::server_error);

    JobEdit wrong;
    wrong.proxy = u"ssh://x";
    EXPECT_EQ(engine->change(job, wrong).fault, Fault::bad_value);
    wrong = {};
    wrong.address = u"magnet:?xt=urn:btih:0123456789abcdef0123456789abcdef01234567";
    EXPECT_EQ(engine->change(job, wrong).fault, Fault::bad_value);  // a job stays of its kind
}

TEST_F(EngineTest, TheKindOfAJobIsDecidedOnceAndSaved) {
    const struct {
        std::string link;
        JobKind kind;
    } cases[] = {
        {"http://a/f", JobKind::transfer},
        {"a.example/f", JobKind::transfer},
        {std::string(magnet) + "m", JobKind::torrent},
        {"ed2k://|file|n|5|0123456789abcdef0123456789abcdef|/", JobKind::edonkey},
        {"metalink://a.example/list", JobKind::document},
    };
    std::map<Guid, JobKind> kinds;
    for (const auto& one : cases) {
        const Guid job = add({one.link}, true)[0];
        kinds[job] = one.kind;
        EXPECT_EQ(kind_of(*engine->find(job)), one.kind) << one.link;
    }
    std::string error;
    ASSERT_TRUE(engine->save(error)) << error;
    open();
    for (const auto& [job, kind] : kinds) EXPECT_EQ(kind_of(*engine->find(job)), kind);
}

TEST_F(EngineTest, AKindThatNobodyCarriesOutEndsAndHoldsNobodyUp) {
    const Guid stream = add_one("ed2k://|file|n|5|0123456789abcdef0123456789abcdef|/");
    const Guid file = add_one("http://a/1");
    engine->pump();
    EXPECT_EQ(state(stream), JobState::failed);
    EXPECT_EQ(ears.ends, std::vector<Code>{Code::unsupported});
    EXPECT_EQ(state(file), JobState::running);
}

TEST_F(EngineTest, ASharedTorrentIsAFinishedJobThatTakesNoPlaceUntilAPersonStopsIt) {
    table[1].takes_place = shares_finished = true;
    set(setting::max_jobs, 1);
    open();
    const auto torrents = add({std::string(magnet) + "a", std::string(magnet) + "b"});
    const Guid& shared = torrents[0];
    engine->pump();
    session(shared).shares = true;
    session(shared).settles = Result();
    engine->pump();
    engine->pump();
    EXPECT_EQ(state(shared), JobState::finished);
    EXPECT_TRUE(engine->is_sharing(shared));
    EXPECT_EQ(state(torrents[1]), JobState::running) << "there is room";
    EXPECT_EQ(ears.complete, std::vector<Guid>{shared});
    EXPECT_EQ(ears.ends, std::vector<Code>{Code::ok});

    std::string error;
    EXPECT_TRUE(engine->close(error)) << error;
    EXPECT_EQ(state(shared), JobState::finished);
    open();
    engine->pump();
    EXPECT_EQ(session(shared).sharing.whole_since, engine->find(shared)->finished);
    EXPECT_EQ(engine->running(), 1U);
    EXPECT_TRUE(engine->stop(shared).ok());
    engine->wait_for_ends({shared});
    EXPECT_EQ(state(shared), JobState::finished);
    EXPECT_TRUE(engine->close(error)) << error;
    open();
    engine->pump();
    EXPECT_FALSE(engine->is_sharing(shared)) << "a person has stopped it";

    EXPECT_TRUE(engine->start(shared).ok());
    engine->pump();
    EXPECT_EQ(session(shared).sharing.whole_since, 0) << "all is checked";
    end(shared, {Code::local_file, "gone"});
    EXPECT_EQ(state(shared), JobState::failed);
    EXPECT_EQ(engine->find(shared)->error, "gone");
}

// Files are chosen at rest, while they are fetched and while they are shared; what is chosen too late for a
// session is fetched by another one, and the time since which the others are whole stays.
TEST_F(EngineTest, FilesOfATorrentAreChosenWhateverItDoes) {
    table[1].takes_place = shares_finished = true;
    set(setting::max_jobs, 5);
    open();
    using enum FilePriority;
    using Wanted = std::map<std::size_t, FilePriority>;
    const std::string info =
        "d5:filesld6:lengthi1e4:pathl1:aeed6:lengthi1e4:pathl1:beed6:lengthi1e4:pathl1:ceee4:name1:t12:piece "
        "lengthi16384e6:pieces20:01234567890123456789e";
    ASSERT_TRUE(make_folders(folder.path(u"data")).ok());
    folder.write(u"t.torrent", "d4:info" + info + "e");
    const Guid job = add_one(to_utf8(folder.path(u"t.torrent")));
    const auto rules = [&] { return engine->find(job)->rules ? *engine->find(job)->rules : JobRules(); };

    EXPECT_EQ(engine->choose_files(add_one(std::string(magnet) + "a"), {{1, high}}).fault,
              Fault::no_description);
    EXPECT_EQ(engine->choose_files(add_one("http://a/1"), {{1, high}}).fault, Fault::no_torrent);
    for (const Wanted& bad : {Wanted{{0, high}}, Wanted{{4, low}}, Wanted{{1, skip}, {2, skip}, {3, skip}}})
        EXPECT_EQ(engine->choose_files(job, bad).fault, Fault::bad_value);

    engine->pump();
    EXPECT_TRUE(engine->choose_files(job, {{1, high}, {2, low}, {3, skip}}).ok());
    EXPECT_TRUE(rules().select == "1-2" && rules().high == "1" && rules().low == "2");
    ASSERT_TRUE(session(job).rules);
    EXPECT_EQ(*session(job).rules, rules()) << "the session heard of it";

    session(job).shares = true;
    session(job).settles = Result();
    EXPECT_TRUE(pump_until([&] { return state(job) == JobState::finished; }));
    const std::int64_t finished = engine->find(job)->finished;
    EXPECT_TRUE(engine->choose_files(job, {{3, normal}}).ok());
    EXPECT_TRUE(rules().select.empty() && rules().high == "1");
    session(job).owes = true;
    EXPECT_TRUE(pump_until([&] { return state(job) == JobState::running; }));
    EXPECT_FALSE(engine->is_sharing(job));
    EXPECT_EQ(session(job).twin().finished, finished);
    EXPECT_EQ(session(job).twin().rules->select, "");

    std::string error;
    end(job);
    EXPECT_TRUE(engine->choose_files(job, {{2, skip}, {1, normal}}).ok());
    EXPECT_EQ(state(job), JobState::finished) << "nothing is lacking";
    EXPECT_TRUE(engine->choose_files(job, {{2, normal}}).ok());
    EXPECT_EQ(state(job), JobState::waiting);
    EXPECT_TRUE(engine->close(error)) << error;
    open();
    EXPECT_FALSE(engine->find(job)->rules) << "no file is special any more";
}

// A torrent is looked after while it waits: it takes no place of the others, and saying goodbye to its
// trackers keeps nobody waiting.
TEST_F(EngineTest, TorrentsAreLookedAfterBesideTheOthers) {
    set(setting::max_jobs, 1);
    const Guid file = add_one("http://a/1");
    const auto torrents =
        add({std::string(magnet) + "a", std::string(magnet) + "b", std::string(magnet) + "c"});
    engine->pump();
    EXPECT_EQ(state(file), JobState::running);
    EXPECT_TRUE(sessions.contains(torrents[0]) && sessions.contains(torrents[1]));
    EXPECT_FALSE(sessions.contains(torrents[2]));  // two at once
    EXPECT_EQ(state(torrents[0]), JobState::waiting);

    session(torrents[0]).settles = Result(Code::unsupported);
    engine->pump();
    engine->pump();
    EXPECT_EQ(ears.ends, std::vector<Code>{Code::unsupported});  // once
    EXPECT_TRUE(engine->has_work());                             // of the file
    EXPECT_TRUE(sessions.contains(torrents[0]));                 // it goes on

    auto& leaving = session(torrents[0]);
    leaving.ends_when_stopped = false;
    EXPECT_TRUE(engine->stop(torrents[0]).ok());
    engine->wait_for_ends({torrents[0]});
    EXPECT_EQ(state(torrents[0]), JobState::stopped);
    EXPECT_TRUE(engine->remove(torrents[0], false).ok());
    engine->pump();
    EXPECT_FALSE(sessions.contains(torrents[2]));  // its threads are still there
    leaving.end(Code::stopped);
    engine->pump();
    EXPECT_TRUE(sessions.contains(torrents[2]));
}

TEST_F(EngineTest, ADocumentGivesWayToWhatItNames) {
    const Engine::NewCategory music = engine->add_category(u"Music", {}, {});
    const Guid job = add_one("http://a.example/list");
    EXPECT_TRUE(engine->move(job, music.category).ok());
    engine->pump();
    const auto path = folder.write(u"list.meta4",
                                   "<metalink xmlns=\"urn:ietf:params:xml:ns:metalink\">"
                                   "<file name=\"x\"><url>http://b.example/x</url></file>"
                                   "<file name=\"y\"><url>ftp://b.example/y</url></file></metalink>");
    session(job).outcome.path = path;
    session(job).outcome.media_type = "application/metalink4+xml";
    end(job);
    EXPECT_EQ(engine->find(job), nullptr);
    ASSERT_EQ(ears.follows.size(), 1U);
    ASSERT_EQ(ears.follows[0].jobs.size(), 2U);
    for (const Guid& named : ears.follows[0].jobs) {
        EXPECT_EQ(engine->find(named)->category, music.category);
        EXPECT_TRUE(pump_until([&] { return state(named) == JobState::running; }));
    }
    EXPECT_FALSE(folder.has(u"list.meta4"));

    // One that is removed while it ends names nothing any more.
    set(setting::max_jobs, 4);
    const Guid removed = add_one("http://a.example/other");
    ASSERT_TRUE(pump_until([&] { return sessions.contains(removed); }));
    session(removed).ends_when_stopped = false;
    session(removed).outcome.path =
        folder.write(u"other.meta4",
                     "<metalink xmlns=\"urn:ietf:params:xml:ns:metalink\">"
                     "<file name=\"z\"><url>http://b.example/z</url></file></metalink>");
    session(removed).outcome.media_type = "application/metalink4+xml";
    EXPECT_EQ(engine->remove(removed, false).fault, Done::Fault::running);
    end(removed);
    EXPECT_EQ(engine->find(removed), nullptr);
    EXPECT_EQ(ears.follows.size(), 1U);
}

TEST_F(EngineTest, AsksWhichFilesOfADocumentAreMeant) {
    const auto document = [&](const char* name) {
        std::string text = "<metalink xmlns=\"urn:ietf:params:xml:ns:metalink\">";
        for (const char* file : {"x", "y", "z"})
            text += std::string("<file name=\"") + file + "\"><size>7</size><url>http://b.example/" + name +
                    file + "</url></file>";
        return to_utf8(folder.write(to_utf16(name), text + "</metalink>"));
    };
    JobDraft draft;
    draft.folder = folder.path();
    draft.asks_which = true;
    const auto add = [&](const std::string& link) {
        draft.links = {link};
        const Added added = engine->add(draft);
        EXPECT_TRUE(added.faults.empty());
        engine->pump();
        return added.jobs;
    };
    const auto runs = [&](const Guid& job) {
        return pump_until([&] { return sessions.contains(job) && state(job) == JobState::running; });
    };
    // A document that is here, and one that its job fetches in a later run.
    const auto here = add(document("here.meta4"));
    ASSERT_EQ(ears.questions.size(), 1U);
    ASSERT_EQ(ears.questions[0].files.size(), 3U);
    EXPECT_EQ(ears.questions[0].files[1].name, u"y");
    EXPECT_EQ(ears.questions[0].files[1].size, 7);
    for (const Guid& job : here) EXPECT_EQ(state(job), JobState::stopped);
    EXPECT_TRUE(engine->has_work());
    QuestionAnswer answer;
    answer.selection = "1,3";
    EXPECT_TRUE(engine->answer(ears.questions[0].id, answer).ok());
    engine->pump();
    EXPECT_TRUE(runs(here[0]));
    EXPECT_EQ(engine->find(here[1]), nullptr);
    EXPECT_TRUE(runs(here[2]));
    end(here[0]);
    end(here[2]);

    const Guid fetched = add("http://a.example/there.meta4").at(0);
    ASSERT_TRUE(runs(fetched));
    session(fetched).outcome.path = to_utf16(document("there.meta4"));
    end(fetched);
    ASSERT_EQ(ears.follows.size(), 1U);
    const std::vector<Guid> there = ears.follows[0].jobs;
    ASSERT_EQ(there.size(), 3U);
    engine->pump();
    ASSERT_EQ(ears.questions.size(), 1U);
    // What was decided by hand stays so; nobody's answer means all, also where the program ends first.
    EXPECT_TRUE(engine->start(there[0]).ok());
    EXPECT_TRUE(engine->remove(there[1], false).ok());
    std::string error;
    EXPECT_TRUE(engine->close(error)) << error;
    open();
    EXPECT_EQ(engine->find(there[1]), nullptr);
    engine->pump();
    EXPECT_TRUE(runs(there[0]));
    EXPECT_TRUE(runs(there[2]));
    end(there[0]);
    end(there[2]);

    const auto paused = [&](const char* name, const QuestionAnswer& chosen) {
        draft.paused = true;
        const auto jobs = add(document(name));
        EXPECT_TRUE(engine->answer(ears.questions.at(0).id, chosen).ok());
        engine->pump();
        return jobs;
    };
    answer = {};
    for (const Guid& job : paused("paused.meta4", answer)) EXPECT_EQ(state(job), JobState::stopped);
    answer.none = true;
    for (const Guid& job : paused("none.meta4", answer)) EXPECT_EQ(engine->find(job), nullptr);
    // Nobody can be asked.
    draft.paused = false;
    open(std::chrono::milliseconds(0));
    set(setting::max_jobs, 3);
    for (const Guid& job : add(document("silent.meta4"))) EXPECT_TRUE(runs(job));
}

TEST_F(EngineTest, AnsweredCredentialsStartTheJobAgain) {
    const Guid job = add_one("http://a/1");
    engine->pump();
    Question question;
    question.kind = QuestionKind::credentials;
    question.job = job;
    question.server = "a";
    session(job).question = question;
    end(job, Code::credentials_refused);
    EXPECT_EQ(state(job), JobState::failed);
    engine->pump();
    ASSERT_EQ(ears.questions.size(), 1U);
    QuestionAnswer answer;
    answer.user = u"ann";
    answer.password = u"secret";
    EXPECT_TRUE(engine->answer(ears.questions[0].id, answer).ok());
    EXPECT_EQ(engine->answer(ears.questions[0].id, answer).fault, Fault::no_question);
    engine->pump();
    EXPECT_EQ(session(job).twin().user, u"ann");
    EXPECT_TRUE(engine->questions().empty());
}

TEST_F(EngineTest, ChangesAreGatheredAndCanBeAskedForByRevision) {
    const auto jobs = add({"http://a/1", "http://a/2"}, true);
    engine->pump();
    const int before = ears.deliveries;
    const std::uint64_t revision = engine->revision();
    JobEdit edit;
    for (int i = 0; i < 100; ++i) {
        edit.comment = to_utf16(std::to_string(i));
        EXPECT_TRUE(engine->change(jobs[0], edit).ok());
    }
    engine->pump();
    EXPECT_EQ(ears.deliveries, before + 1);
    const Changes changes = engine->changes_since(revision);
    ASSERT_EQ(changes.jobs.size(), 1U);
    EXPECT_EQ(changes.jobs[0].job, jobs[0]);
    EXPECT_EQ(changes.jobs[0].fields & (job_field::options | job_field::added), job_field::options);
    EXPECT_TRUE(engine->changes_since(changes.revision).empty());
    EXPECT_TRUE(engine->changes_since(changes.revision + 1).everything);  // of another run
}

TEST_F(EngineTest, AsksAServerOfFtpWhatItHasAndFetchesNothing) {
    test::FakeFtp whole({.content = std::string(7000, 'x')});
    test::FakeFtp bare(
        {.answers = {
             {"SIZE", "550 No file"}, {"MDTM", "550 No file"}, {"STAT", "502 No"}, {"CWD", "550 Neither"}}});
    test::FakeFtp with_folder(
        {.answers = {
             {"SIZE", "550 No file"}, {"MDTM", "550 No file"}, {"STAT", "502 No"}, {"CWD", "250 There"}}});
    test::FakeFtp strict({.answers = {{"PASS", "530 Who is that?"}}});
    test::FakeFtp silent({.answers = {{"SIZE", ""}}});
    const auto ask = [&](const std::string& link) {
        JobDraft draft;
        draft.links = {link};
        draft.user = u"somebody";
        draft.password = u"secret";
        std::promise<void> came;
        const auto inquiry = engine->inquire(draft, [&came] { came.set_value(); });
        EXPECT_EQ(came.get_future().wait_for(std::chrono::seconds(20)), std::future_status::ready) << link;
        return inquiry->answer().value_or(ServerSays{});
    };
    for (int i = 0; i < 2; ++i) {
        const ServerSays says = ask(whole.url("/sub/a%20b.zip"));
        EXPECT_TRUE(says.result.ok()) << says.result.message();
        EXPECT_EQ(says.name, u"a b.zip");
        EXPECT_EQ(says.size, 7000);
        EXPECT_TRUE(says.takes_ranges);
    }
    EXPECT_EQ(whole.count("PASS secret"), 1U) << "the connection is kept for the download";
    EXPECT_EQ(whole.count("RETR") + whole.count("PASV") + whole.count("EPSV"), 0U);
    EXPECT_EQ(ask(bare.url()).result.code, Code::server_error);
    EXPECT_EQ(ask(with_folder.url()).result.code, Code::unsupported);
    EXPECT_EQ(ask(strict.url()).result.code, Code::credentials_refused);
    JobDraft draft;
    draft.links = {silent.url()};
    const auto inquiry = engine->inquire(draft, [] { ADD_FAILURE() << "nobody waits any more"; });
    while (silent.count("SIZE") == 0) std::this_thread::sleep_for(std::chrono::milliseconds(5));
}

TEST_F(EngineTest, AsksAServerForTheHeaderAlone) {
    test::FileServer server;
    test::FileResource file{.content = std::string(5000, 'x')};
    server.set("/plain.bin", file);
    file.more = {{"Content-Disposition", "attachment; filename=\"..\\b.zip\""}};
    file.accept_ranges = false;
    server.set("/named", file);
    server.set("/moved", {.more = {{"Location", "/plain.bin"}}, .status = 302});
    server.set("/gone", {.status = 410, .reason = "Gone"});
    server.set("/refused", {.status = 405, .reason = "Not here"});
    const auto ask = [&](const char* path) {
        JobDraft draft;
        draft.links = {server.url(path)};
        std::promise<void> came;
        const auto inquiry = engine->inquire(draft, [&came] { came.set_value(); });
        EXPECT_EQ(came.get_future().wait_for(std::chrono::seconds(20)), std::future_status::ready) << path;
        return inquiry->answer().value_or(ServerSays{});
    };
    const struct {
        const char* path;
        const char16_t* name;
        std::int64_t size;
        bool takes_ranges;
    } cases[] = {{"/plain.bin#part", u"plain.bin", 5000, true},
                 {"/named", u"b.zip", 5000, false},
                 {"/moved", u"plain.bin", 5000, true}};
    for (const auto& c : cases) {
        const ServerSays says = ask(c.path);
        EXPECT_TRUE(says.result.ok()) << c.path << says.result.message();
        EXPECT_EQ(says.name, c.name) << c.path;
        EXPECT_EQ(says.size, c.size) << c.path;
        EXPECT_EQ(says.takes_ranges, c.takes_ranges) << c.path;
    }
    EXPECT_EQ(server.server().connection_count(), 1U) << "kept, since nothing follows a header";
    EXPECT_NE(ask("/gone").result.message().find("410 Gone"), std::string::npos);
    EXPECT_NE(ask("/refused").result.message().find("405 Not here"), std::string::npos);
    for (const auto& request : server.server().requests()) EXPECT_EQ(request.head.method, "HEAD");

    server.set("/slow", {.delay = std::chrono::seconds(20)});
    JobDraft draft;
    draft.links = {server.url("/slow")};
    const auto begin = std::chrono::steady_clock::now();
    engine->inquire(draft, [] { ADD_FAILURE() << "nobody waits any more"; }).reset();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
    for (const std::vector<std::string>& links :
         {std::vector<std::string>{magnet}, {"http://h/a", "http://h/b"}, {}}) {
        draft.links = links;
        EXPECT_EQ(engine->inquire(draft, {}), nullptr);
    }
}

TEST(ChangeLog, WhoAsksFromTooLongAgoIsToReadEverythingAnew) {
    ChangeLog log(2);
    for (std::uint64_t i = 1; i <= 3; ++i) log.job(Guid::from_numbers(i, 0), job_field::state);
    EXPECT_TRUE(log.since(0).everything);
    EXPECT_EQ(log.since(1).jobs.size(), 2U);
    EXPECT_TRUE(log.deliver().everything);
    log.job(Guid::from_numbers(3, 0), job_field::order);
    const Changes delivered = log.deliver();
    ASSERT_EQ(delivered.jobs.size(), 1U);
    EXPECT_EQ(delivered.jobs[0].fields, job_field::order);
}

TEST_F(EngineTest, RenamesWhatIsOnTheDisk) {
    const Guid job = add_one("http://a/1");
    engine->pump();
    session(job).twin().path = folder.path(u"a");
    folder.write(u"a" + std::u16string(partial_suffix), "part");
    folder.write(u"a" + std::u16string(state_suffix), "state");
    folder.write(u"taken", "");
    end(job, Code::server_error);
    EXPECT_EQ(engine->rename(job, u"taken").fault, Fault::name_taken);
    EXPECT_EQ(engine->rename(job, u"../up").fault, Fault::name_refused);
    EXPECT_TRUE(engine->rename(job, u"b").ok());
    EXPECT_EQ(engine->find(job)->path, folder.path(u"b"));
    EXPECT_TRUE(folder.has(u"b" + std::u16string(partial_suffix)));
    EXPECT_TRUE(folder.has(u"b" + std::u16string(state_suffix)));
    EXPECT_FALSE(folder.has(u"a" + std::u16string(partial_suffix)));
}

TEST_F(EngineTest, CategoriesAreRefusedWhereTheyWouldNotBeFoundAgain) {
    const Guid first = engine->first_category()->identity;
    const Guid a = engine->add_category(u"A", {}, first).category;
    const Guid b = engine->add_category(u"B", {}, a).category;
    EXPECT_EQ(engine->add_category(u"a", {}, first).done.fault, Fault::name_taken);
    EXPECT_EQ(engine->add_category(u"x/y", {}, first).done.fault, Fault::name_refused);
    EXPECT_EQ(engine->add_category(u"x", {}, new_guid()).done.fault, Fault::no_category);
    EXPECT_EQ(engine->move_category(a, b).fault, Fault::below_itself);
    EXPECT_EQ(engine->remove_category(first).fault, Fault::first_category);
    EXPECT_TRUE(engine->rename_category(b, u"C").ok());
    EXPECT_EQ(engine->set_category_folder(a, u"relative").fault, Fault::bad_value);
    EXPECT_EQ(engine->set_category_folder(first, {}).fault, Fault::bad_value);
    EXPECT_TRUE(engine->set_category_folder(a, folder.path(u"of a")).ok());
    EXPECT_TRUE(engine->set_category_folder(b, {}).ok());
    EXPECT_EQ(engine->find_category(b)->folder, folder.path(u"of a"));
    const Guid job = add_one("http://a/1");
    EXPECT_TRUE(engine->move(job, a).ok());
    EXPECT_TRUE(engine->remove_category(a).ok());
    EXPECT_EQ(engine->find(job)->category, first);
    EXPECT_EQ(engine->find_category(u"C").size(), 1U);
}

TEST_F(EngineTest, AnEngineInMemoryForgetsWhatEnded) {
    open_in_memory();
    const auto jobs = add({"http://a/1", "http://a/2"});
    engine->pump();
    end(jobs[0]);
    end(jobs[1], Code::server_error);
    EXPECT_EQ(engine->jobs_below(nullptr).size(), 0U);
    EXPECT_EQ(ears.ends, (std::vector<Code>{Code::ok, Code::server_error}));
    EXPECT_FALSE(engine->has_work());
    std::string error;
    EXPECT_TRUE(engine->close(error));
}

// What only the end of the program stopped goes on with the next one, and not only because it was saved.
TEST_F(EngineTest, WhatTheEndOfTheProgramStopsGoesOnWithTheNext) {
    const auto jobs = add({"http://a/1", "http://a/2"});
    engine->pump();
    EXPECT_TRUE(engine->stop(jobs[1]).ok());
    engine->pump();
    std::string error;
    EXPECT_TRUE(engine->close(error)) << error;
    open();
    EXPECT_EQ(state(jobs[0]), JobState::waiting);
    EXPECT_EQ(state(jobs[1]), JobState::stopped);
}

TEST(Questions, EveryoneWhoAsksTheSameGetsTheOneAnswer) {
    QuestionBoard board;
    board.open_for(std::chrono::seconds(20));
    const StopSource never;
    const auto ask = [&](const char* server) {
        Question question;
        question.server = server;
        question.fingerprint = "SHA256:x";
        return board.ask(question, never).yes;
    };
    auto first = std::async(std::launch::async, ask, "a");
    auto again = std::async(std::launch::async, ask, "a");
    auto other = std::async(std::launch::async, ask, "b");
    while (board.open().size() < 2) std::this_thread::yield();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    ASSERT_EQ(board.open().size(), 2U);
    for (const Question& question : board.open()) {
        QuestionAnswer answer;
        answer.yes = question.server == "a";
        EXPECT_TRUE(board.answer(question.id, answer));
    }
    EXPECT_TRUE(first.get() && again.get());
    EXPECT_FALSE(other.get());
    EXPECT_TRUE(board.open().empty());
}

TEST(Questions, HaveADefaultAfterATimeAStopOrWithoutAnybodyToAsk) {
    Question question;
    question.standard.yes = true;
    StopSource stop;
    QuestionBoard board;
    EXPECT_TRUE(board.ask(question, stop).yes);
    board.open_for(std::chrono::milliseconds(20));
    EXPECT_TRUE(board.ask(question, stop).yes);
    board.open_for(std::chrono::seconds(20));
    auto asked = std::async(std::launch::async, [&] { return board.ask(question, stop).yes; });
    while (board.open().empty()) std::this_thread::yield();
    stop.request();
    EXPECT_TRUE(asked.get());

    QuestionBoard left;
    left.open_for(std::chrono::seconds(20));
    question.job = new_guid();
    left.leave(question);
    left.leave(question);
    EXPECT_EQ(left.open().size(), 1U);  // they never pile up
    EXPECT_TRUE(left.take_answered().empty());
    const auto lapsed = left.take_answered(QuestionBoard::Clock::now() + std::chrono::seconds(30));
    ASSERT_EQ(lapsed.size(), 1U);
    EXPECT_TRUE(lapsed[0].lapsed);
    EXPECT_TRUE(left.open().empty());
}

}  // namespace
}  // namespace vantlow
