// The session of a torrent, with a tracker that a test steers.
#include <gtest/gtest.h>

#include "base/text.h"
#include "bt/magnet.h"
#include "bt/torrent_settings.h"
#include "engine/session.h"
#include "engine/torrent_shelf.h"
#include "support/recording_log.h"
#include "support/scripted_server.h"
#include "support/temp_folder.h"

namespace vantlow {
namespace {

using std::chrono::milliseconds;

constexpr const char16_t* magnet = u"magnet:?xt=urn:btih:0123456789abcdef0123456789abcdef01234567";

struct Surroundings {
    Surroundings() {
        start_sockets();
        // Others on this machine may ask for the same torrent.
        settings.override_value(setting::local_discovery.section, setting::local_discovery.key, u"0");
    }
    std::unique_ptr<JobSession> make(const std::u16string& address, RunOptions options = {}) {
        auto job = std::make_unique<CJobNode>();
        job->address = address;
        job->path = folder.path(u"x/");
        return make_torrent_session({std::move(job), std::move(options), log, {}, questions, &shelf},
                                    {connections, libraries, settings, stop, threads});
    }
    /// The end of a session that ends by itself.
    SessionEnd end_of(JobSession& session) {
        EXPECT_TRUE(session.start().ok());
        const auto until = Clock::now() + std::chrono::seconds(20);
        while (!session.has_ended() && Clock::now() < until) std::this_thread::sleep_for(milliseconds(5));
        return session.take_end();
    }

    test::TempFolder folder;
    TorrentShelf shelf{{}};
    Settings settings;
    ConnectionServices connections;
    const LibraryTables libraries{};
    StopSource stop;
    ThreadPool threads;
    test::RecordingLog log;
    QuestionBoard questions;
};

// A tracker that falls silent holds the goodbye up, but nobody who waits for the session.
TEST(TimedTorrentSession, SaysWhatItWaitsForIsStoppedAtOnceAndGoesWhenItsTrackersWereTold) {
    std::atomic<bool> silent{false};
    test::ScriptedServer server([&](test::Exchange& exchange) {
        if (silent) exchange.stall();
        exchange.answer(200, "OK", "d8:intervali900e5:peers0:e");
    });
    Surroundings here;
    here.settings.override_value(setting::magnet_trackers.section, setting::magnet_trackers.key,
                                 to_utf16(server.url("/announce")));
    const auto session = here.make(magnet);
    ASSERT_TRUE(session->start().ok());
    const auto until = Clock::now() + std::chrono::seconds(20);
    while (session->progress().waiting_for.empty() && Clock::now() < until)
        std::this_thread::sleep_for(milliseconds(10));
    EXPECT_NE(session->progress().waiting_for.find("none is known yet"), std::string::npos);
    ASSERT_EQ(session->connections().size(), 1U);
    EXPECT_TRUE(session->connections()[0].works);

    silent = true;
    auto before = Clock::now();
    session->stop();
    EXPECT_LE(Clock::now() - before, milliseconds(300));
    while (!session->has_ended()) std::this_thread::sleep_for(milliseconds(10));
    EXPECT_LE(Clock::now() - before, milliseconds(2500));
    EXPECT_EQ(session->take_end().outcome.result.code, Code::stopped);
}

TEST(TorrentSessionTest, WhatCannotBeFetchedEndsWithASentenceAndAsksNobody) {
    test::ScriptedServer server([&](test::Exchange& exchange) { exchange.answer(500, "No", ""); });
    const std::u16string asked = std::u16string(magnet) + u"&tr.0=" + to_utf16(server.url("/a"));
    RunOptions by_proxy;
    by_proxy.proxy.kind = ProxyPlan::http_tunnel;
    by_proxy.proxy.trouble = "The proxy list cannot be read.";
    const struct {
        std::u16string address;
        RunOptions options;
        const char16_t* crypto;
        const char* says;
    } cases[] = {
        {asked, by_proxy, u"0", "proxy"},
        {asked, {}, u"2", "libsecur"},
        {u"magnet:?xt=urn:btih:12", {}, u"0", "address"},
    };
    for (const auto& c : cases) {
        Surroundings here;
        here.settings.override_value(setting::crypto.section, setting::crypto.key, c.crypto);
        const auto session = here.make(c.address, c.options);
        const SessionEnd end = here.end_of(*session);
        EXPECT_EQ(end.job->state, JobState::failed);
        EXPECT_NE(end.job->error.find(c.says), std::string::npos) << end.job->error;
    }
    EXPECT_TRUE(server.requests().empty());

    const std::string no_digest =
        "d9:file treed1:ad0:d6:lengthi5eeee12:meta versioni2e4:name1:a12:piece lengthi16384ee";
    const std::string no_pieces =
        "d6:lengthi50000e4:name1:a12:piece lengthi16384e6:pieces20:01234567890123456789e";
    for (const auto& [info, says] : {std::pair(no_digest, "cannot be read"), std::pair(no_pieces, "do not fit")}) {
        Surroundings here;
        const InfoHash hash = hash_of(info);
        const std::string document = "d4:info" + info + "e";
        ASSERT_TRUE(here.shelf.keep(hash, std::as_bytes(std::span(document))).ok());
        const auto session = here.make(to_utf16(make_magnet(hash, "a", {server.url("/a")})));
        EXPECT_NE(here.end_of(*session).job->error.find(says), std::string::npos) << says;
        EXPECT_FALSE(here.folder.has(u"x"));
    }
}

}  // namespace
}  // namespace vantlow
