// Servers that have a torrent's files, in place of its peers.
#include "bt/web/web_seed.h"
#include "base/text.h"
#include "store_run.h"
#include "support/file_server.h"
#include "support/scripted_server.h"

namespace vantlow {
namespace {

using test::FileResource;
using test::RunResult;

TEST(WebSeedAddress, IsTheFilesOwnAndNoOrderToAPrivateMachine) {
    TorrentContent one;
    one.name = u"a b#.bin";
    one.files = {{one.name, 5}};
    TorrentContent many;
    many.name = u"ü";
    many.is_folder = true;
    many.files = {{u"x?\\y%.bin", 5}};
    EXPECT_EQ(web_seed_address("http://h/f", one, 0), "http://h/f");
    EXPECT_EQ(web_seed_address("http://h/f/", one, 0), "http://h/f/a%20b%23.bin");
    EXPECT_EQ(web_seed_address("http://h/f", many, 0), "http://h/f/%C3%BC/x%3F/y%25.bin");
    one.piece_length = 10;
    const std::string zeros = "%00%00%00%00%00%00%00%00%00%00%00%00%00%00%00%00%00%00%00%00";
    EXPECT_EQ(piece_seed_address("http://h/s?a=b", one, 23, 27),
              "http://h/s?a=b&info_hash=" + zeros + "&piece=2&ranges=3-6");
    for (const char* good : {"http://h/", "HTTPS://h/a?b=c", "http://127.0.0.1:8/f", "http://8.8.8.8/a?b"})
        EXPECT_TRUE(is_web_seed(good)) << good;
    for (const char* bad :
         {"ftp://h/", "h/f", "http://", "http://localhost/a?b", "http://192.168.1.1/a?reboot",
          "http://[::1]/a?b", "http://[fd00::1]/?b", "http://[::ffff:127.0.0.1]/a?b", "file:///etc/passwd"})
        EXPECT_FALSE(is_web_seed(bad)) << bad;
}

/// A torrent of three files with pieces of 32 KiB, and two servers that may have them.
class WebSeeds : public test::StoreRun {
  protected:
    void SetUp() override {
        ASSERT_TRUE(make_folders(folder.path(u"seed/tree/b c")).ok());
        for (std::size_t i = 0; i < names.size(); ++i)
            folder.write(u"seed/tree/" + names[i], test::make_content(i, sizes[i]));
        ok({u"torrent", u"make", folder.path(u"seed/tree"), u"--piece-length", u"32K", u"-q"});
        serve(good, {});
    }
    void serve(test::FileServer& server, const FileResource& like, std::size_t first_content = 0) {
        for (std::size_t i = 0; i < names.size(); ++i) {
            FileResource resource = like;
            resource.content = test::make_content(first_content + i, sizes[i]) + like.content;
            server.set("/tree/" + paths[i], resource);
        }
    }
    /// Fetches the torrent with these servers named in its document, which ends with the dictionary's "e".
    RunResult get(const std::vector<std::string>& seeds, const std::u16string& into,
                  const std::string& key = "8:url-list") {
        std::string document = folder.read(u"seed/tree.torrent");
        document.pop_back();
        document += key + "l";
        for (const std::string& seed : seeds) document += std::to_string(seed.size()) + ":" + seed;
        // Nobody else is asked.
        return run({u"--set", u"Torrent/DHT=0", u"--set", u"Torrent/LSD=0", u"--set",
                    u"Torrent/PortMapping=0", u"--set", u"Torrent/DefaultTrackers=", u"--set",
                    u"Torrent/DefaultTracker=", u"get", folder.write(u"with.torrent", document + "ee"), u"-d",
                    folder.path(into), u"-v"});
    }
    testing::AssertionResult has_all(const std::u16string& below) const {
        for (std::size_t i = 0; i < names.size(); ++i) {
            const auto size = static_cast<std::int64_t>(sizes[i]);
            auto same = test::file_has_content(folder.path(below + u"/tree/" + names[i]), i, size);
            if (!same) return same;
        }
        return testing::AssertionSuccess();
    }

