// Lists of trackers: their lines, and how one is fetched, kept and renewed.
#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include "base/text.h"
#include "bt/torrent_settings.h"
#include "bt/tracker_list_keeper.h"
#include "support/scripted_server.h"
#include "support/temp_folder.h"

namespace vantlow {
namespace {

using namespace std::chrono_literals;
using test::Exchange;
using test::ScriptedServer;

TEST(TrackerListTest, TakesLinesThatNameTrackersAndNothingThatIsNoList) {
    std::string many;
    for (int i = 0; i < 40; ++i) many += "udp://t" + std::to_string(i) + ".example:1/a\n\n";
    std::vector<std::string> first;
    for (std::size_t i = 0; i < TrackerList::most_trackers; ++i)
        first.push_back("udp://t" + std::to_string(i) + ".example:1/a");
    const struct {
        std::string text;
        std::vector<std::string> trackers;  ///< empty: it is no list
        std::size_t left_out = 0, bad_lines = 0;
    } rows[] = {
        {"\xEF\xBB\xBFhttp://a/announce\r\n\r\n \t# a remark\n  udp://b:1\\x \nHTTPS://c\nhttp://a/announce",
         {"http://a/announce", "udp://b:1/x", "HTTPS://c/"}},
        {"wss://a/\nws://b/\nudp://c:1/\nnonsense\n", {"udp://c:1/"}, 2, 1},
        {"udp://a:1/\nftp://b/\n", {"udp://a:1/"}, 0, 1},
        {many, first, 8},
        {"", {}},
        {"# nothing but a remark", {}},
        {"wss://a/", {}},
        {"udp://a:1/\none\ntwo", {}},
        {"udp://a:1/ udp://b:1/", {}},
        {"<!DOCTYPE html>\n<html>\n<a href=\"udp://a:1/\">\nudp://a:1/\n</html>", {}},
        {std::string("udp://a:1/\n") + std::string(TrackerList::longest_text, '\n'), {}},
        {std::string(3000, '\0') + "\nhttp://" + std::string(3000, 'a'), {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text.substr(0, 60));
        const auto list = read_tracker_list(row.text);
        ASSERT_EQ(list.ok(), !row.trackers.empty());
        if (!list) {
            EXPECT_FALSE(list.failure().message().empty());
            continue;
        }
        EXPECT_EQ(list->trackers, row.trackers);
        EXPECT_EQ(list->left_out, row.left_out);
        EXPECT_EQ(list->bad_lines, row.bad_lines);
    }
}

TEST(TrackerListTest, AKeptListIsReadAgainAndFreshForADay) {
    const KeptTrackerList kept{"http://h/list from b", 1000, {{"udp://a:1/", "http://b/"}, 0, 0}};
    const auto read = read_kept_tracker_list(text_of(kept));
    ASSERT_TRUE(read);
    EXPECT_EQ(read->address, kept.address);
    EXPECT_EQ(read->list, kept.list);
    EXPECT_TRUE(read->is_fresh(kept.address, 1000, 60) && read->is_fresh(kept.address, 1059, 60));
    EXPECT_FALSE(read->is_fresh(kept.address, 1060, 60) || read->is_fresh(kept.address, 999, 60) ||
                 read->is_fresh("http://h/list", 1000, 60));
    for (const char* const text : {"", "udp://a:1/\n", "# Trackers, fetched x from http://h/\nudp://a:1/\n",
                                   "# Trackers, fetched 1000 from http://h/\n"})
        EXPECT_FALSE(read_kept_tracker_list(text)) << text;
}

/// A server with a list, and whoever keeps it.
class TrackerListKeeping : public testing::Test {
  protected:
    std::unique_ptr<TrackerListKeeper> keeper(TrackerListKeeper::Times times, bool keeps = true) {
        return std::make_unique<TrackerListKeeper>(settings, connections, libraries, threads, stop,
                                                   folder.path(), keeps, times);
    }
    void set(const std::string& address) {
        settings.override_value(setting::tracker_list.section, setting::tracker_list.key, to_utf16(address));
    }
    static HttpErrand errand() {
        HttpErrand made;
        made.timeout = 5s;
        made.with_cookies = false;
        return made;
    }
    template <class Holds>
    bool until(TrackerListKeeper& of, const Holds& holds) {
        const auto end = Clock::now() + 20s;
        while (Clock::now() < end) {
            const auto state = of.current(errand);
            if (state ? holds(*state) : holds(TrackerListKeeper::State())) return true;
            std::this_thread::sleep_for(10ms);
        }
        return false;
    }
    static auto has(std::vector<std::string> trackers) {
        return [trackers = std::move(trackers)](const auto& state) {
            return state.list.trackers == trackers && state.failure.empty();
        };
    }
    static auto fails(std::vector<std::string> trackers, std::string why) {
        return [trackers = std::move(trackers), why = std::move(why)](const auto& state) {
            return state.list.trackers == trackers && state.failure.find(why) != std::string::npos;
        };
    }

    test::TempFolder folder;
    Settings settings;
    LibraryTables libraries;
    ConnectionServices connections;
    ThreadPool threads;
    StopSource stop;
    ScriptedServer server{[](Exchange& exchange) { exchange.answer(200, "OK", "udp://a:1/x\n"); }};
};

TEST_F(TrackerListKeeping, ItIsFetchedOnceADayWhicheverProgramAsks) {
    {
        const auto one = keeper({});
        EXPECT_EQ(one->current(errand), nullptr) << "none is wanted";
        set(server.url("/list"));
        EXPECT_TRUE(until(*one, has({"udp://a:1/x"})));
        std::this_thread::sleep_for(50ms);
        EXPECT_TRUE(has({"udp://a:1/x"})(*one->current(errand)));
    }
    // One that must not keep any uses what is there, and is content with it.
    EXPECT_TRUE(until(*keeper({}, false), has({"udp://a:1/x"})));
    EXPECT_EQ(server.request_count(), 1U);
    const auto again = keeper({.lasts = 1s, .again = 1s});
    server.set_handler([](Exchange& exchange) { exchange.answer(200, "OK", "udp://b:1/x\n"); });
    EXPECT_TRUE(until(*again, has({"udp://b:1/x"})));
    set(server.url("/other"));
    EXPECT_EQ(again->current(errand), nullptr) << "that of another address is not used meanwhile";
    EXPECT_TRUE(until(*again, has({"udp://b:1/x"})));
    set("");
    EXPECT_EQ(again->current(errand), nullptr);
}

TEST_F(TrackerListKeeping, ABadListLeavesTheOldOneAndIsSaid) {
    const auto one = keeper({.lasts = 0s, .again = 1s});
    set(server.url("/secret-of-sixteen-letters"));
    ASSERT_TRUE(until(*one, has({"udp://a:1/x"})));
    EXPECT_EQ(one->current(errand)->address, server.url("/********"));
    const std::vector<std::string> old{"udp://a:1/x"};
    server.set_handler([](Exchange& exchange) { exchange.answer(200, "OK", "<html>\n<p>no</p>\n</html>"); });
    EXPECT_TRUE(until(*one, fails(old, "no list of trackers: 3 lines")));
    const auto said = one->current(errand);
    std::this_thread::sleep_for(1500ms);
    EXPECT_EQ(one->current(errand), said) << "the same once more is no news";
    server.set_handler([](Exchange& exchange) {
        exchange.send_head(200, "OK", {{"Content-Length", "10485760"}});
        for (int i = 0; i < 160 && exchange.send(std::string(65536, '\n')); ++i) {
        }
    });
    EXPECT_TRUE(until(*one, fails(old, "too long")));
    EXPECT_LT(server.body_sent(), 6'000'000) << "nobody waits for its end";
    server.set_handler([](Exchange& exchange) { exchange.answer(404, "Gone"); });
    EXPECT_TRUE(until(*one, fails(old, "404")));
    server.set_handler([](Exchange& exchange) { exchange.answer(200, "OK", "udp://c:1/\n"); });
    EXPECT_TRUE(until(*one, has({"udp://c:1/"})));
    set("file:///etc/hosts");
    EXPECT_TRUE(until(*one, fails({}, "HTTP")));
    // The end does not wait for a server that says nothing.
    server.set_handler([](Exchange& exchange) { exchange.stall(); });
    set(server.url("/silent"));
    const auto before = server.request_count();
    EXPECT_EQ(one->current(errand), nullptr);
    EXPECT_TRUE(server.wait_for_requests(before + 1));
}

}  // namespace
}  // namespace vantlow
