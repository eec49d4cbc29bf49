// Torrents from a real peer to files, by the program itself; on machines that have such a peer.
#include <nlohmann/json.hpp>

#include "base/codes.h"
#include "bt/torrent_content.h"
#include "support/scripted_server.h"
#include "torrent_tree.h"

namespace vantlow {
namespace {

using nlohmann::json;
using test::file_has_content;
using test::RunningProgram;
using test::RunResult;

constexpr const char* seed_script = R"(
import sys, time
import libtorrent as lt
torrent, folder, limit, encryption = sys.argv[1:5]
session = lt.session({"listen_interfaces": "127.0.0.1:0", "enable_dht": False, "enable_lsd": False,
    "enable_upnp": False, "enable_natpmp": False, "allow_multiple_connections_per_ip": True,
    "upload_rate_limit": int(limit), "prefer_rc4": True, "in_enc_policy": int(encryption), "out_enc_policy": int(encryption)})
handle = session.add_torrent({"ti": lt.torrent_info(torrent), "save_path": folder})
handle.set_upload_limit(int(limit))
while not handle.status().is_seeding:
    time.sleep(0.02)
print("listening", session.listen_port(), flush=True)
time.sleep(120)
)";

/// A torrent of four files, a tracker, and a peer that has everything.
class TorrentPeers : public test::TorrentTree {
  protected:
    enum Encryption { must_be = 0, may_be = 1, never = 2 };  ///< the peer's own numbers
    /// The sizes of "a", "b/c" and "b/d"; "e" has no bytes.
    void begin(std::int64_t a, std::int64_t c, std::int64_t d, int limit = 0,
               Encryption encryption = may_be) {
        write_tree({a, c, d});
        ok({u"torrent", u"make", folder.path(u"seed/tree"), u"--tracker",
            tracker_.url16("/0123456789abcdefghij/announce"), u"-q"});
        int told = 0;
        peer_ = begin_peer({folder.write(u"peer.py", seed_script), torrent, folder.path(u"seed"),
                            to_utf16(std::to_string(limit)), to_utf16(std::to_string(encryption))},
                           told);
        port = told;
    }
    std::unique_ptr<RunningProgram> serve() {
        auto program = std::make_unique<RunningProgram>(
            test::vantlow_program(), std::vector<std::u16string>{u"serve", u"--foreground"}, environment());
        EXPECT_TRUE(program->wait_for_output("is running")) << program->err();
        return program;
    }
    [[nodiscard]] std::vector<std::string> events() const {
        std::vector<std::string> list;
        for (const auto& request : tracker_.requests()) {
            const std::string& target = request.head.target;
            if (target.find("-VL") == std::string::npos) continue;  // the peer's own
            const auto at = target.find("&event=");
            list.push_back(at == std::string::npos ? "" : target.substr(at + 7, 7));
        }
        return list;
    }
    static json end_of(const RunResult& result) {
        const auto at = result.out.find("{\"event\":\"end\"");
        return at == std::string::npos ? json() : json::parse(result.out.substr(at));
    }