    const std::array<std::u16string, 3> names{u"a#%.bin", u"b c/e", u"b c/\u00FC"};
    const std::array<std::string, 3> paths{"a%23%25.bin", "b%20c/e", "b%20c/%C3%BC"};
    const std::array<std::size_t, 3> sizes{1'000'000, 10, 300'000};
    test::FileServer good;
    test::FileServer bad;
};

TEST_F(WebSeeds, GiveEverythingInRowsOfBytes) {
    const RunResult whole = get({good.url("/")}, u"x");
    EXPECT_EQ(whole.status, 0) << whole.err << whole.out;
    EXPECT_TRUE(has_all(u"x"));
    EXPECT_LT(good.server().body_sent(), 1'500'000) << "hardly anything was sent for nothing";
    EXPECT_LT(good.server().request_count(), 20U) << "of 40 pieces, those in a row at once";
}

TEST_F(WebSeeds, ThatAreOfNoUseAreLeftAndTheOthersGiveTheFile) {
    FileResource gone;
    gone.status = 404;
    FileResource whole_only;
    whole_only.ignore_range = true;
    FileResource longer;
    longer.content = "more";
    FileResource shifted;
    shifted.range_shift = 1;
    FileResource cut;
    cut.close_after = 1000;
    const struct {
        const char* what;
        FileResource like;
        std::size_t first_content;
        const char* said;
    } cases[] = {
        {"refused", gone, 0, "The server answered \"404"},
        {"no ranges", whole_only, 0, "The server does not give parts of its files."},
        {"another size", longer, 0, "The file at the server has another size."},
        {"another range", shifted, 0, "The server gives other bytes than those it was asked for."},
        {"cut off", cut, 0, "is left for some time: The server's answer broke off."},
        {"other bytes", {}, 7, "gave wrong data and is left."},
    };
    for (const auto& c : cases) {
        serve(bad, c.like, c.first_content);
        // By chance a row begins with the file, and one without ranges is as good as any then.
        bool is_said = false;
        for (int tries = 0; tries < 4 && !is_said; ++tries) {
            const std::u16string into = to_utf16(c.what + std::to_string(tries));
            const RunResult result = get({bad.url("/"), good.url("/")}, into);
            EXPECT_EQ(result.status, 0) << c.what << result.err;
            EXPECT_TRUE(has_all(into)) << c.what;
            is_said = (result.out + result.err).find(c.said) != std::string::npos;
        }
        EXPECT_TRUE(is_said) << c.what;
    }
}

TEST_F(WebSeeds, AScriptGivesPartsOfPiecesAndIsAskedAgainWhenItWantsToBe) {
    std::string all;
    for (std::size_t i = 0; i < sizes.size(); ++i) all += test::make_content(i, sizes[i]);
    std::atomic<int> busy{2};
    test::ScriptedServer script([&](test::Exchange& exchange) {
        const std::string target = exchange.request().target;
        const auto number = [&](const char* behind) {
            const auto at = target.find(behind);
            return at == std::string::npos ? 0 : std::stoul(target.substr(at + std::strlen(behind)));
        };
        if (target.starts_with("/script") && busy-- > 0) {
            exchange.answer(503, "Busy", "1");
            return;
        }
        const std::size_t from = number("ranges=");
        const std::size_t to = std::stoul(target.substr(target.find('-', target.find("ranges=")) + 1));
        const std::size_t longer = target.starts_with("/longer") ? 1 : 0;
        exchange.answer(200, "OK", all.substr(number("&piece=") * 32768 + from, to + 1 - from + longer));
    });
    const RunResult result = get({script.url("/longer"), script.url("/script")}, u"x", "9:httpseeds");
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(has_all(u"x"));
    const std::string said = result.out + result.err;
    EXPECT_NE(said.find("is left for some time: The server answered \"503"), std::string::npos) << said;
    EXPECT_NE(said.find("is left: The server gives other bytes"), std::string::npos) << said;
    const std::string last = script.requests().back().head.target;
    EXPECT_TRUE(last.starts_with("/script?info_hash=%") && last.find("&piece=") != std::string::npos) << last;
    EXPECT_LT(script.requests().size(), 100U) << "of 40 pieces, no block alone";
}

}  // namespace
}  // namespace vantlow
