// Torrents as the user meets them: the program, a tracker, a folder.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "base/text.h"
#include "support/process_run.h"
#include "support/scripted_server.h"
#include "support/temp_folder.h"

namespace vantlow {
namespace {

using nlohmann::json;
using test::Exchange;
using test::run_vantlow;
using test::ScriptedServer;

/// A tracker that knows one peer, and a torrent that names it.
struct TorrentWorld {
    TorrentWorld()
        : tracker([](Exchange& exchange) {
              exchange.answer(200, "OK",
                              "d8:intervali900e5:peers6:\x7F\x01\x02\x03\x1A\xE1"
                              "e");
          }) {
        folder.write(u"settings.ini", "[Torrent]\nDHT=0\nLSD=0\nPortMapping=0\n");
        const test::RunResult made =
            run_vantlow({u"torrent", u"make", folder.write(u"data ä.bin", std::string(50000, 'x')),
                         u"--tracker", tracker.url16("/0123456789abcdefghij/announce"), u"-q"});
        EXPECT_EQ(made.status, 0) << made.err;
    }
    test::RunResult run(std::vector<std::u16string> words) {
        words.insert(words.begin(),
                     {u"--settings", folder.path(u"settings.ini"), u"--data-dir", folder.path(u"data")});
        return run_vantlow(words, {.folder = folder.path()});
    }
    [[nodiscard]] std::vector<std::string> events() const {
        std::vector<std::string> list;
        for (const auto& request : tracker.requests()) {
            const std::string& target = request.head.target;
            if (target.find("/scrape?") != std::string::npos) continue;
            const auto at = target.find("&event=");
            list.push_back(at == std::string::npos ? "" : target.substr(at + 7, 7));
        }
        return list;
    }