    /// True as soon as the program has told that so many bytes are there.
    static bool wait_until_done(const RunningProgram& program, std::int64_t bytes) {
        const auto until = Clock::now() + std::chrono::seconds(30);
        while (Clock::now() < until) {
            const std::string out = program.out();
            const auto at = out.rfind("\"done\":");
            if (at != std::string::npos && std::stoll(out.substr(at + 7)) >= bytes) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return false;
    }

    std::atomic<int> port{0};  ///< of the peer that the tracker names
    test::ScriptedServer tracker_{[this](test::Exchange& exchange) {
        if (exchange.request().target == "/tree.torrent") {
            exchange.answer(200, "OK", folder.read(u"seed/tree.torrent"));
            return;
        }
        const std::string peer{'\x7F', 0, 0, 1, static_cast<char>(port >> 8), static_cast<char>(port)};
        exchange.answer(200, "OK", "d8:intervali900e5:peers6:" + peer + "e");
    }};

  private:
    std::unique_ptr<RunningProgram> peer_;
};

TEST_F(TorrentPeers, ATorrentAndAMagnetLinkBecomeFilesAndSelectedOnesAreAlone) {
    begin(300'000, 777, 150'000);
    const RunResult whole = run({u"get", torrent, u"-d", folder.path(u"x"), u"--json"});
    EXPECT_EQ(whole.status, 0) << whole.err << whole.out;
    EXPECT_TRUE(has_all(u"x/tree"));
    EXPECT_EQ(end_of(whole)["path"], folder.utf8_path("x/tree"));
    EXPECT_EQ(end_of(whole)["size"], 450'777);
    EXPECT_EQ(events(), (std::vector<std::string>{"started", "complet", "stopped"}));

    // What is there belongs to somebody.
    ok({u"get", torrent, u"-d", folder.path(u"x")});
    EXPECT_TRUE(has_all(u"x/tree(1)"));

    const RunResult some = run({u"get", torrent, u"-d", folder.path(u"y"), u"--select", u"3"});
    EXPECT_EQ(some.status, 0) << some.err;
    EXPECT_TRUE(file_has_content(folder.path(u"y/tree/b/d"), 2, 150'000));
    EXPECT_FALSE(folder.has(u"y/tree/a") || folder.has(u"y/tree/b/c") ||
                 folder.has(u"y/tree/.vantlow-parts"));
    EXPECT_EQ(run({u"get", torrent, u"--select", u"9"}).status, 1);

    const RunResult followed = run({u"get", tracker_.url16("/tree.torrent"), u"-d", folder.path(u"w")});
    EXPECT_EQ(followed.status, 0) << followed.err;
    EXPECT_TRUE(has_all(u"w/tree"));
    EXPECT_FALSE(folder.has(u"w/tree.torrent")) << "it gave way";

    const std::string document = folder.read(u"seed/tree.torrent");
    const std::string hash = to_hex(hash_of(info_of_document(std::as_bytes(std::span(document)))));
    const std::string magnet = "magnet:?xt=urn:btih:" + hash + "&dn=wrong&tr.0=" + tracker_.url("/none") +
                               "&x.pe=localhost:" + std::to_string(port);
    const RunResult linked = run({u"get", to_utf16(magnet), u"-d", folder.path(u"z")});
    EXPECT_EQ(linked.status, 0) << linked.err;
    EXPECT_TRUE(has_all(u"z/tree"));
    EXPECT_FALSE(folder.has(u"data/torrents")) << "of a command that files nothing";
}

TEST_F(TorrentPeers, AFinishedTorrentIsSharedAsLongAsIsWantedAndSoIsOneThatIsThere) {
    begin(300'000, 777, 150'000);
    const int whole = port;
    RunningProgram sharing(test::vantlow_program(),
                           {u"get", torrent, u"-d", folder.path(u"x"), u"--seed-ratio", u"1"}, environment());
    const auto until = Clock::now() + std::chrono::seconds(20);
    while (!folder.has(u"x/tree/e") && Clock::now() < until)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    for (const auto& request : tracker_.requests()) {
        const auto at = request.head.target.find("&port=");
        if (request.head.target.find("-VL") == std::string::npos || at == std::string::npos) continue;
        port = std::stoi(request.head.target.substr(at + 6));
    }
    const RunResult other = run({u"get", torrent, u"-d", folder.path(u"y")});
    EXPECT_EQ(other.status, 0) << other.err;
    EXPECT_TRUE(has_all(u"y/tree"));
    const RunResult shared = sharing.wait();
    EXPECT_EQ(shared.status, 0) << shared.err;
    EXPECT_TRUE(has_all(u"x/tree"));

    ok({u"get", torrent, u"-d", folder.path(u"x"), u"--seed-time", u"1s"});
    EXPECT_FALSE(folder.has(u"x/tree(1)")) << "what is there is shared";
    EXPECT_FALSE(folder.has(u"x/tree/.vantlow-parts") || folder.has(u"x/tree.vantlow-job"));
    folder.write(u"x/tree/b/c", std::string(777, 'x'));
    port = whole;
    ok({u"get", torrent, u"-d", folder.path(u"x"), u"--seed-time", u"1s"});
    EXPECT_TRUE(has_all(u"x/tree(1)"));
    EXPECT_EQ(folder.read(u"x/tree/b/c"), std::string(777, 'x')) << "another file";
}

TEST_F(TorrentPeers, AKilledDownloadGoesOnWithWhatWasSafe) {
    begin(6'000'000, 777, 2'000'000, 1'200'000, never);
    const std::vector<std::u16string> get{u"get", torrent, u"-d", folder.path(u"x"), u"--json"};
    {
        RunningProgram first(test::vantlow_program(), get, environment());
        // By then the first state was saved, and the last bytes are seconds away.
        ASSERT_TRUE(wait_until_done(first, 2'500'000)) << first.out();
        first.kill();
        first.wait();
    }
    EXPECT_TRUE(folder.has(u"x/tree/a.vantlow")) << "no name before its time";
    const RunResult second = run(get);
    EXPECT_EQ(second.status, 0) << second.err;
    EXPECT_TRUE(has_all(u"x/tree"));
    EXPECT_EQ(end_of(second)["path"], folder.utf8_path("x/tree"));
    EXPECT_LT(end_of(second)["received"], 7'500'000);
    EXPECT_FALSE(folder.has(u"x/tree.vantlow-job"));
}

TEST_F(TorrentPeers, AKillRightBehindAQuickEndLeadsToTheSameFolder) {
    begin(300'000, 777, 150'000);
    auto resident = serve();
    const std::string id = add({torrent, u"-d", folder.path(u"x"), u"--seed-ratio", u"50"});
    const auto until = Clock::now() + std::chrono::seconds(30);
    const auto has_ended = [&] { return has_all(u"x/tree") && !folder.has(u"x/tree.vantlow-job"); };
    while (!has_ended() && Clock::now() < until) std::this_thread::yield();
    resident->kill();
    resident->wait();
    resident = serve();
    while (state_of(id) != "sharing" && Clock::now() < until)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(state_of(id), "sharing");
    EXPECT_TRUE(has_all(u"x/tree"));
    EXPECT_FALSE(folder.has(u"x/tree(1)")) << "it was fetched once more beside the first one";
}

TEST_F(TorrentPeers, AFiledTorrentIsStoppedGoesOnAndIsRemovedWithItsFilesAlone) {
    begin(6'000'000, 777, 2'000'000, 1'200'000, must_be);
    const std::u16string id = to_utf16(add({torrent, u"-d", folder.path(u"x")}));
    {
        RunningProgram running(test::vantlow_program(), {u"start", id, u"--json"}, environment());
        ASSERT_TRUE(wait_until_done(running, 1'000'000)) << running.out();
        running.terminate();
        running.wait();
    }
    EXPECT_EQ(json::parse(ok({u"show", id, u"--json"}))["path"], folder.utf8_path("x/tree"));
    ok({u"start", id});
    EXPECT_EQ(state_of(to_utf8(id)), "finished");
    EXPECT_TRUE(has_all(u"x/tree"));
    const std::string log = ok({u"log", id});
    EXPECT_NE(log.find("Peer: 127.0.0.1:" + std::to_string(port)), std::string::npos) << log;
    EXPECT_EQ(log.find("0123456789abcdefghij"), std::string::npos) << "a key in the log: " << log;
    EXPECT_NE(log.find("tree; "), std::string::npos) << log;
    EXPECT_NE(log.rfind("tree; "), log.rfind("tree; 0 of")) << "all of it again: " << log;
    EXPECT_TRUE(folder.has(u"data/torrents"));
    folder.write(u"x/tree/mine", "not the torrent's");
    ok({u"remove", id, u"--files"});
    EXPECT_FALSE(folder.has(u"x/tree/a") || folder.has(u"x/tree/b"));
    EXPECT_TRUE(folder.has(u"x/tree/mine"));
    std::vector<FolderEntry> kept;
    ASSERT_TRUE(list_folder(folder.path(u"data/torrents"), kept).ok());
    EXPECT_TRUE(kept.empty());
}

TEST_F(TorrentPeers, WhileItRunsIsKilledOrIsSharedOtherFilesAreChosenAndTrackersChange) {
    begin(4'000'000, 777, 3'000'000, 1'200'000, never);
    auto resident = serve();
    const std::u16string id = to_utf16(add({torrent, u"-d", folder.path(u"x"), u"--select", u"2-3"}));
    const auto files = [&](const std::vector<std::u16string>& wishes = {}) {
        std::vector<std::u16string> words{u"torrent", u"files", id, u"--json"};
        words.insert(words.end(), wishes.begin(), wishes.end());
        return json::parse(ok(words));
    };
    const auto wait_for = [](const auto& is_so) {
        const auto until = Clock::now() + std::chrono::seconds(30);
        while (!is_so() && Clock::now() < until) std::this_thread::sleep_for(std::chrono::milliseconds(50));
        return is_so();
    };
    EXPECT_TRUE(wait_for([&] { return files()[2]["done"] > 500'000; }));
    // What it has of "b/d" is kept, and "b/c", which shares its only piece, is kept aside.
    const json changed = files({u"--select", u"1", u"--priority", u"high=1"});
    EXPECT_EQ(changed[0]["priority"], "high");
    EXPECT_EQ(changed[2]["chosen"], false);
    EXPECT_TRUE(wait_for([&] { return files()[0]["done"] > 500'000; }));
    EXPECT_TRUE(folder.has(u"x/tree/b/d.vantlow") && !folder.has(u"x/tree/b/c.vantlow"));
    EXPECT_EQ(run({u"torrent", u"files", id, u"--priority", u"skip=1"}).status, 1) << "none would be left";
    resident->kill();
    resident->wait();

    resident = serve();
    EXPECT_EQ(files()[0]["priority"], "high") << "kept with the job";
    EXPECT_TRUE(wait_for([&] { return state_of(to_utf8(id)) == "sharing"; }));
    EXPECT_TRUE(file_has_content(folder.path(u"x/tree/a"), 0, 4'000'000));
    EXPECT_FALSE(folder.has(u"x/tree/b/d") || folder.has(u"x/tree/b/c"));

    const auto has_heard = [&](const std::string& what) {
        return wait_for([&] {
            const auto asked = tracker_.requests();
            return std::any_of(asked.begin(), asked.end(), [&](const auto& request) {
                const std::string& target = request.head.target;
                return target.starts_with("/other") && target.find("event=" + what) != std::string::npos;
            });
        });
    };
    const auto trackers = [&](const char16_t* how) {
        return json::parse(
            ok({u"torrent", u"trackers", id, how, tracker_.url16("/other/announce"), u"--json"}));
    };
    trackers(u"--add");
    EXPECT_TRUE(has_heard("started"));
    trackers(u"--remove");
    EXPECT_TRUE(has_heard("stopped"));

    files({u"--select", u""});
    EXPECT_TRUE(wait_for([&] { return has_all(u"x/tree") && state_of(to_utf8(id)) == "sharing"; }));
    EXPECT_LT(json::parse(ok({u"show", id, u"--json"}))["received"], 8'700'000) << "little came twice";
    ok({u"quit"});
    resident->wait();
    EXPECT_FALSE(folder.has(u"x/tree/.vantlow-parts"));
}

TEST_F(TorrentPeers, ItsFilesMoveAndAreRenamedWhileItRunsIsKilledAndIsShared) {
    begin(4'000'000, 777, 1'000'000, 1'500'000, never);
    auto resident = serve();
    const std::u16string id = to_utf16(add({torrent, u"-d", folder.path(u"x"), u"--seed-ratio", u"50"}));
    const auto shown = [&] { return json::parse(ok({u"show", id, u"--json"})); };
    const auto wait_for = [](const auto& is_so) {
        const auto until = Clock::now() + std::chrono::seconds(40);
        while (!is_so() && Clock::now() < until) std::this_thread::sleep_for(std::chrono::milliseconds(50));
        return is_so();
    };
    const auto is_at = [&](const std::string& path) {
        return shown()["path"] == path && !shown().contains("move") && shown()["activity"] != "moving";
    };
    EXPECT_TRUE(wait_for([&] { return shown()["pieces"]["good"] > 5; }));
    folder.write(u"x/tree/mine", "not the torrent's");
    ok({u"move", u"--files", folder.path(u"y/z"), id});
    EXPECT_TRUE(wait_for([&] { return is_at(folder.utf8_path("y/z/tree")); })) << shown();
    EXPECT_TRUE(folder.has(u"x/tree/mine") && !folder.has(u"x/tree/a.vantlow"));
    EXPECT_FALSE(folder.has(u"x/tree.vantlow-job"));
    ok({u"change", u"--output", u"wood", id});
    EXPECT_TRUE(wait_for([&] { return is_at(folder.utf8_path("y/z/wood")); })) << shown();
    EXPECT_TRUE(wait_for([&] {
        const std::string state = state_of(to_utf8(id));
        return state == "running" || state == "sharing";  // on a slow machine it is whole by now
    }));
    resident->kill();
    resident->wait();

    resident = serve();
    EXPECT_TRUE(wait_for([&] { return state_of(to_utf8(id)) == "sharing"; })) << shown();
    EXPECT_TRUE(has_all(u"y/z/wood"));
    EXPECT_LT(shown()["received"], 6'500'000) << "fetched again";
    ASSERT_TRUE(make_folders(folder.path(u"taken")).ok());
    folder.write(u"taken/wood", "another's");
    EXPECT_EQ(run({u"move", u"--files", folder.path(u"taken"), id}).status, 1);
    ok({u"move", u"--files", folder.path(u"x"), id});
    EXPECT_TRUE(wait_for([&] {
        return is_at(folder.utf8_path("x/wood")) && state_of(to_utf8(id)) == "sharing";
    })) << shown();
    EXPECT_TRUE(has_all(u"x/wood"));
    EXPECT_FALSE(folder.has(u"y/z/wood"));
    ok({u"change", u"--output", u"tree 2", id});
    EXPECT_TRUE(wait_for([&] {
        return is_at(folder.utf8_path("x/tree 2")) && state_of(to_utf8(id)) == "sharing";
    })) << shown();
    EXPECT_TRUE(wait_for([&] { return shown()["phase"] == "sharing"; }));

    // Somebody takes the files away.
    ASSERT_TRUE(rename_no_replace(folder.path(u"x/tree 2"), folder.path(u"x/away")).ok());
    EXPECT_TRUE(wait_for([&] { return state_of(to_utf8(id)) == "failed"; })) << shown();
    EXPECT_NE(std::string(shown()["error"]).find("not there any more"), std::string::npos);
    EXPECT_TRUE(has_all(u"x/away"));
}

TEST_F(TorrentPeers, WhatAPieceHasOfFilesThatAreNotChosenIsKeptAfterAKillAndUsedWhenTheyAre) {
    begin(300'000, 777, 150'000);
    auto resident = serve();
    const std::u16string id = to_utf16(add({torrent, u"-d", folder.path(u"x"), u"--select", u"1"}));
    const auto shown = [&] { return json::parse(ok({u"show", id, u"--json"})); };
    const auto expect_shared = [&](const char* when, const std::u16string& has) {
        const auto until = Clock::now() + std::chrono::seconds(30);
        const auto is_so = [&] { return state_of(to_utf8(id)) == "sharing" && folder.has(has); };
        while (!is_so() && Clock::now() < until) std::this_thread::sleep_for(std::chrono::milliseconds(50));
        const json now = shown();
        // The last one has bytes of all three files.
        EXPECT_EQ(now["pieces"]["good"], 19) << when << now;
        EXPECT_LT(now["received"], 330'000) << when << ": nothing came twice";
        EXPECT_TRUE(folder.has(u"x/tree/.vantlow-parts")) << when;
    };
    const auto restart = [&] {
        resident->kill();
        resident->wait();
        resident = serve();
    };
    expect_shared("fetched", u"x/tree/a");
    restart();
    expect_shared("after a kill", u"x/tree/a");
    EXPECT_EQ(shown()["document"]["createdBy"], "Vantlow/2.95") << "the document is kept whole";
    ok({u"torrent", u"files", id, u"--select", u"1-2"});
    expect_shared("one more is chosen", u"x/tree/b/c");
    EXPECT_TRUE(file_has_content(folder.path(u"x/tree/b/c"), 1, 777));
    ok({u"torrent", u"files", id, u"--select", u"1"});
    restart();
    expect_shared("and not any more", u"x/tree/a");
    EXPECT_FALSE(folder.has(u"x/tree/b/d"));
    ok({u"quit"});
    resident->wait();
}

TEST_F(TorrentPeers, AFiledTorrentIsSharedByTheResidentProgramUntilItsRatioAlsoAfterARestart) {
    begin(900'000, 777, 150'000, 150'000);
    auto resident = serve();
    const std::u16string id = to_utf16(add({torrent, u"-d", folder.path(u"x"), u"--seed-ratio", u"2"}));
    const auto ask = [&](const char16_t* side) { return json::parse(ok({u"torrent", side, id, u"--json"})); };
    const auto shown = [&] { return json::parse(ok({u"show", id, u"--json"})); };
    const auto wait_for = [&](const std::string& state) {
        const auto until = Clock::now() + std::chrono::seconds(20);
        while (state_of(to_utf8(id)) != state && Clock::now() < until)
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        return state_of(to_utf8(id));
    };
    const auto get_from_it = [&](const char16_t* to) {
        for (const auto& request : tracker_.requests()) {
            const auto at = request.head.target.find("&port=");
            if (request.head.target.find("-VL") == std::string::npos || at == std::string::npos) continue;
            port = std::stoi(request.head.target.substr(at + 6));
        }
        ok({u"get", torrent, u"-d", folder.path(to)});
        EXPECT_TRUE(has_all(to + std::u16string(u"/tree")));
    };

    const auto until = Clock::now() + std::chrono::seconds(20);
    while (shown()["pieces"]["good"] == 0 && Clock::now() < until)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    const json peers = ask(u"peers");
    ASSERT_EQ(peers.size(), 1U);
    EXPECT_EQ(ask(u"pieces")["availability"][0], 1);
    EXPECT_TRUE(peers[0]["seed"] && peers[0]["encrypted"] && !peers[0]["incoming"]) << peers;
    EXPECT_NE(std::string(peers[0]["client"]).find("libtorrent"), std::string::npos);
    EXPECT_EQ(ask(u"trackers")[0]["state"], "works");
    EXPECT_EQ(ask(u"trackers").dump().find("0123456789abcdefghij"), std::string::npos) << "a key";
    const json files = ask(u"files");
    ASSERT_EQ(files.size(), 4U);
    EXPECT_EQ(files[0]["path"], folder.utf8_path("x/tree/a"));
    EXPECT_LT(files[0]["done"], 900'000);

    EXPECT_EQ(wait_for("sharing"), "sharing");
    EXPECT_EQ(ask(u"files")[0]["done"], 900'000);
    EXPECT_EQ(json::parse(ok({u"torrent", u"check", id, u"--json"})),
              json::parse(R"({"pieces":65,"good":65,"bytes":1050777})"));
    const int whole = port;
    ok({u"limit", u"--up", u"400K"});
    std::this_thread::sleep_for(std::chrono::milliseconds(1200));  // it holds within a second
    const auto began = Clock::now();
    get_from_it(u"y");
    EXPECT_GT(Clock::now() - began, std::chrono::milliseconds(2300)) << "1,050,777 bytes";
    ok({u"limit", u"--up", u"off"});
    EXPECT_EQ(state_of(to_utf8(id)), "sharing") << "sent once";
    ok({u"quit"});
    EXPECT_EQ(resident->wait().status, 0);
    EXPECT_EQ(state_of(to_utf8(id)), "finished");
    EXPECT_GE(shown()["sent"], 1'050'777);
    EXPECT_EQ(json::parse(ok({u"torrent", u"check", torrent, u"-d", folder.path(u"x"), u"--json",
                              u"--data-dir", folder.path(u"none")}))["bytes"],
              1'050'777);

    resident = serve();
    EXPECT_EQ(wait_for("sharing"), "sharing");
    while (shown()["phase"] != "sharing" && Clock::now() < until)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    get_from_it(u"z");
    EXPECT_EQ(wait_for("finished"), "finished") << "sent twice";
    EXPECT_GE(shown()["ratio"], 2.0);

    ok({u"start", id});
    EXPECT_EQ(wait_for("sharing"), "sharing") << "as a person wants it";
    ok({u"stop", id});
    EXPECT_EQ(state_of(to_utf8(id)), "finished");
    folder.write(u"x/tree/b/d", std::string(150'000, 'x'));
    port = whole;
    ok({u"start", id});
    EXPECT_EQ(wait_for("failed"), "failed");
    EXPECT_NE(std::string(shown()["error"]).find("pieces are missing or were changed"), std::string::npos);
    EXPECT_EQ(folder.read(u"x/tree/b/d"), std::string(150'000, 'x'));
    ok({u"check", id});
    EXPECT_EQ(wait_for("sharing"), "sharing") << "as a person wanted it before";
    EXPECT_TRUE(has_all(u"x/tree")) << "what was wrong is fetched again";
    EXPECT_FALSE(folder.has(u"x/tree(1)") || folder.has(u"x/tree.vantlow-job"));
    ok({u"quit"});
    resident->wait();
}

}  // namespace
}  // namespace vantlow
