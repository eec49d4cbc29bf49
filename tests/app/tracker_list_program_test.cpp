// A published list of trackers, from its server to the peers that they name, by the program itself.
#include <nlohmann/json.hpp>

#include "base/codes.h"
#include "bt/torrent_content.h"
#include "platform/folder.h"
#include "store_run.h"
#include "support/scripted_server.h"
#include "support/unix_program.h"
#include "support/unix_server.h"

namespace vantlow {
namespace {

using nlohmann::json;
using test::RunningProgram;

/// Two torrents of the same bytes whose own tracker is gone, the second one a private one; a list that names
/// one real tracker, and one that only listens.
class TrackerListProgram : public test::StoreRun {
  protected:
    void SetUp() override {
        const std::u16string program = test::unix_program("opentracker");
        if (program.empty()) GTEST_SKIP() << "opentracker is missing";
        ASSERT_TRUE(make_folders(folder.path(u"seed")).ok());
        folder.write(u"seed/data", test::make_content(1, 100'000));
        ok({u"torrent", u"make", folder.path(u"seed/data"), u"--tracker", u"http://127.0.0.1:1/gone", u"-q"});
        std::string document = folder.read(u"seed/data.torrent");
        const std::string hash = hash_text(document);
        const auto info = document.find("4:infod");
        ASSERT_NE(info, std::string::npos);
        document.insert(info + 7, "7:privatei1e");
        folder.write(u"private.torrent", document);
        private_hash = hash_text(document);
        const std::uint16_t port = test::closed_port();
        const std::string address = "127.0.0.1:" + std::to_string(port);
        const std::u16string white = folder.write(u"white", hash + "\n" + private_hash + "\n");
        const std::u16string config =
            folder.write(u"ot.conf", "listen.tcp " + address + "\nlisten.udp " + address +
                                         "\naccess.whitelist " + test::unix_path(white) + "\n");
        tracker_ = std::make_unique<RunningProgram>(program, std::vector<std::u16string>{u"-f", config},
                                                    test::RunOptions{.folder = folder.path()});
        ASSERT_TRUE(test::wait_until_it_accepts(*tracker_, port)) << tracker_->err();
        list = "udp://" + address + "/announce\n" + listening.url("/announce") + "\n";
        folder.write(u"settings.ini", "[Torrent]\nDHT=0\nLSD=0\nPortMapping=0\nTrackerList=" +
                                          publisher.url("/list.txt") + "\n");
    }
    static std::string hash_text(const std::string& document) {
        return to_hex(hash_of(info_of_document(std::as_bytes(std::span(document)))));
    }
    template <class Holds>
    static bool until(const Holds& holds) {
        const auto end = Clock::now() + std::chrono::seconds(30);
        while (!holds() && Clock::now() < end) std::this_thread::sleep_for(std::chrono::milliseconds(50));
        return holds();
    }
    /// The announces that the listed tracker has heard with these words in it.
    [[nodiscard]] std::size_t heard(const std::string& words) const {
        const auto requests = listening.requests();
        return static_cast<std::size_t>(std::ranges::count_if(requests, [&](const auto& request) {
            return request.head.target.find(words) != std::string::npos;
        }));
    }
    std::unique_ptr<RunningProgram> start(const std::vector<std::u16string>& words) const {
        return std::make_unique<RunningProgram>(test::vantlow_program(), words, environment());
    }

    std::string list, private_hash;
    test::ScriptedServer listening{
        [](test::Exchange& exchange) { exchange.answer(200, "OK", "d8:intervali900e5:peers0:e"); }};
    test::ScriptedServer publisher{[this](test::Exchange& exchange) { exchange.answer(200, "OK", list); }};

  private:
    std::unique_ptr<RunningProgram> tracker_;
};

TEST_F(TrackerListProgram, PublicTorrentsFindTheirPeersByItAndPrivateOnesAreNotTold) {
    const auto giver =
        start({u"get", folder.path(u"seed/data.torrent"), u"--seed", u"-d", folder.path(u"seed")});
    EXPECT_TRUE(until([&] { return heard("event=started") == 1; })) << giver->err();
    auto resident = start({u"serve", u"--foreground"});
    ASSERT_TRUE(resident->wait_for_output("is running")) << resident->err();
    const std::string secret = add({folder.path(u"private.torrent"), u"-d", folder.path(u"y")});
    const std::u16string id =
        to_utf16(add({folder.path(u"seed/data.torrent"), u"-d", folder.path(u"x"), u"--seed-ratio", u"100"}));
    EXPECT_TRUE(until([&] { return state_of(to_utf8(id)) == "sharing"; })) << ok({u"log", id});
    EXPECT_TRUE(test::file_has_content(folder.path(u"x/data"), 1, 100'000));
    const json trackers = json::parse(ok({u"torrent", u"trackers", id, u"--json"}));
    ASSERT_EQ(trackers.size(), 3U) << trackers;
    EXPECT_EQ(trackers[0]["listed"], false);
    EXPECT_EQ(trackers[2]["tracker"], listening.url("/announce"));
    EXPECT_TRUE(trackers[1]["listed"] && trackers[2]["listed"] && trackers[2]["tier"] == 2);
    EXPECT_NE(run({u"torrent", u"trackers", id, u"--remove", u"2"}).err.find("Torrent/TrackerList"),
              std::string::npos);
    // A tracker that a person adds stands in front of them.
    const std::u16string own = listening.url16("/own/announce");
    const json more = json::parse(ok({u"torrent", u"trackers", id, u"--add", own, u"--json"}));
    EXPECT_TRUE(until([&] {
        const json now = json::parse(ok({u"torrent", u"trackers", id, u"--json"}));
        return now.size() == 4 && now[1]["tracker"] == to_utf8(own) && now[1]["listed"] == false;
    })) << more;
    EXPECT_NE(ok({u"log", id}).find("2; 0 more are left out"), std::string::npos) << ok({u"log", id});
    EXPECT_EQ(publisher.request_count(), 2U) << "the other program keeps none";

    ok({u"quit"});
    resident->wait();
    resident = start({u"serve", u"--foreground"});
    ASSERT_TRUE(resident->wait_for_output("is running")) << resident->err();
    EXPECT_TRUE(until([&] { return json::parse(ok({u"torrent", u"trackers", id, u"--json"})).size() == 4; }));
    EXPECT_EQ(publisher.request_count(), 2U) << "kept over the restart";
    const std::size_t goodbyes = heard("event=stopped");
    ok({u"settings", u"set", u"Torrent/TrackerList", u""});
    EXPECT_TRUE(until([&] { return heard("event=stopped") > goodbyes; })) << "taken back";
    EXPECT_TRUE(until([&] { return json::parse(ok({u"torrent", u"trackers", id, u"--json"})).size() == 2; }));

    EXPECT_NE(ok({u"log", to_utf16(secret)}).find("/gone"), std::string::npos) << "it ran";
    std::string escaped;
    for (std::size_t i = 0; i < private_hash.size(); i += 2) escaped += "%" + private_hash.substr(i, 2);
    std::ranges::transform(escaped, escaped.begin(), [](char c) { return c >= 'a' ? c - 32 : c; });
    EXPECT_EQ(heard(escaped), 0U);
    ok({u"quit"});
    resident->wait();
    giver->terminate();
    giver->wait();
}

}  // namespace
}  // namespace vantlow