    test::TempFolder folder;
    ScriptedServer tracker;
    std::u16string torrent = folder.path(u"data ä.bin.torrent");
};

TEST(TorrentProgram, GetSaysWhatItWaitsForAndKeepsKeysSecret) {
    TorrentWorld world;
    const test::RunResult result = world.run({u"get", world.torrent, u"--give-up-after", u"1s"});
    EXPECT_EQ(result.status, 4);
    EXPECT_NE(result.err.find("None of the known peers can be reached."), std::string::npos) << result.err;
    EXPECT_EQ(result.err.find("0123456789abcdefghij"), std::string::npos)
        << "a key on the terminal: " << result.err;
    EXPECT_EQ(world.events(), (std::vector<std::string>{"started", "stopped"}));

    const test::RunResult magnet = world.run({u"get", u"magnet:?xt=urn:btih:123"});
    EXPECT_EQ(magnet.status, 1);
    EXPECT_NE(magnet.err.find("no info hash"), std::string::npos) << magnet.err;
    // Of the second version, and without the digest of its file.
    const std::u16string second = world.folder.write(
        u"second.torrent",
        "d4:infod9:file treed1:ad0:d6:lengthi5eeee12:meta versioni2e4:name1:a12:piece lengthi16384eee");
    const test::RunResult refused = world.run({u"get", second});
    EXPECT_EQ(refused.status, 1);
    EXPECT_NE(refused.err.find("not a torrent"), std::string::npos) << refused.err;
}

TEST(TorrentProgram, ATorrentWithoutTrackersGetsTheOneOfTheSettings) {
    TorrentWorld world;
    const std::string info =
        "4:infod6:lengthi1e4:name1:a12:piece lengthi16384e6:pieces20:aaaaaaaaaaaaaaaaaaaa";
    const struct {
        std::string document;
        std::vector<std::string> trackers;
    } cases[] = {
        {"d" + info + "ee", {"http://one/a"}},
        {"d8:announce0:" + info + "ee", {}},
        {"d" + info + "7:privatei1eee", {}},
        {"d8:announce10:http://b/c" + info + "7:privatei1eee", {"http://b/c"}},
    };
    for (const auto& c : cases) {
        const test::RunResult added = world.run({u"--set", u"Torrent/DefaultTracker=http://one/a", u"add",
                                                 u"--paused", world.folder.write(u"x.torrent", c.document)});
        ASSERT_EQ(added.status, 0) << added.err;
        const std::u16string id = to_utf16(added.out.substr(0, added.out.find_first_of("\r\n")));
        const json shown = json::parse(world.run({u"torrent", u"trackers", id, u"--json"}).out);
        std::vector<std::string> trackers;
        for (const json& one : shown) trackers.push_back(one["tracker"]);
        EXPECT_EQ(trackers, c.trackers) << c.document;
        world.run({u"remove", id});
    }
}

TEST(TorrentProgram, AnnounceTellsEachTrackersAnswer) {
    TorrentWorld world;
    const test::RunResult result =
        world.run({u"torrent", u"announce", world.torrent, u"--event", u"completed", u"--json"});
    EXPECT_EQ(result.status, 0) << result.err;
    const json answer = json::parse(result.out);
    ASSERT_EQ(answer.size(), 1U);
    EXPECT_EQ(answer[0]["ok"], true);
    EXPECT_EQ(answer[0]["interval"], 900);
    EXPECT_EQ(answer[0]["peers"], json::array({"127.1.2.3:6881"}));
    EXPECT_EQ(answer[0]["failure"], nullptr);
    const std::string target = world.tracker.requests().at(0).head.target;
    EXPECT_NE(target.find("&downloaded=50000&left=0&"), std::string::npos) << target;
    world.tracker.set_handler(
        [](Exchange& exchange) { exchange.answer(200, "OK", "d14:failure reason4:nopee"); });
    const test::RunResult refused = world.run({u"torrent", u"announce", world.torrent, u"--json"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(json::parse(refused.out)[0]["failure"], "nope");
    EXPECT_EQ(world.run({u"torrent", u"announce", world.torrent, u"--event", u"x"}).status, 2);
}

TEST(TorrentProgram, ScrapeTellsTheCountsWithoutADataFolder) {
    TorrentWorld world;
    const std::string hash = "\x01\x23\x45\x67\x89\xAB\xCD\xEF" + std::string(12, 'h');
    world.tracker.set_handler([hash](Exchange& exchange) {
        exchange.answer(200, "OK",
                        "d5:filesd20:" + hash + "d8:completei3e10:downloadedi5e10:incompletei4eeee");
    });
    const test::RunResult result = world.run(
        {u"--set", u"Torrent/DefaultTrackers=", u"--set", u"Torrent/DefaultTracker=", u"torrent", u"scrape",
         u"magnet:?xt=urn:btih:0123456789abcdef686868686868686868686868&tr=" +
             world.tracker.url16("/announce"),
         u"--json"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
    const json answer = json::parse(result.out);
    ASSERT_EQ(answer.size(), 1U);
    EXPECT_EQ(answer[0]["seeders"], 3);
    EXPECT_EQ(answer[0]["leechers"], 4);
    EXPECT_EQ(answer[0]["completed"], 5);
}

TEST(TorrentProgram, ShowAndLinkTellWhatAMagnetLinkSays) {
    TorrentWorld world;
    const std::u16string link =
        u"magnet:?xt=urn:btih:AERUKZ4JVPG67K6N54ASGRLHRGV433YB&dn=a%20b&tr=http%3A%2F%2Fx&tr.0=http://y";
    const json shown = json::parse(world.run({u"torrent", u"show", link, u"--json"}).out);
    EXPECT_EQ(shown["infoHash"], "0123456789abcdefabcdef0123456789abcdef01");
    EXPECT_EQ(shown["trackers"], json::array({"http%3A%2F%2Fx", "http://y"}));
    const json told = json::parse(world.run({u"link", link, u"--json"}).out);
    EXPECT_EQ(told["magnet"]["hash"], shown["infoHash"]);
    EXPECT_EQ(told["magnet"]["name"], "a%20b");
    const test::RunResult torrent = world.run({u"torrent", u"show", world.torrent, u"--json"});
    const json file = json::parse(torrent.out);
    EXPECT_EQ(file["utf8"], true);
    EXPECT_EQ(file["pieces"], 4);
    EXPECT_EQ(file["files"], json::parse(R"([{"path": "data ä.bin", "size": 50000}])"));
    EXPECT_EQ(world.run({u"torrent", u"show", world.folder.path(u"data ä.bin")}).status, 1);
}

}  // namespace
}  // namespace vantlow
